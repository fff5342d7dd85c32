"""Boot, installation, one adapter pulled out and put back, one power cut: the short form of four cases."""

import power_cut
from parts import install_with_reader, main_process, owner, pull_and_put_back

SECONDS = 1500


def run(case):
    case.board.start()
    reader = install_with_reader(case)
    case.same(owner(case.board), "achost", "the service's user")
    process = main_process(case.board)
    reader, name, seconds = pull_and_put_back(case, reader)
    case.same(main_process(case.board), process, "the service's process")
    case.expect(seconds <= 3, f"pulled out, put back as {name}, and read again after {seconds:.2f} s")
    power_cut.cut_once(case, reader, 0)
