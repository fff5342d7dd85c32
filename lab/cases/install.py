"""Installed, configured as root before its first start, started, booted, upgraded, removed, purged."""

from parts import install, main_process, owner, until_reading

SECONDS = 900

# What a machine has, but for what changes by itself.
FILES = r"""find / -xdev \( -path /proc -o -path /sys -o -path /run -o -path /tmp -o -path /var/log -o -path /var/cache \
  -o -path /var/lib/dpkg -o -path /var/lib/systemd -o -path /var/tmp -o -path /mnt \) -prune -o -print | sort"""


def run(case):
    board = case.board
    board.start()
    case.see(f"booted in {board.boot_seconds:.0f} s")
    before, users = board.run(FILES), board.run("cut -d: -f1 /etc/passwd /etc/group")
    install(case)
    case.same(board.run("systemctl is-enabled achost"), "enabled", "the service after its installation")
    case.same(main_process(board), 0, "the service's process before it has a reader")
    case.see("installed")

    board.run("achost config set read_interval 1500 && achost user put 7 --name Ana && achost card add 33 --user 7")
    case.same(board.run("find /var/lib/achost ! -user achost"), "", "files of root's in the state")
    case.see("configured as root, and the files are the service's")

    board.plug("reader", case.reader().line)
    until_reading(case)
    case.same(owner(board), "achost", "the user it runs as once its reader is plugged in")
    case.see("started by its reader, as its own user")

    board.reboot()
    case.see("booted again")
    until_reading(case)
    case.same(owner(board), "achost", "the user it runs as after a boot")
    keeps_its_own(case)
    case.see("started at boot, as its own user, with what was set")

    old = main_process(board)
    board.run("mount -o ro /dev/vdb /mnt && dpkg --install /mnt/next/*.deb", 300)
    until_reading(case)
    case.expect(main_process(board) not in (0, old), "upgraded, and started again by that")
    case.same(owner(board), "achost", "the user it runs as after an upgrade")
    case.same(board.run("dpkg-query -W -f '${Version}' achost"), "999.0.0", "the version after the upgrade")
    keeps_its_own(case)

    board.run("dpkg --remove achost-web achost-mqtt achost", 300)
    case.same(board.attempt("systemctl is-active achost")[1], "inactive", "the service once it is removed")
    board.run("test -f /var/lib/achost/users.db && ! test -e /usr/bin/achost && ! pgrep -x achost")
    case.see("removed: it has ended, and its state is kept")

    board.run("dpkg --purge uhf-dev achost-web achost-mqtt achost-fleet achost uhf-tools uhf-plugin", 300)
    left = sorted(set(board.run(FILES).splitlines()) - set(before.splitlines()))
    case.same([path for path in left if not usual(path)], [], "files that the purge left")
    case.same(board.run("cut -d: -f1 /etc/passwd /etc/group"), users, "users and groups after the purge")
    case.see("purged: no file, user or group is left")


def keeps_its_own(case):
    case.same(case.board.run("achost config get read_interval"), "1500", "a setting")
    case.board.run("achost user list | grep -q Ana")


def usual(path):
    """What the system keeps of every package, or makes at each boot: copies of its user files, the adapter's node."""
    return path in ("/etc/passwd-", "/etc/group-", "/etc/shadow-", "/etc/gshadow-", "/etc/subuid-", "/etc/subgid-")
