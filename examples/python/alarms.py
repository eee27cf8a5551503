#!/usr/bin/python3
"""Raises alarms: a port that leaves its state of work, an offset beyond a limit, a lost agent.

    python3 alarms.py --socket /run/ptp4lAgent.sock --limit 1000

Writes a line for each alarm that begins or ends; `--for SECONDS` ends it."""

import argparse
import asyncio
import time

import ptplib
from ptplib.types import Ptp

WORKING = {Ptp.PortState.master, Ptp.PortState.slave, Ptp.PortState.passive}


class Alarms:
    """Which alarms there are now; tells of each once when it begins and once when it ends."""

    def __init__(self):
        self.raised = {}

    def set(self, name, text):
        """`text`: what is wrong; None if all is well."""
        if (text is not None) == (name in self.raised):
            return
        if text is not None:
            self.raised[name] = text
            self.say("ALARM", name, text)
        else:
            self.say("clear", name, self.raised.pop(name))

    @staticmethod
    def say(what, name, text):
        print(time.strftime("%H:%M:%S"), what, f"{name}: {text}", flush=True)


def check_port(alarms, key, port):
    name = f"port {key.intf}"
    bad = port is not None and port.portState not in WORKING
    alarms.set(name, f"is {port.portState}" if bad else None)


def check_offset(alarms, status, limit):
    offset = status.currentDS.offsetFromMaster if status.currentDS else 0
    alarms.set("offset", f"{offset} ns, the limit is {limit}" if abs(offset) > limit else None)


async def watch(options, alarms):
    with ptplib.connect(options.socket) as client:
        alarms.set("agent", None)
        status = client.mirror("ptp/status", Ptp.Status)
        async with status.changes(attributes=("portDS", "portState", "currentDS",
                                              "offsetFromMaster")) as changes:
            check_offset(alarms, status, options.limit)
            for key, port in status.portDS.items():
                check_port(alarms, key, port)
            async for change in changes:
                if change.attribute == "portDS":
                    check_port(alarms, change.key, change.new)
                elif change.attribute == "portState":
                    if not change.entity.removed:
                        check_port(alarms, change.entity.portDSKey, change.entity)
                else:
                    check_offset(alarms, status, options.limit)


async def watch_for_ever(options):
    alarms = Alarms()
    while True:
        try:
            await watch(options, alarms)
        except ptplib.ConnectionLost as lost:
            alarms.set("agent", str(lost))
        await asyncio.sleep(1)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--socket", default="/run/ptp4lAgent.sock")
    parser.add_argument("--limit", type=int, default=1000, help="nanoseconds")
    parser.add_argument("--for", dest="seconds", type=float, help="end after so many seconds")
    options = parser.parse_args()
    try:
        asyncio.run(asyncio.wait_for(watch_for_ever(options), options.seconds))
    except (asyncio.TimeoutError, KeyboardInterrupt):
        pass


if __name__ == "__main__":
    main()
