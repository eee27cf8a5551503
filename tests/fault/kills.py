#!/usr/bin/python3
"""Processes that share a state are killed at random; nothing acknowledged is lost, and in the end all
have the same.

   kills.py PROGRAMS [--seconds N] [--seed N]

statedb keeps a configuration and a status, the former on disk with --sync always. An agent keeps its
status there, ptpexport and ptpfleet publish show it, the latter in a nats-server of this test. All of
them, and the nats-server, are killed with SIGKILL at random moments, one or several at a time, and
started again. Meanwhile writers set attributes of the configuration with ptpstate, some alone, some in
pairs that always have the same value. A write that ptpstate confirms must be there from then on; of one
that it does not confirm, all or nothing. Readers look at the pairs all the time.

In the end nothing is killed any more and the agent comes to rest. Then the state of the agent, of statedb,
of ptpexport and of the fleet must be equal, and the configuration must hold what was confirmed.

The default is 30 seconds. It talks to this machine only. Exit status: 0 all of this holds, 1 not, 77 it
cannot be tried here."""

import argparse
import contextlib
import json
import os
import random
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

PORTS = 16
SINGLES = [f"ptp/config.intfConfig[Ethernet{n}].logSyncInterval" for n in range(1, 13)]
PAIRS = [(f"ptp/config.intfConfig[Ethernet{n}].logAnnounceInterval",
          f"ptp/config.intfConfig[Ethernet{n}].logMinDelayReqInterval") for n in range(1, 7)]
VALUES = range(-3, 8)
NATS_CONF = """\
port: {port}
host: 127.0.0.1
server_name: kills
jetstream {{ store_dir: "{store}" }}
"""


def skip(why):
    print("skipped:", why)
    sys.exit(77)


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


class Supervised:
    """A process that is started again when it has been killed."""

    def __init__(self, lab, name, command):
        self.lab, self.name, self.command = lab, name, command
        self.process = None
        self.kills = 0
        self.start_at = 0.0

    def start(self):
        with open(self.lab.file(self.name + ".log"), "ab") as log:
            self.process = subprocess.Popen(self.command, stdout=log, stderr=subprocess.STDOUT)

    def running(self):
        return self.process is not None and self.process.poll() is None

    def kill(self, pause):
        self.process.kill()
        self.process.wait()
        self.kills += 1
        self.start_at = time.monotonic() + pause

    def review(self):
        if not self.running() and time.monotonic() >= self.start_at:
            code = self.process.returncode
            if code != -9:
                self.lab.problem(f"{self.name} has ended by itself, with status {code}; see its log")
                self.start_at = time.monotonic() + 5
            self.start()


class Lab:
    def __init__(self, programs, directory, seed):
        self.programs, self.directory = programs, directory
        self.random = random.Random(seed)
        self.all = []
        self.problems = []
        self.ending = threading.Event()
        self.lock = threading.Lock()
        self.counts = {"confirmed": 0, "not confirmed": 0, "pairs read": 0}

    def file(self, name):
        return os.path.join(self.directory, name)

    def program(self, name):
        return os.path.join(self.programs, name)

    def add(self, name, *command):
        one = Supervised(self, name, command)
        self.all.append(one)
        one.start()
        return one

    def ptpstate(self, *words, timeout=20):
        """The output of ptpstate; None if it fails, as it does while the server is away."""
        try:
            ran = subprocess.run([self.program("ptpstate"), *words], stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, timeout=timeout, check=False)
        except subprocess.TimeoutExpired:
            return None
        return ran.stdout.decode() if ran.returncode == 0 else None

    def problem(self, text):
        with self.lock:
            self.problems.append(text)
        print("FAILED:", text, flush=True)

    def count(self, what):
        with self.lock:
            self.counts[what] += 1

    def close(self):
        self.ending.set()
        for one in self.all:
            if one.running():
                one.process.kill()
            one.process.wait()


class Place:
    """What a place may hold: the confirmed value, and those whose fate nobody knows."""

    def __init__(self, paths):
        self.paths = paths
        self.possible = set()
        self.confirmed = False


def write(lab, places, seed):
    """Sets values until the end. Each place belongs to one writer."""
    chance = random.Random(seed)
    while not lab.ending.is_set():
        place = chance.choice(places)
        value = chance.choice([one for one in VALUES if one not in place.possible] or list(VALUES))
        words = [word for path in place.paths for word in (path, str(value))]
        place.possible.add(value)  # from now on it may be there
        if lab.ptpstate("set", "--socket", lab.file("statedb.sock"), "--timeout", "2",
                        *words) is not None:
            place.possible = {value}
            place.confirmed = True
            lab.count("confirmed")
        else:
            lab.count("not confirmed")
        time.sleep(chance.random() * 0.02)


def values_of(lab, paths):
    """Values by path, all at one moment; None if the server does not answer."""
    text = lab.ptpstate("dump", "--json", "--socket", lab.file("statedb.sock"), "--timeout", "2",
                        "ptp/config")
    if text is None:
        return None
    intfs = json.loads(text)["places"][0]["state"]["intfConfig"]
    found = {}
    for path in paths:
        intf, attribute = path.split("[")[1].split("].")
        found[path] = intfs.get(intf, {}).get(attribute)  # a lost interface is a lost value, too
    return found


def watch_pairs(lab):
    paths = [path for pair in PAIRS for path in pair]
    while not lab.ending.is_set():
        found = values_of(lab, paths)
        if found is not None:
            lab.count("pairs read")
            for one, other in PAIRS:
                if found[one] != found[other]:
                    lab.problem(f"half a transaction: {one} {found[one]}, {other} {found[other]}")
        time.sleep(0.05)


def wait_for(what, done, patience=60):
    end = time.monotonic() + patience
    while time.monotonic() < end:
        with contextlib.suppress(Exception):
            if done():
                return True
        time.sleep(0.2)
    print(f"not within {patience} s: {what}", flush=True)
    return False


def start_all(lab, nats, export):
    with open(lab.file("nats.conf"), "w", encoding="ascii") as conf:
        conf.write(NATS_CONF.format(port=nats, store=lab.file("nats")))
    statedb = lab.file("statedb.sock")
    lab.add("nats-server", "nats-server", "-c", lab.file("nats.conf"))
    lab.add("statedb", lab.program("statedb"), "--socket", statedb, "--database",
            lab.file("state.db"), "--sync", "always", "--root", "Ptp::Config=ptp/config", "--root",
            "Ptp::Status=ptp/status")
    agent = lab.add("agent", lab.program("demoAgent"), "--socket", lab.file("agent.sock"),
                    "--statedb", statedb, "--ports", str(PORTS))
    lab.add("ptpexport", lab.program("ptpexport"), "--socket", statedb, "--listen",
            f"127.0.0.1:{export}")
    lab.add("ptpfleet", lab.program("ptpfleet"), "publish", "--nats", f"nats://127.0.0.1:{nats}",
            "--switch", "sw1", "--socket", statedb)
    return agent


def torment(lab, seconds):
    """Kills at random, until the time is over."""
    end = time.monotonic() + seconds
    next_kill = time.monotonic() + 2
    while time.monotonic() < end:
        for one in lab.all:
            one.review()
        if time.monotonic() >= next_kill:
            next_kill = time.monotonic() + lab.random.uniform(0.1, 2.0)
            for one in lab.random.sample(lab.all, lab.random.choice([1, 1, 1, 2, 3])):
                if one.running():
                    one.kill(lab.random.choice([0, 0, lab.random.uniform(0, 2)]))
        time.sleep(0.02)


def difference(a, b, path=""):
    """Where two JSON values differ first, and how; empty if they do not."""
    if isinstance(a, dict) and isinstance(b, dict):
        # Where the elements of a queue are kept, they are numbered.
        for key in sorted((a.keys() | b.keys()) - {"next"}):
            found = difference(a.get(key), b.get(key), f"{path}.{key}")
            if found:
                return found
        return ""
    if isinstance(a, list) and isinstance(b, list) and len(a) == len(b):
        for at, (one, other) in enumerate(zip(a, b)):
            found = difference(one, other, f"{path}[{at}]")
            if found:
                return found
        return ""
    return "" if a == b else f"{path}: {json.dumps(a)[:200]}, not {json.dumps(b)[:200]}"


def compare(lab, nats, export):
    """Whether everybody has what the agent has; says who has not."""
    def dump(*words):
        text = lab.ptpstate("dump", "--json", "--timeout", "5", *words, "ptp/status")
        return json.loads(text) if text is not None else None

    def exported():
        with urllib.request.urlopen(f"http://127.0.0.1:{export}/state/ptp/status",
                                    timeout=10) as answer:
            return json.load(answer)

    agent = dump("--socket", lab.file("agent.sock"))
    held = {"statedb": lambda: dump("--socket", lab.file("statedb.sock")), "ptpexport": exported,
            "the fleet": lambda: dump("--fleet", f"nats://127.0.0.1:{nats}", "--switch", "sw1")}
    different = [f"{name}: {found}" for name, state in held.items()
                 if (found := difference(state(), agent))]
    if agent is None or different:
        raise AssertionError("differs from the agent: " + "; ".join(different))
    return True


def run(lab, seconds):
    nats, export = free_port(), free_port()
    agent = start_all(lab, nats, export)
    singles = [Place([path]) for path in SINGLES]
    pairs = [Place(list(pair)) for pair in PAIRS]
    for path in SINGLES:
        add = ["add", "--socket", lab.file("statedb.sock"), path.rsplit(".", 1)[0], "true", "false"]
        if not wait_for("statedb serves", lambda add=add: lab.ptpstate(*add) is not None):
            lab.problem("statedb does not serve; see its log")
            return
    for pair in PAIRS:
        same = [word for path in pair for word in (path, "0")]
        wait_for("pairs begin equal", lambda same=same: lab.ptpstate(
            "set", "--socket", lab.file("statedb.sock"), *same) is not None)
    threads = [threading.Thread(target=write, args=(lab, part, lab.random.random()))
               for part in (singles[::2], singles[1::2], pairs)]
    threads.append(threading.Thread(target=watch_pairs, args=(lab,)))
    for thread in threads:
        thread.start()
    torment(lab, seconds)
    lab.ending.set()
    for thread in threads:
        thread.join()
    # From here on nothing is killed but the agent, once more: its last life has an end.
    agent.kill(0)
    agent.command = [*agent.command, "--seconds", "3"]
    for one in lab.all:
        one.start_at = 0
        one.review()
    for place in singles + pairs:
        found = {}

        def read(place=place, found=found):
            found.update(values_of(lab, place.paths) or {})
            return len(found) == len(place.paths)
        wait_for(f"{place.paths} can be read", read)
        for path in place.paths:
            if place.confirmed and found.get(path) not in place.possible:
                lab.problem(f"{path} is {found.get(path)}, confirmed {sorted(place.possible)}")
        if len(set(found.values())) != 1:
            lab.problem(f"half a transaction is left: {found}")
    time.sleep(4)
    if not wait_for("all are equal", lambda: compare(lab, nats, export), 60):
        try:
            compare(lab, nats, export)
        except Exception as why:  # whatever it is, it is why they are not
            lab.problem(str(why))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("programs")
    parser.add_argument("--seconds", type=float, default=30)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--keep", action="store_true", help="keep the directory with logs")
    options = parser.parse_args()
    if shutil.which("nats-server") is None:
        skip("nats-server is not installed (package nats-server)")
    for name in ("statedb", "demoAgent", "ptpexport", "ptpfleet", "ptpstate"):
        if not os.path.exists(os.path.join(options.programs, name)):
            skip(f"{name} is not built")
    directory = tempfile.mkdtemp(prefix="kills.")
    lab = Lab(os.path.abspath(options.programs), directory, options.seed)
    try:
        run(lab, options.seconds)
    finally:
        lab.close()
    print(f"seed {options.seed}: in {options.seconds:.0f} s, " + ", ".join(
        f"{one.name} killed {one.kills} times" for one in lab.all) + "; " + ", ".join(
            f"{number} {what}" for what, number in lab.counts.items()))
    if lab.problems or options.keep:
        print("logs are kept in", directory)
    else:
        shutil.rmtree(directory)
    if not lab.counts["confirmed"] or not lab.counts["pairs read"]:
        lab.problem("nothing was confirmed or read")
    return 1 if lab.problems else 0


if __name__ == "__main__":
    sys.exit(main())
