#!/usr/bin/python3
"""A fleet on a cluster of three NATS servers, with faults: at the end, every reader equals every source.

   fleet.py [PROGRAMS] [--switches 1000 --ports 64 --seconds 120 --replicas 3]

Each switch changes its offset, delay and counters once a second. After a phase without faults, which is
measured, servers are killed and restarted (now and then so many that no majority is left), stopped and
continued; the connection of a publisher and a reader is held up and cut; publishers and readers are killed
and restarted. Then the changes stop, and the digests of every root, which are computed from the values at
the source and in each mirror, are compared.

Everything listens on the loopback only, has a time limit, and ends with this script, whatever ends it.
Exit status: 0 all are equal, 1 not, 77 it cannot be tried here."""

import argparse
import contextlib
import ctypes
import json
import os
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SERVER = "/usr/sbin/nats-server"
TICKS = os.sysconf("SC_CLK_TCK")
LIBC = ctypes.CDLL(None)


class Failed(Exception):
    pass


def end_with_parent():
    pr_set_pdeathsig = 1
    LIBC.prctl(pr_set_pdeathsig, signal.SIGKILL)


def wait_for(what, done, patience):
    """Returns how long it took."""
    begin = time.monotonic()
    while not done():
        if time.monotonic() - begin > patience:
            raise Failed(f"not within {patience:.0f} s: {what()}")
        time.sleep(0.2)
    return time.monotonic() - begin


def free_ports(count):
    """Ports below those that the system gives to clients, which might take one of a killed server."""
    found = []
    for port in random.sample(range(20000, 32000), 2000):
        with contextlib.suppress(OSError), socket.socket() as probe:
            probe.bind(("127.0.0.1", port))
            found.append(port)
        if len(found) == count:
            return found
    raise Failed("no free ports")


class Process:
    """A program that may be killed, stopped and started again."""

    def __init__(self, name, command, directory):
        self.name = name
        self.command = command
        self.log = os.path.join(directory, name + ".log")
        self.program = None
        self.starts = 0

    def start(self):
        self.starts += 1
        with open(self.log, "ab") as log:
            self.program = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=log, stderr=log,
                                            preexec_fn=end_with_parent)

    def kill(self):
        if self.program is not None:
            self.program.kill()
            self.program.wait()
            self.program.stdin.close()
            self.program = None

    def signal(self, number):
        self.program.send_signal(number)

    def require_running(self):
        if self.program.poll() is not None:
            raise Failed(f"{self.name} has ended with status {self.program.returncode}; {self.log}")

    def cpu(self):
        """Seconds of processor time."""
        with open(f"/proc/{self.program.pid}/stat", encoding="ascii") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS

    def memory(self):
        """Bytes."""
        with open(f"/proc/{self.program.pid}/statm", encoding="ascii") as statm:
            return int(statm.read().split()[1]) * os.sysconf("SC_PAGESIZE")


class Load(Process):
    """A fleetLoad: reads commands, writes a line about itself every second."""

    def __init__(self, name, command, directory):
        super().__init__(name, command, directory)
        self.begin = 0

    def start(self):
        self.begin = os.path.getsize(self.log) if os.path.exists(self.log) else 0
        super().start()

    def say(self, line):
        self.program.stdin.write((line + "\n").encode())
        self.program.stdin.flush()

    def lines(self, begin=None):
        """What it has written, of this process or from `begin` on."""
        with open(self.log, encoding="utf-8", errors="replace") as log:
            begin = self.begin if begin is None else begin
            log.seek(begin)
            if begin != self.begin:
                log.readline()
            text = log.read()
        for line in text.splitlines():
            if line.startswith("{") and line.endswith("}"):
                yield json.loads(line)

    def now(self):
        """The last line, or nothing."""
        size = os.path.getsize(self.log)
        last = {}
        for last in self.lines(max(self.begin, size - 8192)):
            pass
        return last

    def digests(self, path):
        with contextlib.suppress(FileNotFoundError):
            os.remove(path)
        self.say("digests " + path)
        wait_for(lambda: f"{self.name} writes its digests", lambda: os.path.exists(path), 60)
        with open(path, encoding="utf-8") as text:
            return dict(line.rstrip("\n").rsplit(" ", 1) for line in text)


class Proxy:
    """Forwards connections to the servers in turn, as long as it is told to."""

    def __init__(self, servers):
        self.servers = servers
        self.flows = threading.Event()
        self.flows.set()
        self.cut = False
        self.open = []
        self.turn = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            client, _ = self.listener.accept()
            self.turn += 1
            try:
                if self.cut:
                    raise OSError("cut")
                server = socket.create_connection(
                    ("127.0.0.1", self.servers[self.turn % len(self.servers)]), 2)
                server.settimeout(None)
            except OSError:
                client.close()
                continue
            self.open = [pair for pair in self.open if pair[0].fileno() != -1] + [(client, server)]
            for source, target in ((client, server), (server, client)):
                source.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                threading.Thread(target=self.forward, args=(source, target), daemon=True).start()

    def forward(self, source, target):
        with contextlib.suppress(OSError):
            while data := source.recv(1 << 18):
                self.flows.wait()
                target.sendall(data)
        for each in (source, target):
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)
            each.close()

    def hold(self):
        self.flows.clear()

    def cut_all(self):
        self.cut = True
        for pair in self.open:
            for each in pair:
                with contextlib.suppress(OSError):
                    each.shutdown(socket.SHUT_RDWR)

    def mend(self):
        self.cut = False
        self.flows.set()


class Delays:
    """Delays in classes, as fleetLoad counts them."""

    def __init__(self):
        self.classes = {}
        self.longest = 0

    def add(self, line):
        for number, count in line["delays"].items():
            self.classes[int(number)] = self.classes.get(int(number), 0) + count
        self.longest = max(self.longest, line["longest"])

    def quantile(self, part):
        """Seconds."""
        left = part * sum(self.classes.values())
        for number, count in sorted(self.classes.items()):
            left -= count
            if left <= 0:
                return 2 ** ((number + 0.5) / 16) * 1e-6
        return 0

    def __str__(self):
        return (f"median {self.quantile(0.5) * 1e3:.1f} ms, 99 % {self.quantile(0.99) * 1e3:.1f} ms, "
                f"longest {self.longest * 1e-6:.0f} ms of {sum(self.classes.values())}")


class Fleet:
    def __init__(self, options, directory):
        self.options = options
        self.directory = directory
        self.random = random.Random(options.seed)
        clients, routes, monitors = (free_ports(9)[i::3] for i in range(3))
        self.nodes = [self.node(i, clients, routes, monitors) for i in range(3)]
        self.monitors = monitors
        self.proxy = Proxy(clients)
        direct = []
        for port in clients:
            direct += ["--nats", f"nats://127.0.0.1:{port}"]
        proxied = ["--nats", f"nats://127.0.0.1:{self.proxy.port}"]
        program = os.path.join(options.programs, "fleetLoad")
        self.publishers = []
        for i in range(options.publishers):
            first = options.switches * i // options.publishers
            count = options.switches * (i + 1) // options.publishers - first
            command = [program, "switches", *(proxied if i == 0 else direct), "--first", str(first),
                       "--count", str(count), "--ports", str(options.ports), "--counters",
                       str(options.counters), "--replicas", str(options.replicas), "--interval",
                       str(options.interval), "--heartbeat", str(options.heartbeat)]
            command += ["--memory"] if options.memory else []
            self.publishers.append(Load(f"publisher{i}", command, directory))
        # The first reader, too, is behind the proxy.
        self.readers = [
            Load(f"reader{i}", [program, "reader", *(proxied if i == 0 and options.readers > 1 else direct)],
                 directory) for i in range(options.readers)]
        self.faults = []

    def node(self, number, clients, routes, monitors):
        others = ", ".join(f"nats://127.0.0.1:{port}" for port in routes)
        conf = os.path.join(self.directory, f"node{number}.conf")
        with open(conf, "w", encoding="utf-8") as out:
            out.write(f"server_name: node{number}\nlisten: 127.0.0.1:{clients[number]}\n"
                      f"http: 127.0.0.1:{monitors[number]}\n"
                      f"jetstream {{ store_dir: \"{self.directory}/store{number}\" }}\n"
                      f"log_file: \"{self.directory}/node{number}.nats\"\n"
                      f"cluster {{ name: fleet, listen: 127.0.0.1:{routes[number]}, "
                      f"no_advertise: true, routes: [{others}] }}\n")
        return Process(f"node{number}", [SERVER, "-c", conf], self.directory)

    def healthy(self):
        for port in self.monitors:
            try:
                with urllib.request.urlopen(f"http://127.0.0.1:{port}/healthz", timeout=2) as answer:
                    if answer.status != 200:
                        return False
            except OSError:
                return False
        return True

    def stored(self):
        """Messages and bytes in a server's stream."""
        with urllib.request.urlopen(f"http://127.0.0.1:{self.monitors[0]}/jsz", timeout=10) as answer:
            state = json.load(answer)
        return state["messages"], state["bytes" if "bytes" in state else "storage"]

    def everything(self):
        return self.nodes + self.publishers + self.readers

    def close(self):
        for process in self.everything():
            with contextlib.suppress(Exception):
                process.kill()

    def start(self):
        for node in self.nodes:
            node.start()
        wait_for(lambda: "the cluster is healthy", self.healthy, 60)
        for publisher in self.publishers:
            # One after the other, as they are installed; the first one creates the stream.
            self.start_publisher(publisher)
            wait_for(self.about, lambda: self.published(publisher), self.options.patience)
        for reader in self.readers:
            reader.start()

    def start_publisher(self, publisher):
        base = publisher.command
        publisher.command = base + ["--seed", str(self.options.seed + publisher.starts)]
        publisher.start()
        publisher.command = base

    def current(self):
        return all(reader.now().get("current") == self.options.switches for reader in self.readers)

    def published(self, publisher):
        """Whether the fleet has had everything; what changes all the time may be on its way."""
        status = publisher.now()
        return (status.get("publishing") == status.get("switches", -1) and
                status["pending"] + status["inFlight"] < 4 * status["switches"])

    def quiet(self):
        for publisher in self.publishers:
            status = publisher.now()
            if not self.published(publisher) or status["pending"] or status["inFlight"]:
                return False
        return self.current()

    def about(self):
        text = ["the readers have all that the publishers have"]
        for load in self.publishers + self.readers:
            line = load.now()
            line.pop("delays", None)
            text.append(f"{load.name}: {json.dumps(line)}")
        return "\n   ".join(text)

    # ---- Faults ----

    def fault(self, what, seconds, begin, end):
        print(f"   {time.monotonic() - self.began:6.1f} s  {what}", flush=True)
        self.faults.append(what)
        begin()
        time.sleep(seconds)
        end()

    def some(self, processes, count=1):
        return self.random.sample(processes, count)

    def kill_node(self):
        node, = self.some(self.nodes)
        self.fault(f"{node.name} is killed", self.random.uniform(1, 4), node.kill, node.start)

    def lose_quorum(self):
        two = self.some(self.nodes, 2)
        self.fault(" and ".join(node.name for node in two) + " are killed", self.random.uniform(3, 6),
                   lambda: [node.kill() for node in two], lambda: [node.start() for node in two])

    def stop_node(self):
        node, = self.some(self.nodes)
        self.fault(f"{node.name} is stopped", self.random.uniform(2, 6),
                   lambda: node.signal(signal.SIGSTOP), lambda: node.signal(signal.SIGCONT))

    def stop_cluster(self):
        self.fault("all nodes are stopped", self.random.uniform(2, 6),
                   lambda: [node.signal(signal.SIGSTOP) for node in self.nodes],
                   lambda: [node.signal(signal.SIGCONT) for node in self.nodes])

    def hold_connection(self):
        self.fault("the connection of a publisher and a reader is held up", self.random.uniform(3, 8),
                   self.proxy.hold, self.proxy.mend)

    def cut_connection(self):
        self.fault("the connection of a publisher and a reader is cut", self.random.uniform(1, 4),
                   self.proxy.cut_all, self.proxy.mend)

    def restart_publisher(self):
        publisher, = self.some(self.publishers)
        self.fault(f"{publisher.name} is killed", self.random.uniform(0, 3), publisher.kill,
                   lambda: self.start_publisher(publisher))

    def restart_reader(self):
        reader, = self.some(self.readers)
        self.fault(f"{reader.name} is killed", self.random.uniform(0, 3), reader.kill, reader.start)

    def torment(self, seconds):
        """Each kind of fault once, in any order, and then at random until the time is over."""
        kinds = [self.kill_node, self.lose_quorum, self.stop_node, self.stop_cluster, self.hold_connection,
                 self.cut_connection, self.restart_publisher, self.restart_reader]
        order = kinds[:]
        self.random.shuffle(order)
        end = time.monotonic() + seconds
        while order or time.monotonic() < end:
            (order.pop() if order else self.random.choice(kinds))()
            time.sleep(self.random.uniform(0.5, 3) if order or seconds < 100 else
                       self.random.uniform(2, 8))

    # ---- Measuring ----

    def sample(self):
        return {"time": time.monotonic(), "cpu": {each.name: each.cpu() for each in self.everything()},
                "messages": sum(publisher.now()["messages"] + publisher.now()["heartbeats"]
                                for publisher in self.publishers),
                "bytes": sum(publisher.now()["bytes"] for publisher in self.publishers),
                "missed": sum(publisher.now()["missed"] for publisher in self.publishers),
                "logs": {reader.name: os.path.getsize(reader.log) for reader in self.readers}}

    def delays(self, begin):
        delays = Delays()
        for reader in self.readers:
            for line in reader.lines(begin["logs"][reader.name]):
                delays.add(line)
        return delays

    def measure(self, seconds):
        before = self.sample()
        time.sleep(seconds)
        after = self.sample()
        took = after["time"] - before["time"]
        switches = self.options.switches
        messages = (after["messages"] - before["messages"]) / took
        print(f"   messages published      {messages:.0f}/s, {messages / switches:.2f}/s of a switch")
        print(f"   bytes of their values   {(after['bytes'] - before['bytes']) / took / 1e6:.2f} MB/s")
        print(f"   from change to observer {self.delays(before)}")
        print(f"   changes left out since the machine was busy: {after['missed'] - before['missed']} slots")
        for kind, processes in (("servers", self.nodes), ("publishers", self.publishers),
                                ("readers", self.readers)):
            cpu = sum(after["cpu"][each.name] - before["cpu"][each.name] for each in processes) / took
            memory = [each.memory() for each in processes]
            mirrored = switches if kind != "publishers" else switches / len(processes)
            print(f"   {kind:10} {len(processes)}   memory {max(memory) / 1e6:7.1f} MB each at most, "
                  f"{max(memory) / mirrored / 1e3:6.1f} KB per switch of it;  "
                  f"processor {cpu:5.2f} in all, {cpu / switches * 1e6:6.0f} us/s of a switch")
        with contextlib.suppress(Exception):
            count, size = self.stored()
            print(f"   in the stream           {count} messages, {size / 1e6:.1f} MB")

    def compare(self):
        wanted = {}
        for publisher in self.publishers:
            wanted.update(publisher.digests(os.path.join(self.directory, publisher.name + ".digests")))
        if len(wanted) != self.options.switches:
            raise Failed(f"{len(wanted)} sources instead of {self.options.switches}")
        wrong = 0
        for reader in self.readers:
            found = reader.digests(os.path.join(self.directory, reader.name + ".digests"))
            for root in sorted(wanted.keys() | found.keys()):
                if wanted.get(root) != found.get(root):
                    wrong += 1
                    if wrong <= 20:
                        print(f"   {root}: {wanted.get(root)} at the source, {found.get(root)} in {reader.name}")
        if wrong:
            raise Failed(f"{wrong} roots differ")
        return len(wanted)

    def load_average(self):
        return " ".join(f"{load:.1f}" for load in os.getloadavg())

    def run(self):
        options = self.options
        print(f"{options.switches} switches of {options.ports} ports, {options.counters} of which count each "
              f"second; {options.publishers} publishers, {options.readers} readers, replicas "
              f"{options.replicas}, interval {options.interval} s, seed {options.seed}; load average "
              f"{self.load_average()}", flush=True)
        self.began = time.monotonic()
        self.start()
        took = wait_for(self.about, self.current, options.patience)
        entities = sum(publisher.now()["entities"] for publisher in self.publishers)
        print(f"all {entities} entities published and read after {took:.1f} s", flush=True)
        time.sleep(3)
        print(f"without faults, {options.calm} s:", flush=True)
        self.measure(options.calm)
        before = self.sample()["logs"]
        print(f"with faults, {options.seconds} s; load average {self.load_average()}", flush=True)
        if options.seconds:
            self.torment(options.seconds)
        print(f"   from change to observer {self.delays({'logs': before})}", flush=True)
        for publisher in self.publishers:
            publisher.say("stop")
        for process in self.everything():
            process.require_running()
        # What was quiet when it was last told of stays so.
        time.sleep(2)
        took = wait_for(self.about, self.quiet, options.patience)
        print(f"the changes have ended; quiet after {took + 2:.1f} s", flush=True)
        time.sleep(2 * options.heartbeat + 1)
        repeated = sum(publisher.now()["repeated"] for publisher in self.publishers)
        repairs = sum(reader.now()["repairs"] for reader in self.readers)
        compared = self.compare()
        print(f"{repeated} messages were published again, {repairs} times a reader read everything again")
        print(f"equal: {compared} sources, each in {len(self.readers)} readers, after {len(self.faults)} "
              f"faults; load average {self.load_average()}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("programs", nargs="?", default=os.path.join(TREE, "build/release/bin"))
    parser.add_argument("--switches", type=int, default=20)
    parser.add_argument("--ports", type=int, default=8)
    parser.add_argument("--counters", type=int, default=1,
                        help="ports of each switch whose packets are counted each second, in turn (1)")
    parser.add_argument("--seconds", type=int, default=60, help="how long faults are injected; 0: none (60)")
    parser.add_argument("--calm", type=int, default=10, help="seconds that are measured without faults (10)")
    parser.add_argument("--publishers", type=int, default=2, help="processes (2)")
    parser.add_argument("--readers", type=int, default=2)
    parser.add_argument("--replicas", type=int, default=3)
    parser.add_argument("--memory", action="store_true", help="keep the stream in memory")
    parser.add_argument("--interval", type=float, default=0,
                        help="shortest time between two messages of an entity, in seconds (0)")
    parser.add_argument("--heartbeat", type=float, default=2)
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--patience", type=float, default=120, help="seconds until all is equal (120)")
    parser.add_argument("--keep", help="directory for configurations, logs and stores, which stays")
    options = parser.parse_args()
    if options.seed is None:
        options.seed = random.randrange(10000)
    if not os.access(SERVER, os.X_OK):
        print("skipped: nats-server is not installed")
        sys.exit(77)

    def late(*_):
        raise Failed("the time limit is over")
    signal.signal(signal.SIGALRM, late)
    signal.signal(signal.SIGTERM, late)
    signal.alarm(int((2 + options.publishers) * options.patience + options.calm + 2 * options.seconds + 120))
    directory = options.keep or tempfile.mkdtemp(prefix="fleet-")
    os.makedirs(directory, exist_ok=True)
    fleet = Fleet(options, directory)
    status = 1
    try:
        fleet.run()
        status = 0
    except Failed as failure:
        print(f"FAILED: {failure}; {directory}", flush=True)
    except KeyboardInterrupt:
        print("interrupted")
    finally:
        fleet.close()
        if status == 0 and not options.keep:
            shutil.rmtree(directory, ignore_errors=True)
    sys.exit(status)


main()
