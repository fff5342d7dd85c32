"""The simulated lines of a door on a board: lock, exit button, contacts, loop and reset, driven and seen with the kernel's times."""

import json
import pathlib
import re

from board import BoardError
from parts import percentile

HERE = pathlib.Path(__file__).resolve().parent

UNIT = """
cat >/etc/systemd/system/door-lines.service <<'END'
[Unit]
Description=Simulated lines of a door, as a board's chip has them
Before=achost.service
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/usr/local/sbin/door-lines
[Install]
WantedBy=multi-user.target
END
chmod 755 /usr/local/sbin/door-lines
systemctl daemon-reload && systemctl enable --quiet --now door-lines
sync  # the power may go
"""
# The resistors are the board's own: the simulated chip takes the bias that is asked for as what drives the line.
SETTINGS = """
achost config set host.door_open_time=200 host.relay_2=LOCK "host.exit_button=REX active-low debounce=20" \
  "host.door_contact=CONTACT debounce=50" "host.tamper_contact=CASE debounce=50" \
  "host.trigger_input=LOOP active-low debounce=10" host.gpio_chip=door
"""
# Presses so often; each time the press has been told, and the lock has moved, before it is let go, and that has been
# told, and the lock is at rest, before the next.
PRESS = r"""
lock=$(cat /run/lines/LOCK.number)
until_seen() {{ # FILE TEXT TIMES
  for turn in $(seq 600); do
    [ "$(grep -c "$2" $1)" -lt $3 ] || return 0
    sleep 0.05
  done
  echo "$1 has \"$2\" $(grep -c "$2" $1) times"
  exit 1
}}
for press in $(seq {times}); do
  echo pull-down >/run/lines/REX/pull
  until_seen {events} '"active":0' $press
  until_seen /sys/kernel/tracing/trace "value: $lock set 1$" $press
  echo pull-up >/run/lines/REX/pull
  until_seen {events} '"active":1' $press
  until_seen /sys/kernel/tracing/trace "value: $lock set 0$" $press
done
"""
EVENTS = "/run/events"
LONGEST = 20  # ms from the announcement of the button to the lock's line
MOVED = re.compile(r"(\d+)\.(\d+): gpio_value: (\d+) set (\d)$", re.MULTILINE)


def wire(case):
    """Gives the board the lines of a door, at this boot and the next ones, and tells the installed door of them."""
    board = case.board
    board.put(case.options.image / "gpio-sim.ko", "/usr/local/lib/gpio-sim.ko")
    board.put(HERE / "door-lines", "/usr/local/sbin/door-lines")
    board.run(UNIT)
    board.run(SETTINGS)


def drive(board, name, level):
    """Puts a voltage on an input, as a wire would."""
    board.run(f"echo {'pull-up' if level else 'pull-down'} >/run/lines/{name}/pull")


def level(board, name):
    return int(board.run(f"cat /run/lines/{name}/value"))


def until_level(board, name, wanted, seconds=60):
    board.until(f"[ $(cat /run/lines/{name}/value) = {wanted} ]", seconds, f"line {name} is {wanted}")


def forget_moves(board):
    board.run("echo >/sys/kernel/tracing/trace")


def moves(board, name="LOCK"):
    """Each time that an output was given a level, as (seconds of the monotonic clock, level)."""
    number = int(board.run(f"cat /run/lines/{name}.number"))
    return [(float(f"{seconds}.{part}"), int(to))
            for seconds, part, line, to in MOVED.findall(board.run("cat /sys/kernel/tracing/trace")) if int(line) == number]


def follow(board):
    """Begins to write down what passes on the bus about lines."""
    board.run(f"""[ ! -e {EVENTS}.pid ] || kill $(cat {EVENTS}.pid) 2>/dev/null
      setsid achost events --json --type gpio_notified,sec_box_rex_changed >{EVENTS} 2>&1 & echo $! >{EVENTS}.pid""")
    board.until(f"achost gpio set 9 1 && achost gpio set 9 0 && grep -q gpio_notified {EVENTS}", 60, "the bus can be followed")


def told(board, message):
    """The fields of these messages, in order."""
    lines = [json.loads(line) for line in board.run(f"cat {EVENTS}").splitlines()]
    return [line["fields"] for line in lines if line["message"] == message]


def press(board, times=1):
    """Presses the exit button so often. Returns how long after each announcement the lock's line moved, in milliseconds."""
    follow(board)
    forget_moves(board)
    board.run(PRESS.format(times=times, events=EVENTS), 120 + 30 * times)
    pressed = [fields["at"] / 1e9 for fields in told(board, "sec_box_rex_changed") if fields["active"] == 0]
    if len(pressed) != times:
        raise BoardError(f"{times} presses were {len(pressed)} announcements")
    opened = [at for at, to in moves(board) if to == 1]
    return [1000 * (next(at for at in opened if at >= when) - when) for when in pressed]


def expect_prompt(case, delays):
    """The lock moves soon enough, each time."""
    worst = max(delays)
    case.expect(worst <= LONGEST, f"pressed {len(delays)} times: the lock's line moves {percentile(delays, 0.5):.1f} ms after the "
                                  f"announcement, {percentile(delays, 0.95):.1f} ms at p95, at the latest {worst:.1f} ms")
