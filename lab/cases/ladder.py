"""The reader hangs, then the adapter's driver does: each step that is to bring it back is seen, and people get out meanwhile."""

import lines
from board import wait_for
from parts import install_with_reader, main_process, press_exit_button, status_of, until_reading

SECONDS = 1800
GIVE_UP = 30  # seconds until the run ends

STEPS = ("what waited on the line is dropped", "the port is opened again", "the reader is reset")

RESET_LINE = f"achost config set host.reader_reset=RESET host.reader_give_up={GIVE_UP}"

# The adapter's controller can no longer reach the memory, as one that has hung: what its driver waits for never comes.
CONTROLLER = "/sys/bus/pci/devices/$(basename $(readlink -f /sys/bus/pci/drivers/xhci_hcd/0000:*))"
HANG = f"""
controller={CONTROLLER}
echo $controller >/run/controller
printf '\\003\\000' | dd of=$controller/config bs=1 seek=4 conv=notrunc status=none
"""
MEND = """
controller=$(cat /run/controller)
cd /sys/bus/pci/drivers/xhci_hcd && echo ${controller##*/} >unbind; echo ${controller##*/} >bind
"""
# Seconds from the watchdog's end to the next start.
AWAY = """
journalctl -u achost -o short-monotonic |
  awk -F'[][]' '/has not reported/ { ended = $2 } /Started achost/ { began = $2 } END { printf "%.0f", began - ended }'
"""


def run(case):
    case.board.start()
    reader = install_with_reader(case, wire)
    the_reader_hangs(case, reader)
    the_run_ends(case, reader)
    the_driver_hangs(case, reader)


def wire(case):
    lines.wire(case)
    case.board.run(RESET_LINE)


def told(board):
    """The steps that the service's log has of this boot, in order."""
    return board.run("journalctl -u achost -o cat | grep -o 'tried: .*' || true").splitlines()


def the_reader_hangs(case, reader):
    board, wanted = case.board, status_of(reader)
    process, before = main_process(board), len(told(board))
    lines.forget_moves(board)
    reader.say("fault silence 1")
    board.until("! achost health", 60, "the host knows that its reader is silent")
    press_exit_button(board)
    wait_for(lambda: len(told(board)) >= before + len(STEPS), 60, "all steps were tried")
    case.same(told(board)[before:][:len(STEPS)], [f"tried: {step}" for step in STEPS], "the steps")
    wait_for(lambda: [to for _, to in lines.moves(board, "RESET")][-2:] == [1, 0], 30, "the reader's reset line was 1, then 0")
    reader.say("fault silence 0")
    until_reading(case)
    seen = status_of(reader)
    for setting in ("power", "region"):
        case.same(seen[setting], wanted[setting], f"the reader's {setting}")
    case.same(main_process(board), process, "the service's process")
    case.see(f"the reader hangs: {', '.join(STEPS)}, in turn; then it reads again with its settings, in the same process")


def the_run_ends(case, reader):
    board, process = case.board, main_process(case.board)
    reader.say("fault silence 1")
    wait_for(lambda: main_process(board) not in (0, process), GIVE_UP + 120, "the service has started again")
    board.run("journalctl -u achost -o cat | grep -q 'status=8'")
    board.until("systemctl is-active --quiet achost", 60, "it is up")
    press_exit_button(board)
    reader.say("fault silence 0")
    until_reading(case)
    case.see(f"it hangs for longer than {GIVE_UP} s: the run ends with status 8 and begins anew, and people get out without it")


def the_driver_hangs(case, reader):
    board, process = case.board, main_process(case.board)
    board.run(HANG)
    board.until("! achost health", 60, "the host knows that its reader does not answer")
    press_exit_button(board)
    case.see("the adapter's driver hangs: the host says so, and people get out")
    # The line's thread does not come back from the driver: what is left is an end, which the kernel delays, too.
    wait_for(lambda: main_process(board) not in (0, process), 180, "the service has started again")
    board.run("journalctl -u achost -o cat | grep -q 'line has not reported' && dmesg | grep -q 'HC died'")
    board.until("achost rex", 60, "people get out again")
    away = board.run(AWAY)
    case.see(f"the watchdog ends the run, and people get out again {away} s later, with the driver still away")
    board.run(MEND, 120)
    until_reading(case)
    case.see("the driver is back, and the reader is read again")
