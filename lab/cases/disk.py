"""The state's disk is full, read-only, and pulled out: the door opens, and alarms say so."""

from parts import alarms, install, press_exit_button, until_reading

SECONDS = 1500

MOUNT = """
state=$(ls /dev/disk/by-id/usb-*) && mkfs.ext4 -q -F "$state" && mkdir -p /var/lib/achost &&
mount -o errors=remount-ro "$state" /var/lib/achost
"""


def run(case):
    board = case.board
    state = case.place / "state.img"
    state.write_bytes(b"")
    state.open("r+b").truncate(24 << 20)
    board.start(extra=["-blockdev", f"driver=file,node-name=state,filename={state}",
                       "-device", "usb-storage,id=stick,drive=state,bus=usb.0"])
    board.until("ls /dev/disk/by-id/usb-*", 60, "the state's disk is there")
    board.run(MOUNT)
    install(case)
    board.run("achost user put 7 --name Ana && achost card add 33 --user 7")
    board.plug("reader", case.reader().line)
    until_reading(case)
    press_exit_button(board)
    case.see("the state has a disk of its own, and the door opens")

    board.run("cat /dev/zero >/var/lib/achost/filler 2>/dev/null; sync; true")
    told(case, "a full disk")
    board.run("rm /var/lib/achost/filler")
    board.until("achost status --json | grep -q '\"alarms\":\\[\\]'", 120, "the alarm is over once there is room")
    board.run("achost check && achost user list | grep -q Ana")
    case.see("with room again the alarm is over, and all stores are whole")

    board.run("echo 1 >/sys/fs/ext4/$(basename $(findmnt -no SOURCE /var/lib/achost))/trigger_fs_error")
    board.run("! touch /var/lib/achost/by-the-case 2>/dev/null")
    told(case, "a read-only disk")

    board.ask("device_del", id="stick")
    board.until("! ls /dev/disk/by-id/usb-*", 60, "the state's disk is gone")
    told(case, "no disk")


def told(case, what):
    """The door opens, and an alarm stands."""
    press_exit_button(case.board)
    case.board.until("! achost status --json | grep -q '\"alarms\":\\[\\]'", 60, f"an alarm because of {what}")
    case.see(f"{what}: the door opens for the exit button, and alarms stand: {', '.join(sorted(alarms(case.board)))}")
