#!/usr/bin/env python3
# Fails unless scripts/fleet starts a broker and three doors that achost-fleet and a stranger's client can use, everything
# that goes over the broker is as the schema says, and Ctrl-C ends all of it.
#
#   fleet_client.py PROGRAMS
#
# PROGRAMS: the directory of achost, achost-mqtt and achost-fleet. Where python3-jsonschema is missing the status is 77.
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

try:
    import jsonschema
except ImportError:
    print("fleet_client.py: python3-jsonschema is missing: scripts/setup test installs it", file=sys.stderr)
    sys.exit(77)

PATIENCE = 120  # seconds; a machine that is busy takes its time
programs = os.path.abspath(sys.argv[1])
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
with open(os.path.join(root, "gateway/mqtt/fleet.schema.json")) as file:
    schema = json.load(file)
topics = {re.compile("^" + re.sub(r"\\{[a-z]+\\}", "[^/]+", re.escape(name)) + "$"): (name, topic)
          for name, topic in schema["topics"].items()}


def topic_of(name):
    """The most particular of the schema's topics that it is."""
    found = [value for pattern, value in topics.items() if pattern.match(name)]
    assert found, f"the schema has no topic {name}"
    return min(found, key=lambda value: value[0].count("{"))


def check(topic, payload):
    name, described = topic_of(topic)
    validator = jsonschema.Draft202012Validator({**schema, **described["payload"]})
    for text in payload.splitlines() if described.get("lines") else [payload]:
        errors = [error.message for error in validator.iter_errors(json.loads(text))]
        assert not errors, f"{topic}: {text[:400]}: {errors[0][:400]}"
    return name


class Stranger:
    """mosquitto_sub, which knows nothing of doors."""

    def __init__(self, directory, port, filters):
        self.messages = []
        self.process = subprocess.Popen(
            ["mosquitto_sub", "-h", "localhost", "-p", str(port), "-V", "5", "-q", "1", "-F", "%j",
             "--cafile", f"{directory}/ca.pem", "--cert", f"{directory}/centre.pem", "--key", f"{directory}/centre.key",
             *[word for one in filters for word in ("-t", one)]], stdout=subprocess.PIPE, text=True)
        threading.Thread(target=self.listen, daemon=True).start()

    def listen(self):
        for line in self.process.stdout:
            message = json.loads(line)
            self.messages.append((message["topic"], message.get("payload", "")))

    def end(self):
        self.process.terminate()
        self.process.wait()


def until(what, look):
    end = time.monotonic() + PATIENCE
    while not look():
        assert time.monotonic() < end, f"waited for: {what}"
        time.sleep(0.1)


def fleet(directory, *words, status=0):
    done = subprocess.run([f"{programs}/achost-fleet", *words, "--config", f"{directory}/achost-fleet.conf"],
                          capture_output=True, text=True, timeout=PATIENCE)
    assert done.returncode == status, f"{words}: {done.returncode} {done.stdout} {done.stderr}"
    return [json.loads(line) for line in done.stdout.splitlines()]


def look_at_doors(directory, stranger):
    doors = {one["door"]: one for one in fleet(directory, "list")}
    assert set(doors) == {"gate-1", "gate-2", "yard"} and all(one["online"] for one in doors.values()), doors
    until("a reader that answers", lambda: fleet(directory, "list", "gate-1")[0]["reader"] == "answering")
    assert fleet(directory, "open", "gate-1")[0]["ok"]
    assert fleet(directory, "mode", "gate-*", "locked", "--for", "1min")[1]["mode"] == "locked"
    assert "text" in fleet(directory, "why", "gate-1", "33")[0]

    def opened():
        return [json.loads(payload) for topic, payload in list(stranger.messages)
                if topic == "doors/gate-1/journal/command" and json.loads(payload)["fields"]["what"] == "open"]
    until("the journal's entry of the command", opened)
    assert opened()[0]["fields"]["on_behalf_of"] == "centre", opened()[0]


def push_people(directory):
    """The doors have what is pushed, and say what somebody changes there."""
    people = os.path.join(directory, "people.csv")
    with open(people, "w") as file:
        file.write("id,name,card\n7,Ana,33\n8,Lena,44\n")
    said = {one["door"]: one for one in fleet(directory, "push", people, "--to", "gate-*") if "applied" in one}
    assert {door: one["applied"] for door, one in said.items()} == {"gate-1": True, "gate-2": True}, said

    def achost(door, *words):
        return subprocess.run([f"{programs}/achost", *words, "--state", f"{directory}/{door}"], check=True,
                              capture_output=True, text=True, timeout=PATIENCE).stdout
    assert achost("gate-2", "user", "export").count("Lena") == 1
    achost("gate-1", "user", "rename", "7", "Eve")
    until("the difference", lambda: fleet(directory, "list", "gate-1")[0]["drift"] == 1)
    lines = fleet(directory, "drift", "gate-1")[0]["lines"]
    assert lines[0]["drift"]["user"] == 7 and lines[0]["drift"]["stored"]["name"] == "Eve", lines
    achost("gate-1", "user", "rename", "7", "Ana")
    until("no difference", lambda: fleet(directory, "list", "gate-1")[0]["drift"] == 0)


def main():
    with tempfile.TemporaryDirectory() as directory:
        script = subprocess.Popen([f"{root}/scripts/fleet", "--directory", directory], stdout=subprocess.PIPE, text=True,
                                  env={**os.environ, "UHF_PROGRAMS": programs}, start_new_session=True)
        try:
            said = ""
            while "Ctrl-C" not in said:
                line = script.stdout.readline()
                assert line, "scripts/fleet has ended"
                said += line
            port = int(re.search(r"localhost:(\d+)", said).group(1))
            stranger = Stranger(directory, port, ["doors/#", "provision/#"])
            until("what is retained", lambda: len(stranger.messages) >= 6)
            look_at_doors(directory, stranger)
            push_people(directory)
            names = {check(topic, payload) for topic, payload in list(stranger.messages) if payload}
            for wanted in ("state", "health", "figures", "journal/{kind}", "cmd/{name}", "desired",
                           "desired/parts/{hash}", "desired/answer"):
                assert f"doors/{{door}}/{wanted}" in names, f"nobody has told {wanted}: {sorted(names)}"
            stranger.end()
        finally:
            os.killpg(script.pid, signal.SIGINT)  # as a terminal does
            assert script.wait(PATIENCE) == 0, "an end by Ctrl-C is no failure"
        left = subprocess.run(["pgrep", "-f", directory], capture_output=True, text=True).stdout
        assert not left, f"scripts/fleet has left processes: {left}"


main()
