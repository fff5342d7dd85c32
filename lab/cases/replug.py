"""The reader's adapter is pulled out and put back, also under another name, with a reader that has lost its settings."""

from parts import install_with_reader, main_process, percentile, pull_and_put_back, status_of

SECONDS = 3600
LONGEST = 3.0  # seconds until it is read again


def run(case):
    case.board.start()
    reader = install_with_reader(case)
    process, wanted = main_process(case.board), status_of(reader)
    case.same(wanted["power"], "2000", "the power that the reader was given first")
    times, names = [], set()
    for turn in range(case.times(50)):
        reader, name, seconds = pull_and_put_back(case, reader, hold=turn % 2 == 1)
        case.same(main_process(case.board), process, f"the service's process after it was put back {turn + 1} times")
        names.add(name)
        times.append(seconds)
        seen = status_of(reader)
        for setting in ("power", "region", "channels", "sensitivity"):
            case.same(seen[setting], wanted[setting], f"the reader's {setting} after it was put back {turn + 1} times")
        if turn % 10 == 9:
            case.see(f"put back {turn + 1} times, and read again within {max(times):.2f} s")
    case.see(f"put back {len(times)} times as {', '.join(sorted(names))}: the same process, the reader's settings restored")
    case.expect(percentile(times, 0.99) <= LONGEST * case.options.patience,
                f"read again after {percentile(times, 0.5):.2f} s, 99 of 100 times within {percentile(times, 0.99):.2f} s")
