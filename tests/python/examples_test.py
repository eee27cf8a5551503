# The examples of the Python package, run as a user runs them. Argument: the directory of the programs.
import os
import subprocess
import sys
import unittest

from support import BIN, ServerCase

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples/python")


class Examples(ServerCase):
    def run_example(self, name, *args):
        return subprocess.run([sys.executable, os.path.join(EXAMPLES, name), *args],
                              capture_output=True, text=True, timeout=60)

    def test_alarms_tell_of_an_offset_a_port_and_a_lost_agent(self):
        agent = self.agent("--ports", "4", "--seed", "3")
        alarms = subprocess.Popen(
            [sys.executable, os.path.join(EXAMPLES, "alarms.py"), "--socket", self.socket,
             "--limit", "0", "--for", "40"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.stop, alarms)
        self.assertRegex(alarms.stdout.readline(), r"^\S+ ALARM offset: -?\d+ ns, the limit is 0$")
        agent.terminate()
        lines = []
        for line in alarms.stdout:
            lines.append(line)
            if "ALARM agent" in line:
                break
        self.assertRegex(lines[-1], "ALARM agent: .*the connection is lost")
        agent.wait(10)
        self.agent("--ports", "4")
        for line in alarms.stdout:
            if "clear agent" in line:
                break
        else:
            self.fail("the alarm never ends")

    def test_offsetPlot_draws_what_was_recorded(self):
        recording = os.path.join(self.dir, "r.rec")
        self.agent("--ports", "4")
        self.run_ptpstate("record", "--socket", self.socket, "--for", "3", recording)
        out = os.path.join(self.dir, "offset.svg")
        run = self.run_example("offsetPlot.py", recording, out)
        if "No such file or directory: 'gnuplot'" in run.stderr:
            self.skipTest("neither matplotlib nor gnuplot is installed")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertRegex(run.stdout, r"^\d+ values in \d+ s; half are within \d+ ns, all within")
        with open(out, encoding="utf-8") as file:
            self.assertIn("<svg", file.read())
        run = self.run_example("offsetPlot.py", recording + ".none", out)
        self.assertEqual(run.returncode, 2)
        self.assertIn("there is no such recording", run.stderr)


assert BIN
if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
