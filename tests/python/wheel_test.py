# A wheel of this build: it is made, unpacked, and used without the build's libraries. Argument: the
# directory of the programs.
import glob
import importlib.util
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

from support import BIN

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")

USE = """
import os, ptplib
from ptplib.types import Ptp
config = Ptp.Config("ptp/config")
config.ptpMode = "boundary"
print(config.ptpMode)
here = os.path.dirname(ptplib.__file__)
with open("/proc/self/maps") as maps:
    used = {line.split()[-1] for line in maps if "libKiv.so" in line or "libHolt.so" in line}
print(len(used), all(os.path.dirname(name) == here for name in used))
"""


class Wheel(unittest.TestCase):
    def test_a_wheel_contains_all_that_it_needs(self):
        with tempfile.TemporaryDirectory() as directory:
            # A copy: building leaves files beside setup.py.
            shutil.copytree(os.path.join(ROOT, "python"), os.path.join(directory, "python"))
            shutil.copy(os.path.join(ROOT, "CMakeLists.txt"), directory)
            environment = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
            run = subprocess.run(
                [sys.executable, "-m", "pip", "wheel", "--no-build-isolation", "--no-deps",
                 "--no-index", "-w", directory, os.path.join(directory, "python")],
                env={**environment, "PTPLIB_BUILD_DIR": os.path.dirname(os.path.abspath(BIN))},
                capture_output=True, text=True, timeout=200)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
            wheels = glob.glob(os.path.join(directory, "ptplib-*.whl"))
            self.assertEqual(len(wheels), 1)
            self.assertIn("linux_x86_64" if os.uname().machine == "x86_64" else "linux", wheels[0])
            unpacked = os.path.join(directory, "unpacked")
            with zipfile.ZipFile(wheels[0]) as wheel:
                self.assertIn("ptplib/types/Ptp.pyi", wheel.namelist())
                wheel.extractall(unpacked)
            use = subprocess.run([sys.executable, "-c", USE], capture_output=True, text=True,
                                 env={**environment, "PYTHONPATH": unpacked}, cwd=directory,
                                 timeout=60)
            self.assertEqual((use.stdout, use.stderr), ("boundary\n2 True\n", ""))


if __name__ == "__main__":
    missing = [name for name in ("pip", "setuptools", "wheel")
               if importlib.util.find_spec(name) is None]
    if missing:
        print("skipped: a wheel needs Debian's " +
              ", ".join(f"python3-{name}" for name in missing))
        sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
