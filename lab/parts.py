"""What several cases do."""

import json
import threading

from board import BoardError, wait_for


def install(case):
    """Puts the packages on the board, as an administrator would; some device comes or goes in the middle of that."""
    case.board.run("mount -o ro /dev/vdb /mnt && dpkg --unpack /mnt/packages/*.deb && "
                   "udevadm trigger --settle --subsystem-match=mem && dpkg --configure --pending", 300)


def main_process(board):
    """The number of the service's process; 0 when it does not run."""
    return int(board.run("systemctl show --property=MainPID --value achost"))


def owner(board):
    """The user that the service's process belongs to."""
    return board.run(f"ps -o user= -p {main_process(board)}")


def until_reading(case, seconds=240):
    """Waits until the reader answers."""
    case.board.until("achost health", seconds, "the reader answers")


def install_with_reader(case, wire=None):
    """The board as it does its work: packages, a setting, a user, a reader that answers. Returns the reader.

    `wire` is what else is to be there before the first start."""
    install(case)
    if wire:
        wire(case)
    case.board.run("achost config set transmit_power 2000 && achost user put 7 --name Ana && achost card add 33 --user 7")
    reader = case.reader()
    case.board.plug("reader", reader.line)
    until_reading(case)
    case.see(f"booted in {case.board.boot_seconds:.0f} s, installed, and the reader answers")
    return reader


def press_exit_button(board):
    """Presses it while the door is closed: an open one stays open for longer, and says nothing."""
    board.until("achost status --json | grep -q '\"lock\":\"closed\"'", 30, "the door is closed")
    opened = "journalctl -u achost -o cat | grep -c 'opens.*exit' || true"
    before = int(board.run(opened))
    status, output = board.attempt("achost rex", 30)
    if status:
        raise BoardError(f"the exit button: {output}")
    wait_for(lambda: int(board.run(opened)) > before, 30, "the door opens for the exit button")


def alarms(board):
    """The alarms that stand, by name."""
    standing = json.loads(board.run("achost status --json"))["alarms"]
    return {alarm["name"]: alarm["text"] for alarm in standing}


def journal(board, options=""):
    """What the journal has, in order."""
    return [json.loads(line) for line in board.run(f"achost journal --json {options}", 300).splitlines() if line.startswith("{")]


# The adapter

def pull_and_put_back(case, old, hold=False):
    """Pulls the adapter out and puts it back, with another reader behind it that has lost its settings.

    Returns that reader, the name the adapter has got, and the seconds from then until the reader answered."""
    board = case.board
    device = board.run("readlink -f /dev/uhf-reader")
    if hold:  # so that the name is taken when the adapter comes back
        board.run(f"setsid sleep 30 3<{device} >/dev/null 2>&1 &")
    board.unplug("reader")
    old.stop()
    board.until("! achost health", 60, "the host knows that its reader is gone")
    new = case.reader()
    board.plug("reader", new.line)
    until_reading(case)
    seconds = board.run("echo $(stat -L -c %.3Z /dev/uhf-reader) $(achost journal --kind reader_state --last 1 --json)")
    back, entry = seconds.split(" ", 1)
    answered = json.loads(entry)
    case.same(answered["fields"]["state"], "answering", "the reader's state as the journal has it")
    at = board.run(f"date -d '{answered['time']}' +%s.%3N")
    return new, board.run("readlink -f /dev/uhf-reader"), float(at) - float(back)


def status_of(reader):
    """What the simulated reader has been told."""
    reader.say("status")
    lines = {}
    while "overruns" not in lines:
        name, _, value = reader.process.stdout.readline().strip().partition(" ")
        lines[name] = value
    return lines


# Power

class Watch:
    """Follows what the machine says on its stream, and remembers each line with its time."""

    def __init__(self, board):
        self.lines = []
        self.silences = 0  # times that nothing had come
        self.ended = False
        self.thread = threading.Thread(target=self._follow, args=(board.stream,), daemon=True)
        self.thread.start()

    def _follow(self, stream):
        try:
            while not self.ended:
                came = stream.take(0.05)
                self.lines += came
                self.silences += not came
        except (BoardError, OSError, ValueError):  # it has ended, or its socket is closed
            pass

    def has_all(self):
        """Waits until nothing more is on its way from a machine that stands still."""
        began = self.silences
        wait_for(lambda: self.silences > began + 1, 30, "all that the machine has said is here")

    def stop(self):
        self.ended = True
        self.thread.join()


def percentile(values, share):
    """The value that so large a share of all is not above."""
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))]

