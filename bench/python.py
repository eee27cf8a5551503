#!/usr/bin/python3
"""What Python costs beside the mirror in C++: python3 bench/python.py build/release

Records five simulated minutes of an agent with 64 ports, and plays them again and again: as the
mirror in C++ alone, with observers in Python, and so on in turn; the medians of the CPU times.
Then what single operations cost."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
import timeit

build = os.path.abspath(sys.argv[1])
sys.path.insert(0, os.path.join(build, "python"))

import ptplib  # noqa: E402
from ptplib import _ptplib  # noqa: E402
from ptplib._changes import Observation  # noqa: E402
from ptplib.types import Ptp  # noqa: E402


def record(directory):
    socket, path = os.path.join(directory, "s"), os.path.join(directory, "r")
    agent = subprocess.Popen([os.path.join(build, "bin/demoAgent"), "--socket", socket, "--instant"],
                             stdout=subprocess.DEVNULL)
    while not os.path.exists(socket):
        time.sleep(0.01)
    subprocess.run([os.path.join(build, "bin/ptpstate"), "record", "--socket", socket, "--for", "5",
                    path], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    agent.terminate()
    agent.wait(10)
    return path


def play(path, observe):
    """CPU seconds for what follows the first snapshot."""
    player = _ptplib.RecordingPlayer(path)
    roots = []
    player.onRoot = roots.append
    while not player.complete:
        player.next()
    observation = observe(roots[0]) if observe else None
    begin = time.process_time()
    while player.next() is not None:
        pass
    spent = time.process_time() - begin
    if observation is not None:
        observation.close()
    return spent


def main():
    seen = [0]

    def count(change):
        seen[0] += 1

    def read(change):
        change.entity, change.attribute, change.key, change.old, change.new

    def paths(change):
        change.path, change.old, change.new
    ways = {
        "mirror in C++, nobody observes": None,
        "an observer in C++ that compares the name": lambda root: Observation(
            root, count, True, ["nothing"]),
        "a callback in Python that counts": lambda root: Observation(root, count, True, ()),
        "one that reads old and new": lambda root: Observation(root, read, True, ()),
        "one that reads old, new and path": lambda root: Observation(root, paths, True, ()),
    }
    with tempfile.TemporaryDirectory() as directory:
        path = record(directory)
        play(path, ways["a callback in Python that counts"])
        changes = seen[0]
        times = {way: [] for way in ways}
        for _ in range(7):
            for way, observe in ways.items():
                times[way].append(play(path, observe))
    print(f"{changes} changes played")
    base = statistics.median(times["mirror in C++, nobody observes"])
    for way, all_times in times.items():
        spent = statistics.median(all_times)
        print(f"{way:44} {spent / changes * 1e9:7.0f} ns a change  {changes / spent / 1e6:7.2f} M/s"
              f"  {spent / base:5.1f} x")

    config = ptplib.newRoot("Ptp::Config", "c")
    interface = config.intfConfig.create("Ethernet1", True, False)

    class Plain:
        __slots__ = ("value",)

        @property
        def read(self):
            return self.value
    plain = Plain()
    plain.value = 1
    names = {"config": config, "interface": interface, "plain": plain, "Ptp": Ptp,
             "children": config.intfConfig}
    for what, code in (("a property of a plain object", "plain.read"),
                       ("read a number", "config.priority1"),
                       ("read a number of a child", "interface.logSyncInterval"),
                       ("read an enumeration", "config.ptpMode"),
                       ("read a value with fields", "config.clockQuality"),
                       ("find a child by key", "children['Ethernet1']"),
                       ("the whole path to a child's number",
                        "config.intfConfig['Ethernet1'].logSyncInterval"),
                       ("set a number to what it is", "config.priority1 = 128"),
                       ("set a number twice", "config.priority1 = 1; config.priority1 = 2")):
        count_of = 100_000
        best = statistics.median(timeit.repeat(code, globals=names, number=count_of, repeat=7))
        print(f"{what:44} {best / count_of * 1e9:7.0f} ns")


if __name__ == "__main__":
    main()
