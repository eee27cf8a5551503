#!/usr/bin/python3
"""Tests the page of ptpexport in a real Chromium: with few and with many ports, at both widths and in
both colour schemes, while ports change, and while the source disappears and returns.

   page.py PROGRAMS [SCREENSHOTS]

PROGRAMS is the directory of ptpexport, ptpstate and demoAgent. Screenshots are written to the second
directory, if it is given. Exit status: 0 passed, 1 failed, 77 skipped."""

import json
import os
import subprocess
import sys
import tempfile
import time
import urllib.request

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
except ImportError:
    print("skipped: python3-selenium is not installed")
    sys.exit(77)

CHROMIUM = "/usr/bin/chromium"
DRIVER = "/usr/bin/chromedriver"
PATIENCE = 20


class Lab:
    """A state, ptpexport in front of it, and a browser, all of which end with the test."""

    def __init__(self, programs, scratch):
        self.programs = programs
        self.socket = os.path.join(scratch, "socket")
        self.running = {}
        self.browser = None
        self.url = None

    def start(self, name, *args):
        program = subprocess.Popen([os.path.join(self.programs, name), *args], text=True,
                                   stdout=subprocess.PIPE if name == "ptpexport"
                                   else subprocess.DEVNULL)
        self.running[name] = program
        return program

    def stop(self, name):
        program = self.running.pop(name, None)
        if program:
            program.terminate()
            program.wait(10)

    def serve(self, file):
        """Serves a state from a dump, which stays as it is until somebody sets something."""
        self.start("ptpstate", "serve", "--socket", self.socket, "--load", file)
        wait_for("the state is served", lambda: os.path.exists(self.socket))

    def export(self):
        program = self.start("ptpexport", "--socket", self.socket, "--listen", "127.0.0.1:0")
        line = program.stdout.readline()
        self.url = "http://" + line.split("http://", 1)[1].split()[0].rstrip("/") + "/"

    def set(self, path, value):
        subprocess.run([os.path.join(self.programs, "ptpstate"), "set", "--socket", self.socket, path,
                        value], check=True)

    def open(self, width, height, scheme):
        if self.browser:
            self.browser.quit()
        options = Options()
        options.binary_location = CHROMIUM
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                         "--hide-scrollbars", "--force-color-profile=srgb"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.browser = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 640})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.browser.get(self.url)

    def close(self):
        if self.browser:
            self.browser.quit()
        for name in list(self.running):
            self.stop(name)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector).text

    def run(self, script):
        return self.browser.execute_script("return " + script)

    def row(self, port):
        return next(row.text for row in self.all("#rows tr") if row.text.split()[0] == port)

    def problems(self):
        """What the browser's console says, but for the connections that the test ends itself."""
        return [entry["message"] for entry in self.browser.get_log("browser")
                if "ERR_CONNECTION_REFUSED" not in entry["message"]
                and "ERR_INCOMPLETE_CHUNKED_ENCODING" not in entry["message"]
                and "503" not in entry["message"]]


def wait_for(what, done, patience=PATIENCE):
    """Waits until something holds; returns after how many seconds it did."""
    begin = time.monotonic()
    while time.monotonic() < begin + patience:
        try:
            if done():
                return time.monotonic() - begin
        except Exception:  # an element that is being replaced
            pass
        time.sleep(0.02)
    raise AssertionError(f"not within {patience} s: {what}")


def check_equal(got, wanted, what):
    if got != wanted:
        raise AssertionError(f"{what}: {got!r}, not {wanted!r}")


def dump_of(programs, scratch, ports):
    """The state of a simulated agent after some seconds."""
    socket = os.path.join(scratch, "agent")
    file = os.path.join(scratch, f"{ports}.json")
    with subprocess.Popen([os.path.join(programs, "demoAgent"), "--socket", socket, "--ports",
                           str(ports)], stdout=subprocess.DEVNULL) as agent:
        try:
            wait_for("the agent listens", lambda: os.path.exists(socket))
            time.sleep(3)
            with open(file, "w", encoding="utf-8") as out:
                subprocess.run([os.path.join(programs, "ptpstate"), "dump", "--json", "--socket",
                                socket], check=True, stdout=out, timeout=20)
        finally:
            agent.terminate()
    return file


def check_page(lab, ports, shot):
    lab.open(1280, 1200, "light")
    took = wait_for("all ports are shown", lambda: len(lab.all("#rows tr")) == ports)
    print(f"   {ports} ports shown after {took:.2f} s")
    wait_for("the page is live", lambda: lab.text("#link") == "live")
    check_equal(len(lab.all("#grid button")), ports, "cells of the grid")
    check_equal(lab.text("#clockName"), "ptp/status", "the clock's name")
    cards = lab.text("#cards")
    for word in ("Grandmaster", "02:00:11:ff:fe:00:aa:", "This clock", "domain\n24"):
        assert word in cards, f"no {word!r} in {cards!r}"
    wait_for("curves are drawn", lambda: len(lab.all("#offset canvas")) > 0)
    wait_for("a curve has a value", lambda: lab.run(
        "[...document.querySelector('#offset canvas').getContext('2d').getImageData(0, 0, "
        "document.querySelector('#offset canvas').width, "
        "document.querySelector('#offset canvas').height).data].some((byte) => byte !== 0)"))
    check_equal(lab.run("performance.getEntriesByType('resource').filter((entry) => "
                        "!entry.name.startsWith(location.origin)).length"), 0, "foreign resources")
    shot(f"{ports}-light")

    delay = {}
    for state in ("faulty", "master"):
        begin = time.monotonic()
        lab.set("ptp/status.portDS[Ethernet3].portState", state)
        wait_for(f"Ethernet3 is shown {state}", lambda: state in lab.row("Ethernet3"))
        delay[state] = time.monotonic() - begin
    print(f"   a change of state is shown after {delay['faulty']:.2f} and {delay['master']:.2f} s, "
          "with starting ptpstate")

    # One of all ports, by state and by name.
    lab.set("ptp/status.portDS[Ethernet3].portState", "faulty")
    wait_for("a count of faulty ports", lambda: "faulty 1" in lab.text("#states").replace("\n", " "))
    next(button for button in lab.all("#states button") if "faulty" in button.text).click()
    wait_for("only the faulty port", lambda: [row.text.split()[0] for row in lab.all("#rows tr")
                                              if row.is_displayed()] == ["Ethernet3"])
    shot(f"{ports}-faulty")
    lab.all("#rows tr:not([hidden]) .open")[0].click()
    wait_for("the port's dialog", lambda: lab.text("#portTitle") == "Ethernet3")
    wait_for("its event", lambda: "faulty" in lab.text("#events"))
    assert "sync message received" in lab.run("document.querySelector('#counters').textContent")
    shot(f"{ports}-port")
    lab.all("#close")[0].click()
    lab.set("ptp/status.portDS[Ethernet3].portState", "master")
    check_equal(lab.problems(), [], "the console")

    lab.open(400, 1000, "dark")
    wait_for("all ports are shown", lambda: len(lab.all("#rows tr")) == ports)
    wait_for("the page is live", lambda: lab.text("#link") == "live")
    check_equal(lab.run("[document.documentElement.scrollWidth, innerWidth]"), [400, 400],
                "the width of the page")
    check_equal(lab.run("getComputedStyle(document.body).backgroundColor"), "rgb(20, 23, 26)",
                "the dark background")
    shot(f"{ports}-narrow")
    lab.browser.execute_script("document.querySelector('.ports').scrollIntoView()")
    lab.all("#rows .open")[0].click()
    wait_for("the port's dialog", lambda: lab.text("#portTitle") == "Ethernet1")
    assert lab.run("document.querySelector('#port').scrollWidth") <= 400
    shot(f"{ports}-narrow-port")


def check_loss(lab, file, shot):
    """The source disappears and returns; then ptpexport does."""
    lab.open(1280, 1000, "light")
    wait_for("the page is live", lambda: lab.text("#link") == "live")
    begin = time.monotonic()
    lab.stop("ptpstate")
    wait_for("a banner", lambda: "the clock's process is gone" in lab.text("#banner"))
    print(f"   the source's end is shown after {time.monotonic() - begin:.2f} s")
    assert lab.row("Ethernet1"), "what was known stays"
    check_equal(lab.run("document.body.classList.contains('stale')"), True, "the page is pale")
    shot("lost")
    begin = time.monotonic()
    lab.serve(file)
    wait_for("the page is live again", lambda: lab.text("#link") == "live")
    print(f"   its return is shown after {time.monotonic() - begin:.2f} s")
    lab.set("ptp/status.portDS[Ethernet4].portState", "faulty")
    wait_for("changes are shown again", lambda: "faulty" in lab.row("Ethernet4"))
    port = lab.url.rsplit(":", 1)[1].rstrip("/")
    lab.stop("ptpexport")
    wait_for("a banner", lambda: "ptpexport does not answer" in lab.text("#banner"))
    lab.start("ptpexport", "--socket", lab.socket, "--listen", f"127.0.0.1:{port}")
    wait_for("the page is live again", lambda: lab.text("#link") == "live")


def check_foreign_text(lab):
    """A name that would be markup is text, and a path with every kind of character finds it."""
    name = "<img src=x onerror=alert(1)> a/b?c#d%41&\u00e9.[x]"
    lab.stop("ptpstate")
    lab.start("ptpstate", "serve", "--socket", lab.socket, "--root", f"Ptp::Status={name}")
    wait_for("the other root", lambda: json.load(urllib.request.urlopen(lab.url + "healthz"))
             ["roots"] == [{"type": "Ptp::Status", "name": name}])
    lab.open(1280, 1000, "light")
    wait_for("the page is live", lambda: lab.text("#link") == "live")
    check_equal(lab.text("#clockName"), name, "the clock's name")
    check_equal(lab.text("#none"), "This clock has no ports.", "the list of ports")
    check_equal(len(lab.all("img")), 0, "images")


def main():
    programs = os.path.abspath(sys.argv[1])
    shots = sys.argv[2] if len(sys.argv) > 2 else None
    if not os.path.exists(CHROMIUM) or not os.path.exists(DRIVER):
        print("skipped: chromium and chromium-driver are not installed")
        return 77
    if shots:
        os.makedirs(shots, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="page.") as scratch:
        lab = Lab(programs, scratch)

        def shot(name):
            if shots:
                lab.browser.save_screenshot(os.path.join(shots, name + ".png"))

        try:
            for ports in (4, 512):
                file = dump_of(programs, scratch, ports)
                lab.serve(file)
                lab.export()
                check_page(lab, ports, shot)
                if ports == 4:
                    check_loss(lab, file, shot)
                    check_foreign_text(lab)
                lab.stop("ptpexport")
                lab.stop("ptpstate")
        finally:
            lab.close()
    print("passed")
    return 0


sys.exit(main())
