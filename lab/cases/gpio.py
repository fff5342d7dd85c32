"""A real door on the kernel's simulated lines: the button opens it, and at every end the lock is at rest."""

import lines
from board import wait_for
from parts import alarms, install_with_reader, main_process, until_reading

SECONDS = 1800

NO_RESTART = """
mkdir -p /run/systemd/system/achost.service.d
printf '[Service]\\nRestart=no\\n' >/run/systemd/system/achost.service.d/once.conf
systemctl daemon-reload
"""

ENDS = {
    "killed": "systemctl kill --kill-whom=main --signal=KILL achost",
    "crashed": "systemctl kill --kill-whom=main --signal=SEGV achost",
    "stopped": "systemctl stop achost",
}


def run(case):
    board = case.board
    board.start()
    install_with_reader(case, lines.wire)
    listed(case)
    lines.expect_prompt(case, lines.press(board, case.times(30)))
    inputs_are_told(case)
    a_card_opens(case)
    the_contacts_are_looked_after(case)
    rests_while_booting(case)
    for fail, rest in (("secure", 0), ("safe", 1)):
        rests_at_every_end(case, fail, rest)


def listed(case):
    """All lines have their use, and are the daemon's."""
    case.board.until("achost gpio | grep -q achost", 60, "the daemon has its lines")
    table = case.board.run("achost gpio")
    for name, use in (("LOCK", "relay_2"), ("REX", "exit_button"), ("CONTACT", "door_contact"), ("LOOP", "trigger_input")):
        row = next((line for line in table.splitlines() if name in line), "")
        case.expect(use in row and " achost " in row, f"achost gpio: {' '.join(row.split())}")


def inputs_are_told(case):
    board = case.board
    lines.follow(board)
    for name, number, driven in (("LOOP", 1, 0), ("CONTACT", 257, 1), ("CASE", 258, 1)):
        for value, level in ((1, driven), (0, 1 - driven)):
            lines.drive(board, name, level)
            board.until(f"grep -q '\"gpio\":{number},\"value\":{value}' {lines.EVENTS}", 30, f"{name} is told")
    case.see("the loop, the door's contact and the case's are told when they change, and when they change back")


def a_card_opens(case):
    board = case.board
    lines.forget_moves(board)
    board.run("achost card add 1 --user 7")
    board.until("grep -q 'set 1$' /sys/kernel/tracing/trace", 60, "a card moves the lock's line")
    board.run("achost card remove 1")
    board.until("achost journal --last 20 | grep -q Ana", 30, "the journal has who came")
    case.see("a card moves the lock's line, and the journal has who came")


def the_contacts_are_looked_after(case):
    """A door that is forced, or held open, and a case that is opened, are alarms until they are shut."""
    board = case.board
    board.run("achost config set host.door_held_warning=1 host.door_held_alarm=2")
    # For the card the door was released: who opens it right after that has not forced it.
    board.until("achost journal --kind contact --last 1 --json | grep -q not_used", 60, "the card's release is over")
    case.same(alarms(board), {}, "alarms before")
    lines.drive(board, "CONTACT", 1)
    alarm_comes_and_goes(case, "door_forced", "CONTACT")
    lines.drive(board, "CASE", 1)
    alarm_comes_and_goes(case, "tamper", "CASE")
    board.run("achost config set host.door_open_time=20000")
    lines.drive(board, "REX", 0)
    lines.until_level(board, "LOCK", 1)
    lines.drive(board, "CONTACT", 1)
    lines.drive(board, "REX", 1)
    board.until("achost journal --kind contact --last 3 | grep -q opened", 30, "the door was opened by whom it was opened for")
    board.run("achost config set host.door_open_time=200")
    alarm_comes_and_goes(case, "door_held", "CONTACT")
    case.see("forced, held open, the case opened: each an alarm until it is shut")


def alarm_comes_and_goes(case, name, line):
    wait_for(lambda: name in alarms(case.board), 60, f"alarm {name}")
    lines.drive(case.board, line, 0)
    wait_for(lambda: alarms(case.board) == {}, 60, f"alarm {name} is over")


def rests_while_booting(case):
    """Nobody gives the lock's line a level but its rest until the door is opened."""
    board = case.board
    board.reboot()
    until_reading(case)
    case.same(board.run("cat /run/lines/before"), "0", "the lock's line before the daemon has it")
    seen = [to for _, to in lines.moves(board)]
    case.same(set(seen), {0}, "levels that the lock's line was given while it booted")
    case.see("booting moves the lock's line nowhere")
    lines.expect_prompt(case, lines.press(board, 5))


def rests_at_every_end(case, fail, rest):
    """However the daemon ends while the door is open, the unit puts the lock at rest; nothing else starts meanwhile."""
    board = case.board
    board.run(f"achost config set host.door_fail={fail} host.door_open_time=600000\n{NO_RESTART}")
    for how, end in ENDS.items():
        lines.until_level(board, "LOCK", rest)
        lines.drive(board, "REX", 0)
        lines.until_level(board, "LOCK", 1 - rest)
        lines.drive(board, "REX", 1)
        board.run(end)
        lines.until_level(board, "LOCK", rest)
        case.same(main_process(board), 0, f"the process of a daemon that is {how}")
        board.run("systemctl reset-failed achost; systemctl start achost")
        until_reading(case)
    case.see(f"fail-{fail}: {', '.join(ENDS)} while the door was open, the lock's line is {rest} each time")
