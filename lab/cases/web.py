"""The page's service: off until it is wanted, then as its own user, for who has a link or a key; its end is no matter to the door."""

import json

from parts import install_with_reader, main_process, press_exit_button

SECONDS = 1200
MOST_EXPOSED = 2.0  # of 10, as systemd reckons

# One request on the machine itself, as a browser sends it.
ASK = r"""
perl -MIO::Socket::INET -e '
  my $door = IO::Socket::INET->new(PeerAddr => "127.0.0.1", PeerPort => 8080, Timeout => 30) or die "nobody serves: $!\n";
  print $door join "", map { "$_\r\n" } @ARGV[0 .. $#ARGV - 1], "Host: localhost:8080", "Origin: http://localhost:8080",
      "Connection: close", "Content-Length: " . length $ARGV[-1], "";
  print $door $ARGV[-1];
  print while <$door>' """


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    case.same(board.attempt("systemctl is-enabled achost-web")[1], "disabled", "the page's service after its installation")
    case.same(board.attempt("systemctl is-active achost-web")[1], "inactive", "the same")
    door = main_process(board)
    board.run("systemctl enable --now achost-web")
    board.until(ASK + "'GET / HTTP/1.1' ''", 60, "the page is served")
    case.same(board.run("ps -o user= -C achost-web"), "achost-web", "the user it runs as")
    case.see("off at first; enabled and started, it serves as its own user")
    for_whom_it_is(case)
    goes_on_with_the_door(case)
    exposure = float(board.run("systemd-analyze security --no-pager achost-web | tail -1 | grep -o '[0-9.]* [A-Z]*' | cut -d' ' -f1"))
    case.expect(exposure <= MOST_EXPOSED, f"systemd reckons its exposure at {exposure} of 10")
    door = main_process(board)
    board.run("systemctl disable --now achost-web")
    case.same(board.attempt("pgrep -x achost-web")[0], 1, "whether its process has ended")
    case.same(board.run("systemctl show --property=Result --value achost-web"), "success", "how it ended")
    press_exit_button(board)
    case.same(main_process(board), door, "the door's process")
    case.see("stopped, and the door goes on")


def ask(board, line, *headers, body=""):
    """One request. Returns its status, its headers and its body."""
    said = board.run(ASK + " ".join(f"'{part}'" for part in (f"{line} HTTP/1.1", *headers, body)))
    head, _, rest = said.replace("\r", "").partition("\n\n")
    return int(head.split()[1]), head, rest


def for_whom_it_is(case):
    """A stranger gets nothing, who has a link opens the door once, a key reads the figures."""
    board = case.board
    case.same(ask(board, "GET /api/status")[0], 401, "what a stranger gets")
    secret = board.run("achost-web link --for Ana --role admin").partition("#")[2]
    status, head, _ = ask(board, "POST /api/session", body=json.dumps({"link": secret}))
    case.same(status, 200, "what the link gets")
    cookie = next(line for line in head.splitlines() if line.lower().startswith("set-cookie:")).split()[1].rstrip(";")
    case.same(ask(board, "POST /api/session", body=json.dumps({"link": secret}))[0], 401, "what the same link gets again")
    status, _, said = ask(board, "POST /api/command", f"Cookie: {cookie}", body='{"command": "door_open"}')
    case.same((status, json.loads(said)["ok"]), (200, True), "what becomes of Ana's request to open the door")
    board.until("achost journal --last 20 --json | grep -q 'of\":\"Ana at 127.0.0.1'", 30, "the journal knows for whom it opened")
    key = board.run("achost-web key")
    case.expect("achost_up 1" in ask(board, "GET /metrics", f"Authorization: Bearer {key}")[2],
                "a stranger gets nothing, Ana's link lets her open the door once and the journal knows it, a key reads the figures")


def goes_on_with_the_door(case):
    """It outlives the daemon, and finds it again."""
    board = case.board
    page = board.run("systemctl show --property=MainPID --value achost-web")
    key = board.run("achost-web key")
    board.run("systemctl restart achost")
    board.until(ASK + f"'GET /metrics HTTP/1.1' 'Authorization: Bearer {key}' '' | grep -q '^achost_up 1'", 60, "it has found the daemon again")
    case.same(board.run("systemctl show --property=MainPID --value achost-web"), page, "its process")
    case.see("the daemon starts again, and it goes on with the new one")
