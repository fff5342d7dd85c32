"""The clock is set back a day, forward a year, and is nowhere at a boot: people get in, and the journal says it."""

from board import wait_for
from parts import alarms, install_with_reader, journal, press_exit_button, until_reading

SECONDS = 1200
READ_INTERVAL = 3000 # ms, the default
JITTER = 300         # ms that an emulated machine may take longer to write one down than the next


# Ana's card stays in the field. Bea may come at any time of any day, which is a rule of time, and those need a clock.
PEOPLE = """
achost config set host.untrusted_clock=deny && achost card add {ana} --user 7
printf 'name,days,from,to\nalways,mon-sun,00:00,24:00\n' | achost schedule import -
achost user put 8 --name Bea --schedule always
"""


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    board.until("[ $(achost journal --kind identification --json | wc -l) -ge 6 ]", 60, "cards are announced")
    ana, bea = sorted({entry["card"] for entry in journal(board, "--kind identification")} - {33})[:2]
    board.run(PEOPLE.format(ana=ana))
    board.until(announced(ana, "opens", 0), 60, "Ana's card opens")

    for change, outcome in (("1 day ago", "clock_untrusted"), ("1 year", "opens")):
        jumps, last = len(journal(board, "--kind clock_jump")), newest(board)
        board.run(f"date -s '{change}'")
        board.until(f"[ $(achost journal --kind clock_jump --json | wc -l) -gt {jumps} ]", 60, "the journal has the jump")
        board.attempt(f"achost card add {bea} --user 8")  # once
        rule_holds(board, bea, outcome, last)
        goes_on(board)
        case.see(f"the clock set by \"{change}\": the journal says it, the door opens, cards are announced; with a rule of time: {outcome}")
    intervals_hold(case)
    outcomes = [entry["fields"]["outcome"] for entry in journal(board, f"--kind identification --card {ana}")]
    case.same(outcomes.count("opens"), 1, "openings by a card that stays in the field")
    case.see("a card that stays in the field has opened once")
    whole(case)
    board.power_off()
    board.stop()

    board.start(rtc="1970-01-01T00:00:00")
    last = newest(board)
    board.plug("reader", case.reader().line)
    until_reading(case)
    rule_holds(board, bea, "clock_untrusted", last)
    goes_on(board)
    case.see(f"no clock at boot, where it is {board.run('date +%F')}: the door opens, cards are announced, but for the one with a rule")
    intervals_hold(case)
    whole(case)


def newest(board):
    return journal(board, "--last 1")[0]["number"]


def announced(card, outcome, last):
    return f"achost journal --kind identification --card {card} --after {last} --json | grep -q '\"outcome\":\"{outcome}\"'"


def rule_holds(board, card, outcome, last):
    """What becomes of a card with a rule of time, and of the alarm that tells about the clock."""
    board.until(announced(card, outcome, last), 60, f"card {card}: {outcome}")
    standing = outcome == "clock_untrusted"
    wait_for(lambda: ("clock" in alarms(board)) == standing, 30, f"the alarm about the clock {'stands' if standing else 'is over'}")


def goes_on(board):
    """The door opens for the exit button, and cards are announced: nothing waits for a time that is far away."""
    board.until("achost status --json | grep -q '\"lock\":\"closed\"'", 60, "the lock is shut")  # else the button prolongs
    press_exit_button(board)
    last = newest(board)
    board.until(f"[ $(achost journal --kind identification --after {last} --json | wc -l) -ge 4 ]", 60, "cards are announced")


def intervals_hold(case):
    """No card is announced again too soon, by the clock that nobody sets."""
    last, shortest = {}, None
    for entry in journal(case.board, "--kind identification"):
        card = (entry["boot"], entry["card"])
        if card in last:
            gap = entry["monotonic_ms"] - last[card]
            shortest = gap if shortest is None else min(shortest, gap)
        last[card] = entry["monotonic_ms"]
    case.expect(shortest is not None and shortest > READ_INTERVAL - JITTER, f"no card is announced again within {shortest} ms")


def whole(case):
    case.board.run("achost check")
    numbers = [entry["number"] for entry in journal(case.board)]
    case.same(numbers, list(range(1, len(numbers) + 1)), "the journal's numbers")
    case.see("the stores are whole, and the journal's numbers follow each other")
