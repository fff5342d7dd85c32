"""Boot, installation, the exit button on real lines, one adapter pulled out, one power cut: a short form of four cases."""

import lines
import power_cut
from parts import install_with_reader, main_process, owner, pull_and_put_back
from replug import LONGEST

SECONDS = 900


def run(case):
    power_cut.begin(case)
    reader = install_with_reader(case, lines.wire)
    case.same(owner(case.board), "achost", "the service's user")
    lines.expect_prompt(case, lines.press(case.board, 5))
    process = main_process(case.board)
    _, name, seconds = pull_and_put_back(case, reader)
    case.same(main_process(case.board), process, "the service's process")
    case.expect(seconds <= LONGEST * case.options.patience, f"pulled out, put back as {name}, and read again after {seconds:.2f} s")
    power_cut.live(case, 0, 1)
