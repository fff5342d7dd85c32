"""The unit's confinement: what a probe inside it can do, and the same probe as the same user outside."""

from parts import install_with_reader

SECONDS = 900

# What the service needs, and nothing else. What it writes to these two nobody else sees.
MAY = {"write /var/lib/achost", "write /run/achost", "open /dev/uhf-reader"}
ITS_OWN = {"write /tmp", "write /var/tmp"}

PREPARE = r"""
ip link set lo up 2>/dev/null
install -d -m 1777 /opt/open /home/open /run/open /var/lib/open
chmod 666 /dev/vda /dev/rtc0 $(readlink -f /dev/virtio-ports/stream)
setsid perl -MIO::Socket::INET -e '$s = IO::Socket::INET->new(LocalAddr => "127.0.0.1", LocalPort => 7007, Listen => 5) or die;
  while (accept(my $c, $s)) {}' >/dev/null 2>&1 &
mkdir -p /etc/systemd/system/achost.service.d
printf '[Service]\nExecStartPre=/usr/bin/perl /mnt/probe\n' >/etc/systemd/system/achost.service.d/probe.conf
systemctl stop achost && systemctl daemon-reload
"""


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    board.run(PREPARE)
    outside = could(board.run("setpriv --reuid achost --regid achost --init-groups perl /mnt/probe"))
    board.run("rm -f /var/tmp/by-the-probe /tmp/by-the-probe /dev/shm/by-the-probe; systemctl start achost")
    inside = could(board.run("journalctl -u achost -o cat -b | grep ^probe:"))
    case.same(set(inside), set(outside), "what the probe has tried")
    tried = [what for what in inside if what not in MAY | ITS_OWN]
    case.same([what for what in tried if not outside[what]], [],
              "what the same user cannot do outside either, which shows nothing")
    case.same([what for what in tried if inside[what]], [], "what it should not be able to do inside")
    case.same([what for what in MAY if not inside[what]], [], "what it needs and cannot do")
    case.see(f"could not inside, and could outside: {', '.join(tried)}")
    board.run("! ls /tmp/by-the-probe /var/tmp/by-the-probe 2>/dev/null")
    case.see("what it writes to /tmp and /var/tmp nobody else sees")


def could(text):
    """Of each thing tried, whether it could be done."""
    lines = [line.removeprefix("probe: ").rsplit(": ", 1) for line in text.splitlines() if line.startswith("probe: ")]
    return {what: answer == "could" for what, answer in lines}
