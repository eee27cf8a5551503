#!/usr/bin/python3
"""A port of a real ptp4l goes faulty: who sees it, and when.

   fault.py PROGRAMS

In network namespaces of its own, two ptp4l follow each other over a virtual cable, as in the third act
of the demo. Of the second, ptp4lAgent serves the state to ptpexport, ptpgnmi and ptpsnmp. Then the
cable is pulled. Until they have seen it, six wait for it, each as its users do: a reader of events, the
page in Chromium, a reader of an OpenConfig leaf, a gNMI subscriber, a manager that polls snmpd ten
times a second, and Prometheus with our alarms. Prints the delay of each, from the moment at which the
cable is pulled; ptp4l's own delay, and with it the moment at which its log has the fault, is part of it.

Nothing leaves the namespaces, and no clock is adjusted: the kernel lets nobody do so in a user
namespace. Exit status: 0 all have seen it, 1 not, 77 it cannot be tried here."""

import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NEEDED = {"ptp4l": "linuxptp", "ip": "iproute2", "unshare": "util-linux", "snmpd": "snmpd",
          "snmpget": "snmp", "prometheus": "prometheus", "chromium": "chromium",
          "chromedriver": "chromium-driver", "protoc": "protobuf-compiler"}
# ptpbaseClockPortRunningState of RFC 8173; its rows are by domain, type of clock, instance and port.
RUNNING_STATE = "1.3.6.1.2.1.241.1.2.9.1.6"
FAULTY = 2
PATIENCE = 90


def skip(why):
    print("skipped:", why)
    sys.exit(77)


def wait_for(what, done, patience=PATIENCE):
    end = time.monotonic() + patience
    while time.monotonic() < end:
        with contextlib.suppress(Exception):
            if done():
                return
        time.sleep(0.05)
    raise AssertionError(f"not within {patience} s: {what}")


def fetch(url):
    with urllib.request.urlopen(url, timeout=10) as answer:
        return json.load(answer)


class Lab:
    """All processes, in a directory for their files and logs."""

    def __init__(self, programs, directory):
        self.programs = programs
        self.directory = directory
        self.running = []

    def file(self, name):
        return os.path.join(self.directory, name)

    def start(self, name, *command):
        with open(self.file(name + ".log"), "wb") as log:
            program = subprocess.Popen(command, stdout=log, stderr=subprocess.STDOUT)
        self.running.append(program)
        return program

    def ours(self, name, *options):
        return self.start(name, os.path.join(self.programs, name), "--socket", self.file("socket"),
                          *options)

    def log(self, name):
        with open(self.file(name + ".log"), encoding="utf-8", errors="replace") as log:
            return log.read()

    def listening(self, name):
        """The address that a program prints when it listens."""
        found = []

        def printed():
            found[:] = re.findall(r"127\.0\.0\.1:\d+", self.log(name))
            return found
        wait_for(f"{name} listens", printed)
        return found[0]

    def close(self):
        for program in reversed(self.running):
            program.kill()
            program.wait()


def start_clocks(lab):
    far = lab.start("far", "unshare", "--net", "sleep", "600")
    own = os.readlink("/proc/self/ns/net")
    wait_for("a second namespace", lambda: os.readlink(f"/proc/{far.pid}/ns/net") != own)
    there = ["nsenter", "--target", str(far.pid), "--net"]
    for command in (["ip", "link", "set", "lo", "up"],
                    ["ip", "link", "add", "eth0", "type", "veth", "peer", "name", "eth0", "netns",
                     str(far.pid)],
                    ["ip", "address", "add", "10.77.0.2/24", "dev", "eth0"],
                    there + ["ip", "address", "add", "10.77.0.1/24", "dev", "eth0"],
                    ["ip", "link", "set", "eth0", "up"], there + ["ip", "link", "set", "eth0", "up"]):
        subprocess.run(command, check=True)
    options = ["-S", "-E", "-4", "-m", "-q", "-i", "eth0", "--kernel_leap", "0",
               "--fault_reset_interval", "0", "--logAnnounceInterval", "-2", "--logSyncInterval", "-3",
               "--logMinDelayReqInterval", "-2"]
    lab.start("grandmaster", *there, "ptp4l", *options, "--free_running", "1", "--priority1", "10",
              "--uds_address", lab.file("grandmaster"))
    lab.start("ptp4l", "ptp4l", *options, "--max_frequency", "1", "--first_step_threshold", "0",
              "--step_threshold", "0", "--pi_proportional_const", "0.1", "--pi_integral_const", "0.03",
              "--uds_address", lab.file("ptp4l"))
    lab.ours("ptp4lAgent", "--ptp4l", "ptp=" + lab.file("ptp4l"), "--quiet")
    wait_for("the agent listens", lambda: os.path.exists(lab.file("socket")))


def start_snmp(lab):
    with open(lab.file("snmpd.conf"), "w", encoding="ascii") as conf:
        conf.write("agentAddress udp:127.0.0.1:16161\nrocommunity public\nmaster agentx\n"
                   f"agentXSocket unix:{lab.file('agentx')}\n"
                   f"[snmp] persistentDir {lab.file('persistent')}\n")
    lab.start("snmpd", "snmpd", "-f", "-Lo", "-C", "-c", lab.file("snmpd.conf"), "-p",
              lab.file("snmpd.pid"))
    lab.ours("ptpsnmp", "--agentx", "unix:" + lab.file("agentx"))


def start_prometheus(lab, exporter):
    with open(lab.file("prometheus.yml"), "w", encoding="ascii") as conf:
        conf.write("global: {scrape_interval: 1s, scrape_timeout: 1s, evaluation_interval: 1s}\n"
                   f"rule_files: ['{TREE}/tools/ptpexport/Metrics/ptp.rules.yml']\n"
                   "scrape_configs:\n  - job_name: ptp\n"
                   f"    static_configs: [{{targets: ['{exporter}']}}]\n")
    lab.start("prometheus", "prometheus", "--config.file=" + lab.file("prometheus.yml"),
              "--storage.tsdb.path=" + lab.file("data"), "--web.listen-address=127.0.0.1:16162",
              "--log.level=warn")


class Seen:
    """When each has seen the fault, on the clock that all share."""

    def __init__(self):
        self.times = {}
        self.errors = []

    def watch(self, name, wait):
        """Has a thread wait until `wait` returns."""
        def run():
            try:
                wait()
                self.times[name] = time.monotonic()
            except Exception as error:  # reported with those that have not seen it
                self.errors.append(f"{name}: {error!r}")
        threading.Thread(target=run, daemon=True).start()


def events(exporter):
    """Returns when an event says that the port is faulty."""
    path = urllib.parse.quote("ptp/status.portDS[eth0].portState")
    with urllib.request.urlopen(f"http://{exporter}/events?path={path}", timeout=PATIENCE) as stream:
        for line in stream:
            if line.startswith(b"data:") and json.loads(line[5:]).get("new") == "faulty":
                return


def steps_removed(exporter):
    leaf = "openconfig-ptp:ptp/instances/instance=0/current-ds/state/steps-removed"
    return fetch(f"http://{exporter}/openconfig/{leaf}")["openconfig-ptp:steps-removed"]


def poll(done, interval):
    while not done():
        time.sleep(interval)


def snmp_states():
    """The state of each port, by the index of its row."""
    text = subprocess.run(["snmpwalk", "-v2c", "-c", "public", "-On", "-Oe", "-t", "1", "-r", "0",
                           "127.0.0.1:16161", RUNNING_STATE], check=True, capture_output=True,
                          text=True).stdout
    return [int(state) for state in re.findall(r"INTEGER: (\d+)", text)]


def gnmi_updates(address):
    """The values of the port's state, as they come."""
    import grpc
    sys.path.insert(0, os.path.join(TREE, "tests", "gnmi"))
    from client import Client, gnmi, subscription
    client = Client(grpc.insecure_channel(address))
    asked = subscription(["/tree[name=ptp/status]/portDS[key=eth0]/portState"],
                         gnmi.SubscriptionList.STREAM)
    for message in client.subscribe(iter([asked])):
        for update in message.update.update:
            yield update.val.string_val


def alarms():
    found = fetch("http://127.0.0.1:16162/api/v1/alerts")["data"]["alerts"]
    return [alarm["labels"]["alertname"] for alarm in found if alarm["state"] == "firing"]


def browser(exporter):
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    options = Options()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    made = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
    made.get(f"http://{exporter}/")
    return made


def shown_state(page):
    return page.execute_script("return document.querySelector('#rows tr .state').textContent")


def inside(programs):
    with tempfile.TemporaryDirectory(prefix="fault.") as directory, contextlib.ExitStack() as after:
        lab = Lab(programs, directory)
        after.callback(lab.close)
        try:
            run(lab, after)
        except BaseException:
            for name in ("ptp4l", "ptp4lAgent", "ptpexport", "ptpgnmi", "ptpsnmp", "snmpd", "prometheus"):
                with contextlib.suppress(OSError):
                    print(f"--- {name}\n" + "\n".join(lab.log(name).splitlines()[-8:]), file=sys.stderr)
            raise


def run(lab, after):
    start_clocks(lab)
    lab.ours("ptpexport", "--listen", "127.0.0.1:0")
    exporter = lab.listening("ptpexport")
    lab.ours("ptpgnmi", "--insecure", "--listen", "127.0.0.1:0")
    gnmi_address = lab.listening("ptpgnmi")
    start_snmp(lab)
    start_prometheus(lab, exporter)
    state = f"http://{exporter}/state/" + urllib.parse.quote("ptp/status.portDS[eth0].portState")
    wait_for("the port is a slave", lambda: fetch(state)["places"][0]["state"] == "slave")
    page = browser(exporter)
    after.callback(page.quit)
    wait_for("the page shows a slave", lambda: shown_state(page) == "slave")
    wait_for("the leaf is 1", lambda: steps_removed(exporter) == 1)
    wait_for("snmpd has the port", lambda: snmp_states() == [9])
    wait_for("Prometheus knows no fault", lambda: "PtpPortFaulty" not in alarms())
    updates = gnmi_updates(gnmi_address)
    assert next(updates) == "slave"

    seen = Seen()
    seen.watch("an event", lambda: events(exporter))
    seen.watch("the page", lambda: poll(lambda: shown_state(page) == "faulty", 0.02))
    seen.watch("an OpenConfig leaf", lambda: poll(lambda: steps_removed(exporter) == 0, 0.02))
    seen.watch("a gNMI update", lambda: next(update for update in updates if update == "faulty"))
    seen.watch("an SNMP value", lambda: poll(lambda: snmp_states() == [FAULTY], 0.1))
    seen.watch("an alarm", lambda: poll(lambda: "PtpPortFaulty" in alarms(), 0.2))
    seen.watch("ptp4l's log", lambda: poll(lambda: "FAULT_DETECTED" in lab.log("ptp4l"), 0.002))
    time.sleep(1)
    begin = time.monotonic()
    subprocess.run(["ip", "link", "set", "eth0", "down"], check=True)
    with contextlib.suppress(AssertionError):
        wait_for("all have seen it", lambda: len(seen.times) == 7 or seen.errors)
    for name, when in sorted(seen.times.items(), key=lambda item: item[1]):
        print(f"   {name:20} after {when - begin:6.3f} s")
    assert len(seen.times) == 7 and not seen.errors, f"not seen by all: {seen.errors}"
    assert seen.times["an event"] - begin < 5
    print("passed")


def main():
    programs = os.path.abspath(sys.argv[1])
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if sys.argv[2:] == ["inside"]:
        def late(*_):
            raise TimeoutError("not within 240 s")
        signal.signal(signal.SIGALRM, late)
        signal.alarm(240)
        inside(programs)
        return
    for program, package in NEEDED.items():
        if not shutil.which(program):
            skip(f"{program} is not installed (package {package})")
    for program in ("ptpexport", "ptpgnmi", "ptpsnmp"):
        if not os.path.exists(os.path.join(programs, program)):
            skip(f"{program} is not built")
    for module, package in (("grpc", "python3-grpcio"), ("selenium", "python3-selenium")):
        if subprocess.run([sys.executable, "-c", f"import {module}"], capture_output=True).returncode:
            skip(f"{package} is not installed")
    separate = ["unshare", "--user", "--map-root-user", "--net"]
    if subprocess.run(separate + ["ip", "link", "add", "name", "eth0", "type", "veth", "peer", "name",
                                  "eth1"], capture_output=True).returncode:
        skip("user and network namespaces with virtual cables are not permitted")
    if not subprocess.run(["ptp4l", "-v"], capture_output=True, text=True).stdout.startswith(
            ("0", "1", "2", "3")):
        skip("linuxptp 4 follows no master where it must not adjust the clock")
    sys.exit(subprocess.run(separate + [sys.executable, os.path.abspath(__file__), programs,
                                        "inside"]).returncode)


main()
