# What the tests of the Python package share: servers of this build, and files that are removed.
import os
import subprocess
import sys
import tempfile
import time
import unittest

BIN = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else ""


class ServerCase(unittest.TestCase):
    """A test with programs of its own, in a directory of its own."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="ptplib-python-")
        self.addCleanup(directory.cleanup)
        self.dir = directory.name
        self.socket = os.path.join(self.dir, "ptp.sock")

    def start(self, program, *args):
        """Starts a program, which is ended with the test."""
        process = subprocess.Popen([os.path.join(BIN, program), *args], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(self.stop, process)
        return process

    def stop(self, process):
        process.terminate()
        process.wait(10)
        process.stdout.close()

    def serve(self, *args):
        """A server of a configuration, ptp/config."""
        process = self.start("ptpstate", "serve", "--socket", self.socket, *args)
        return self.waitForSocket(process)

    def agent(self, *args):
        """A simulated agent's status, ptp/status."""
        process = self.start("demoAgent", "--socket", self.socket, *args)
        return self.waitForSocket(process)

    def waitForSocket(self, process):
        end = time.monotonic() + 20
        while not os.path.exists(self.socket):
            if process.poll() is not None or time.monotonic() > end:
                self.fail("the server does not start")
            time.sleep(0.01)
        return process

    def run_ptpstate(self, *args):
        return subprocess.run([os.path.join(BIN, "ptpstate"), *args], check=True, timeout=60,
                              capture_output=True, text=True).stdout
