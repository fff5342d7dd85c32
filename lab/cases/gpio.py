"""Simulated GPIO lines in the kernel: an input that is driven and an output that is seen, as real lines are."""

import pathlib
import subprocess

from board import BoardError

SECONDS = 600

HOME = pathlib.Path(__file__).resolve().parent.parent

LINES = """
modprobe configfs && insmod /run/gpio-sim.ko
mountpoint -q /sys/kernel/config || mount -t configfs configfs /sys/kernel/config
mkdir -p /sys/kernel/config/gpio-sim/door/lines && cd /sys/kernel/config/gpio-sim/door &&
echo 8 >lines/num_lines && echo 1 >live && cat dev_name lines/chip_name
"""
# An input follows its pull, as a wire would drive it.
DRIVE = "cd /sys/devices/platform/{0}/{1}/sim_gpio3 && echo pull-up >pull && cat value && echo pull-down >pull && cat value"


def run(case):
    module = case.options.image / "gpio-sim.ko"
    made = subprocess.run([HOME / "gpio-module", case.options.image], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if made.returncode:
        raise BoardError(f"the kernel's simulated lines could not be built: {made.stdout[-500:]}")
    board = case.board
    board.start()
    board.put(module, "/run/gpio-sim.ko")
    device, chip = board.run(LINES).splitlines()[-2:]
    board.run(f"test -c /dev/{chip}")
    case.see(f"8 lines at /dev/{chip}")
    case.same(board.run(DRIVE.format(device, chip)).split(), ["1", "0"], "a line that is pulled up, then down")
    case.see("a line follows what drives it")
