"""The clock is set back a day, forward a year, and is nowhere at a boot: people get in, and the journal says it."""

from parts import install_with_reader, journal, press_exit_button, until_reading

SECONDS = 1200
READ_INTERVAL = 3000 # ms, the default
JITTER = 300         # ms that an emulated machine may take longer to write one down than the next


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    for change in ("1 day ago", "1 year"):
        jumps = len(journal(board, "--kind clock_jump"))
        board.run(f"date -s '{change}'")
        board.until(f"[ $(achost journal --kind clock_jump --json | wc -l) -gt {jumps} ]", 60, "the journal has the jump")
        goes_on(board)
        case.see(f"the clock set by \"{change}\": the journal says it, the door opens, cards are announced")
    intervals_hold(case)
    whole(case)
    board.power_off()
    board.stop()

    board.start(rtc="1970-01-01T00:00:00")
    board.plug("reader", case.reader().line)
    until_reading(case)
    goes_on(board)
    case.see(f"no clock at boot, where it is {board.run('date +%F')}: the door opens, cards are announced")
    intervals_hold(case)
    whole(case)


def goes_on(board):
    """The door opens for the exit button, and cards are announced: nothing waits for a time that is far away."""
    press_exit_button(board)
    last = journal(board, "--last 1")[0]["number"]
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
