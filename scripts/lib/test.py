"""Builds everything and runs every test. The last line is the result; the status is 0 only if
nothing failed.

Without options: formatting, clang-tidy, GCC and Clang with warnings as errors, unit tests, also under
the sanitizers of addresses, undefined behaviour and threads, end-to-end tests, data races and memory
errors of the agent at work, every case of the benchmark once, fuzzing, two minutes of outages, unit
tests and answers of the s390x build, the last commit's Debian packages on a Debian of their own.
"""

import atexit
import os
import re
import subprocess
import tempfile
import time
import xml.etree.ElementTree as xml
from pathlib import Path

from project import SOURCE, Failure, build, command_line, finish, install

SCRIPTS = SOURCE / "scripts"
PYTEST = ["/usr/bin/python3", "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", "-n", "3",
          "--dist", "loadfile"]


class Results:
    """What has passed so far. A step is printed with its name and at its end with its seconds."""

    def __init__(self):
        self.passed = self.failed = self.skipped = 0
        self.failures = []
        self._begun = None
        self._steps = []  # (seconds, name)

    def begin(self, name):
        self._begun = time.monotonic()
        print(f"== {name}", flush=True)

    def add(self, name, passed, failed=0, skipped=0):
        """The end of a step; whether nothing of it failed."""
        seconds = round(time.monotonic() - self._begun)
        print(f"   {seconds} s", flush=True)
        self._steps.append((seconds, name))
        self.passed += passed
        self.failed += failed
        self.skipped += skipped
        if failed:
            self.failures.append(name)
        return not failed

    def add_report(self, name, status, report):
        """The end of tests with a report in the JUnit format."""
        passed = failed = skipped = 0
        try:
            for case in xml.parse(report).iter("testcase"):
                if case.find("failure") is not None or case.find("error") is not None:
                    failed += 1
                elif case.find("skipped") is not None or case.get("result") == "suppressed":
                    skipped += 1
                else:
                    passed += 1
        except (OSError, xml.ParseError):
            pass
        # A runner that died, or that ran nothing, has failed without saying so.
        if not failed and (status or not passed + skipped):
            failed = 1
        return self.add(name, passed, failed, skipped)

    def end(self):
        print("== slowest\n   " + ", ".join(f"{name} {seconds} s" for seconds, name in
                                          sorted(self._steps, reverse=True)[:10]))
        for name in self.failures:
            print(f"FAILED: {name}")
        print(f"{self.passed} passed, {self.failed} failed"
              + (f", {self.skipped} skipped" if self.skipped else ""))
        return 1 if self.failed else 0


class Beside:
    """A command that runs while other things do; nice: after them."""

    def __init__(self, *command, nice=0):
        self._output = tempfile.TemporaryFile("w+")
        self._process = spawn(*command, stdout=self._output, preexec_fn=lambda: os.nice(nice))

    def wait(self):
        """Its status and output, which is printed."""
        status = self._process.wait()
        self._output.seek(0)
        output = self._output.read()
        print(output, end="", flush=True)
        return status, output


def spawn(*command, **options):
    return subprocess.Popen(command, cwd=SOURCE, stdin=subprocess.DEVNULL,
                            **{"stderr": subprocess.STDOUT, "process_group": 0, **options})


def run(*command, timeout=None, **options):
    """The status of a command, 1 if it takes more than `timeout` seconds."""
    process = spawn(*command, **options)
    try:
        return process.wait(timeout)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return 1


def remove_captured(since):
    """GoogleTest keeps what it captures of an output in /tmp, whatever TMPDIR is: files of unit tests
    that were killed."""
    used = set()
    for descriptor in Path("/proc").glob("[0-9]*/fd/*"):
        try:
            used.add(os.readlink(descriptor))
        except OSError:  # closed meanwhile
            pass
    for file in Path("/tmp").glob("gtest_captured_stream.*"):
        try:
            status = file.stat()
            if str(file) not in used and status.st_uid == os.getuid() and status.st_mtime >= since:
                file.unlink()
        except FileNotFoundError:  # another run has removed its own
            pass


class Test:
    def __init__(self, options):
        self._options = options
        self._results = Results()
        self._reports = Path(tempfile.mkdtemp())

    def check(self, name, *command, **options):
        """A command that passes or fails as a whole."""
        self._results.begin(name)
        failed = run(*command, **options) != 0
        return self._results.add(name, not failed, failed)

    def ended(self, name, beside):
        """The same for one that runs already."""
        self._results.begin(name)
        failed = beside.wait()[0] != 0
        return self._results.add(name, not failed, failed)

    def build(self, preset):
        name = f"build, {preset}"
        self._results.begin(name)
        try:
            build(preset)
        except Failure as failure:
            print(failure)
            return self._results.add(name, 0, 1)
        return self._results.add(name, 1)

    def unit_tests(self, preset):
        """Every unit test in a process of its own, with a time limit of its own."""
        name = f"unit tests, {preset}"
        self._results.begin(name)
        report, log = self._reports / f"{preset}.xml", self._reports / f"{preset}.log"
        with open(log, "w") as output:
            status = run("ctest", "--test-dir", f"build/{preset}", "--parallel", "2",
                         "--output-on-failure", "--output-junit", report, stdout=output, timeout=600)
        lines = log.read_text(errors="replace").splitlines()
        print("\n".join(lines if status else lines[-3:]))
        return self._results.add_report(name, status, report)

    def e2e_tests(self, name, *arguments, env=None):
        """End-to-end tests, several files at a time: they mostly wait, each in a world of its own."""
        self._results.begin(name)
        report = self._reports / "e2e.xml"
        expression = ["-k", self._options.k] if self._options.k else []
        status = run(*PYTEST, *arguments, f"--junitxml={report}", *expression, timeout=900,
                     env={**os.environ, **(env or {})})
        return self._results.add_report(name, status, report)

    def cross(self, processor, preset):
        """Whether the preset can be built and run here; builds it if so."""
        name = f"libraries, {processor}"
        self._results.begin(name)
        status = run(SCRIPTS / "sysroot", processor)
        if status == 3:
            print(f"SKIPPED: {processor}")
        self._results.add(name, 0, status not in (0, 3), status == 3)
        return status == 0 and self.build(preset)

    def s390x(self):
        if self.cross("s390x", "big-endian"):
            self.unit_tests("big-endian")
            emulator = f"qemu-s390x-static -L {Path.home()}/.cache/norva/sysroot-s390x"
            self.e2e_tests("answers, big-endian", "tests/e2e/test_big_endian.py",
                           env={"NORVA_BIG_ENDIAN_BUILD": "build/big-endian",
                                "NORVA_EMULATOR": emulator})

    def powerpc(self):
        if self.cross("powerpc", "unit-32"):
            self.unit_tests("unit-32")

    def build_packages(self, nice=0):
        """Begins to; what the machine of their trial starts from is made meanwhile."""
        return (Beside(SCRIPTS / "package", "--quick", nice=nice),
                Beside(SCRIPTS / "trial", "--root", nice=nice))

    def try_packages(self, packages, root):
        """Begins to, when they are built."""
        if not self.ended("packages", packages):
            return None
        root.wait()
        return Beside(SCRIPTS / "trial", "build/packages-quick")

    def packages_tried(self, trial):
        if not trial:
            return
        name = "packages, installed"
        self._results.begin(name)
        status, output = trial.wait()
        found = re.search(r"^(\d+) passed, (\d+) failed(?:, (\d+) skipped)?\n\Z", output, re.M)
        passed, failed, skipped = (int(count or 0) for count in found.groups()) if found else (0, 1, 0)
        self._results.add(name, passed, failed or int(status != 0), skipped)

    def prepare(self):
        """What later steps need, made while the end-to-end tests mostly wait. Whatever fails here is
        made, and reported, again where it is needed."""
        script = "; ".join(f"cmake --preset {preset} && cmake --build --preset {preset}"
                           for preset in ("tsan", "asan", "fuzz", "clang"))
        return Beside("sh", "-c", f"{{ {script}; }} >/dev/null 2>&1", nice=19)

    def everything(self):
        self.check("formatting", SCRIPTS / "format", "--check")
        if self.build("dev"):
            # Behind everything else, so that the tests do not see them.
            lint = Beside(SCRIPTS / "lint", nice=19)
            prepared = self.prepare()
            self.unit_tests("dev")
            self.end_to_end()
            self.s390x()
            self.ended("clang-tidy", lint)
            prepared.wait()
        # These leave half of the machine idle.
        packages = self.build_packages(nice=19)
        if self.build("tsan"):
            self.unit_tests("tsan")
        self.check("data races", SCRIPTS / "check", "races")
        self.check("memory", SCRIPTS / "check", "memory")
        self.check("benchmark", SCRIPTS / "bench", "--quick")
        # The soak and the trial mostly wait: the fuzz targets are built and run meanwhile, behind them.
        trial = self.try_packages(*packages)
        soak = Beside(SCRIPTS / "soak", "--minutes", "2", "--seed", "8")
        self.check("fuzzing", SCRIPTS / "fuzz", "--seconds", "10", preexec_fn=lambda: os.nice(10))
        self.ended("endurance", soak)
        self.build("clang")
        if self.build("asan"):
            self.unit_tests("asan")
        self.packages_tried(trial)

    def end_to_end(self):
        self.e2e_tests("end-to-end tests", "tests/e2e", "--ignore=tests/e2e/test_big_endian.py")

    def run(self):
        what = self._options.what
        if what is None:
            self.everything()
        elif what == "packages":
            self.packages_tried(self.try_packages(*self.build_packages()))
        elif self.build("dev"):
            if what == "unit":
                self.unit_tests("dev")
            elif what == "e2e":
                self.end_to_end()
            else:
                self.s390x()
                self.powerpc()
        return self._results.end()


def main():
    parser = command_line(__doc__)
    what = parser.add_mutually_exclusive_group()
    for name, meaning in (
            ("unit", "GCC build and its unit tests only"),
            ("e2e", "GCC build and the end-to-end tests only"),
            ("big-endian", "unit tests of the s390x and powerpc builds, answers of the s390x build "
                           "compared with the native one's"),
            ("packages", "the Debian packages only")):
        what.add_argument(f"--{name}", dest="what", action="store_const", const=name, help=meaning)
    parser.add_argument("-k", metavar="EXPRESSION",
                        help="of the end-to-end tests only those that match, as for pytest")
    options = parser.parse_args()
    install(*{"unit": ["dev"], "e2e": ["e2e"], "packages": ["package", "trial"],
              "big-endian": ["e2e"]}.get(options.what, ["test"]))
    atexit.register(remove_captured, time.time() - 1)
    return Test(options).run()


finish(main, patience=3.5)
