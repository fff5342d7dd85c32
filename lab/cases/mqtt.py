"""The bridge's service: off until it is wanted; joined with a code, it carries the door over a broker; broker and daemon come and go."""

import json

from parts import install_with_reader, main_process, press_exit_button

SECONDS = 1500
MOST_EXPOSED = 2.0  # of 10, as systemd reckons
FLEET = "/etc/mosquitto/fleet"

# As its documents say, with what the package brings.
BROKER = f"""
install -d -m 750 -g mosquitto {FLEET} && cd {FLEET} && certificates=/usr/share/achost-fleet/certificates &&
$certificates . authority && $certificates . server 127.0.0.1 && $certificates . client centre && $certificates . client watcher &&
cp /usr/share/achost-fleet/*.acl . && printf 'user watcher\\ntopic read doors/#\\n' >>fleet.acl &&
chown mosquitto server.key *.acl . && sed 's#DIRECTORY#{FLEET}#' /usr/share/achost-fleet/mosquitto.conf >/etc/mosquitto/mosquitto.conf &&
printf '%s\\n' broker=127.0.0.1:8883 ca={FLEET}/ca.pem certificate={FLEET}/centre.pem key={FLEET}/centre.key >/etc/achost-fleet.conf &&
systemctl start mosquitto"""
WATCHER = (f"mosquitto_sub -h 127.0.0.1 -p 8883 --cafile {FLEET}/ca.pem --cert {FLEET}/watcher.pem --key {FLEET}/watcher.key"
           " -V 5 -c -x 86400 -i watcher -q 1 -t 'doors/gate-1/journal/#'")


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    case.same(board.attempt("systemctl is-enabled achost-mqtt")[1], "disabled", "the bridge's service after its installation")
    case.same(board.attempt("systemctl is-active achost-mqtt")[1], "inactive", "the same")
    board.run(BROKER, 120)
    join(case)
    case.same(board.run("ps -o user= -C achost-mqtt"), "achost-mqtt", "the user it runs as")
    obeys_the_centre(case)
    loses_nothing(case)
    exposure = float(board.run("systemd-analyze security --no-pager achost-mqtt | tail -1 | grep -o '[0-9.]* [A-Z]*' | cut -d' ' -f1"))
    case.expect(exposure <= MOST_EXPOSED, f"systemd reckons its exposure at {exposure} of 10")
    door = main_process(board)
    board.run("systemctl disable --now achost-mqtt")
    case.same(board.attempt("pgrep -x achost-mqtt")[0], 1, "whether its process has ended")
    case.same(board.run("systemctl show --property=Result --value achost-mqtt"), "success", "how it ended")
    board.until("achost-fleet list --json | grep -q '\"online\":false'", 30, "the centre knows that it has gone")
    press_exit_button(board)
    case.same(main_process(board), door, "the door's process")
    case.see("stopped, the centre knows it, and the door goes on")


def join(case):
    """The door gets its name and its certificate for a code, once."""
    board = case.board
    board.run("setsid achost-fleet provision --ca-key " + FLEET + "/ca.key </dev/null >/tmp/provision 2>&1 &")
    code = json.loads(board.run("achost-fleet invite gate-1 --serial 4711 --json"))["code"]
    way_on = board.run(f"achost-mqtt join --broker 127.0.0.1:8884 --serial 4711 {code}", 60).splitlines()[-1]
    case.same(way_on.strip(), "systemctl enable --now achost-mqtt", "what it says to type next")
    board.run(f"pkill achost-fleet; {way_on}")
    online(case, "it has joined")
    case.see("off at first; joined with a code and enabled, it is in the fleet under the name it was given")


def online(case, when):
    case.board.until("achost-fleet list --json | grep -q '\"online\":true'", 60, f"the centre sees the door once {when}")


def obeys_the_centre(case):
    """Opens for the centre, takes its people, and the journal knows for whom."""
    board = case.board
    board.run("achost-fleet open gate-1", 60)
    board.until("achost journal --last 20 --json | grep -q 'of\":\"centre'", 30, "the journal knows for whom it opened")
    board.run("printf 'id,name,card\\n7,Ana,33\\n8,Lena,44\\n' >/tmp/people.csv && achost-fleet push /tmp/people.csv --to gate-1", 60)
    case.same(board.run("achost user list --json | grep -c Lena"), "1", "the people that the centre has said")
    case.see("the door opens for the centre, and takes the people that it says; the journal knows for whom")


def loses_nothing(case):
    """What happens while the broker is away, or while bridge and daemon are killed, arrives, each number."""
    board = case.board
    bridge = board.run("systemctl show --property=MainPID --value achost-mqtt")
    board.run(f"{WATCHER} -E")  # from here on the broker keeps what comes for it
    board.run("systemctl stop mosquitto")
    for _ in range(5):
        press_exit_button(board)
    board.run("systemctl restart achost", 120)
    board.until("achost health", 240, "the reader answers again")
    board.run("systemctl start mosquitto")
    online(case, "the broker is back")
    case.same(board.run("systemctl show --property=MainPID --value achost-mqtt"), bridge, "the bridge's process")
    board.run("systemctl kill --signal KILL achost-mqtt")
    press_exit_button(board)
    online(case, "systemd has started it again")
    last = json.loads(board.run("achost journal --last 1 --json").splitlines()[-1])["number"]
    board.until(f"{WATCHER} -W 5 >>/tmp/seen; grep -q '\"number\":{last}[,}}]' /tmp/seen", 120, "the last entry has arrived")
    numbers = {json.loads(line)["number"] for line in board.run("cat /tmp/seen", 60).splitlines()}
    missing = [number for number in range(min(numbers), last) if number not in numbers]
    case.same(missing, [], f"numbers that did not arrive, from {min(numbers)} to {last}")
    case.expect(len(numbers) > 12, f"broker, daemon and bridge came and went, and all {len(numbers)} entries of that time arrived")
