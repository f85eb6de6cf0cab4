"""Builds and tests everything and sums it up; ./test starts it once the machine has the packages it needs.

The count at the end is that of the single GoogleTest cases (from the result.xml that each test program leaves), of
the ctest entries that are no GoogleTest programs, of the fuzz targets, of the gates and of their canaries. A test
program that fails without a failed case (it crashed, a sanitizer stopped it, its time ran out) counts as one failure.

Everything is built first, with all processors. Then one worker for each processor takes the runs one after another:
the tests under Wine must not run beside each other, and beside them there is room for the native ones.
"""
import argparse
import fcntl
import os
import subprocess
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree
from concurrent.futures import ThreadPoolExecutor

import canaries
import coverage
import fuzzing
import gates
import memcheck
from summary import Row, report, tried_in

# In the order in which their tests start: the longest first.
PRESETS = ["windows", "asan", "tsan"]
# What else ./test does when nothing is chosen.
OTHERS = ["fuzz", "memcheck", "gates", "canaries"]
# Entries that prepare and clear up; they count only when they fail.
FIXTURES = {"wine_start", "wine_stop"}
# How much longer than in the short form a test program may take.
LONG_TIMEOUT_FACTOR = 30


def say(text):
    print(f"\n== {text}", flush=True)


def run_logged(command, log):
    """Runs a command with its output in a file, which is shown when it fails."""
    log.parent.mkdir(parents=True, exist_ok=True)
    with open(log, "w") as out:
        status = subprocess.run(command, cwd=gates.ROOT, stdout=out, stderr=subprocess.STDOUT).returncode
    if status != 0:
        print(log.read_text(errors="replace")[-20000:], flush=True)
    return status == 0


def build(preset, row, options=(), targets=()):
    say(f"{preset}: building")
    folder = gates.BUILD / preset
    start = time.monotonic()
    chosen = ["--target", *targets] if targets else []
    for step, command in (("configuring", ["cmake", "--preset", preset, *options]),
                          ("building", ["cmake", "--build", "--preset", preset, "--parallel", str(gates.JOBS),
                                        *chosen])):
        if not run_logged(command, folder / f"{step}.log"):
            row.fail(f"{step} failed, see build/{preset}/{step}.log")
            break
    row.seconds += time.monotonic() - start
    return not row.failed


def count_entry(row, tried, preset, entry):
    """Adds one ctest entry of the JUnit file, and the cases within it."""
    name = entry.get("name")
    good = entry.get("status") == "run"
    result = gates.BUILD / preset / "testrun" / name / "result.xml"
    failed = 0
    if result.is_file():
        total = ElementTree.parse(result).getroot()
        numbers = {key: int(total.get(key, 0)) for key in ("tests", "failures", "errors", "disabled")}
        skipped = len(total.findall(".//testcase/skipped")) + numbers["disabled"]
        failed = numbers["failures"] + numbers["errors"]
        row.passed += numbers["tests"] - failed - skipped
        row.skipped += skipped
        tried.extend(tried_in(total, preset))
    elif good and name not in FIXTURES:
        row.passed += 1
    if failed:
        cases = [f"{case.get('classname')}.{case.get('name')}" for case in total.iter("testcase")
                 if case.find("failure") is not None]
        row.fail(f"{name}: {', '.join(cases)}", failed)
    elif not good:
        row.fail(f"{name}: {'did not run' if entry.get('status') in ('disabled', 'notrun') else 'failed'}")


def show_from(part):
    """Several parts talk at once, so each line says whose it is."""
    return lambda line: print(f"{part:9}{line.rstrip()}", flush=True)


def run_ctest(preset, row, pattern, effort):
    """Runs the tests of a built preset; returns what they tried."""
    show = show_from(preset)
    start = time.monotonic()
    for old in (gates.BUILD / preset).glob("testrun/*/result.xml"):
        old.unlink()
    junit = gates.BUILD / preset / "ctest.xml"
    junit.unlink(missing_ok=True)
    chosen = ["-R", pattern] if pattern else []
    ctest = subprocess.Popen(["ctest", "--preset", preset, "--parallel", str(max(1, gates.JOBS // 2)),
                              "--no-tests=error", "--output-junit", junit, *chosen],
                             cwd=gates.ROOT, env={**os.environ, "SONVIA_EFFORT": effort}, text=True,
                             errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    for line in ctest.stdout:
        if line.strip() and not line.lstrip().startswith("Start "):
            show(line)
    tried = []
    if junit.is_file():
        for entry in ElementTree.parse(junit).getroot().iter("testcase"):
            count_entry(row, tried, preset, entry)
    else:
        row.fail("ctest left no result")
    if ctest.wait() != 0 and not row.failures:
        row.fail("ctest failed")
    row.seconds += time.monotonic() - start
    return tried


def run_checks(title, checks):
    """checks: pairs of a name and a function that returns what it found, nothing when all is well."""
    say(title)
    row = Row(title)
    start = time.monotonic()
    for name, check in checks:
        found = check()
        print(f"{'FAIL' if found else 'ok':5}{name}", flush=True)
        for line in found:
            print(f"       {line}", flush=True)
        if found:
            row.fail(name)
        else:
            row.passed += 1
    row.seconds = time.monotonic() - start
    return row


def run_gates():
    return run_checks("gates", gates.GATES.items())


def run_canaries():
    def green(canary):
        return lambda: [] if canary() else ["its gate stayed green"]
    return run_checks("canaries", [(canary.__name__, green(canary)) for canary in canaries.CANARIES])


def configure_missing():
    """The gates read what each preset compiles."""
    for preset in [*PRESETS, "fuzz"]:
        if not (gates.BUILD / preset / "compile_commands.json").is_file():
            run_logged(["cmake", "--preset", preset], gates.BUILD / preset / "configuring.log")


class Run:
    """Everything that was chosen: built first, then run side by side."""

    def __init__(self, chosen, parts):
        self.pattern = chosen.filter
        self.effort = "long" if chosen.long else "short"
        self.presets = [part for part in (*PRESETS, "native", "coverage") if part in parts]
        self.parts = parts
        self.rows = {}
        self.tried = []
        self.lock = threading.Lock()

    def row(self, part):
        return self.rows.setdefault(part, Row(part))

    def build(self):
        factor = LONG_TIMEOUT_FACTOR if self.effort == "long" else 1
        options = [f"-DSONVIA_TIMEOUT_FACTOR={factor}"]
        self.built = [preset for preset in self.presets if build(preset, self.row(preset), options)]
        if "fuzz" in self.parts and build("fuzz", self.row("fuzz")):
            self.built.append("fuzz")
        if "memcheck" in self.parts:
            # After `native`, whose row has any failure of this build's already.
            if build("native", self.row("memcheck"), options, memcheck.PROGRAMS[self.effort]):
                self.built.append("memcheck")

    def tasks(self):
        for preset in self.presets:
            if preset in self.built:
                yield preset, lambda preset=preset: (self.row(preset),
                                                     run_ctest(preset, self.row(preset), self.pattern, self.effort))
        if "fuzz" in self.built:
            for target in fuzzing.targets():
                yield "fuzz", lambda target=target: fuzzing.run(target, self.effort, show_from("fuzz"))
        if "memcheck" in self.built:
            for program in memcheck.PROGRAMS[self.effort]:
                yield "memcheck", lambda program=program: memcheck.run(program, self.effort, show_from("memcheck"))

    def work(self, task):
        part, function = task
        start = time.monotonic()
        row, tried = function()
        with self.lock:
            self.tried += tried
            total = self.row(part)
            if row is not total:
                total.passed += row.passed
                total.skipped += row.skipped
                total.seconds += time.monotonic() - start
                for failure in row.failures:
                    total.fail(f"{row.name}: {failure}", 0)
                total.failed += row.failed

    def test(self):
        say("testing")
        try:
            # Much of the long form is waiting for services to end, so there is room for one more.
            workers = gates.JOBS + (1 if self.effort == "long" else 0)
            with ThreadPoolExecutor(workers) as pool:
                list(pool.map(self.work, self.tasks()))
        finally:
            if "windows" in self.presets:
                subprocess.run([gates.ROOT / "scripts" / "wine-prefix", "stop"])

    def check(self):
        if "coverage" in self.built:
            say("coverage")
            coverage.check(self.row("coverage"))
        if "gates" in self.parts or "canaries" in self.parts:
            configure_missing()
        if "gates" in self.parts:
            self.rows["gates"] = run_gates()
        if "canaries" in self.parts:
            self.rows["canaries"] = run_canaries()

    def report(self):
        text = report(self.rows.values(), self.tried)
        print(text, flush=True)
        (gates.BUILD / "summary.txt").write_text(text.lstrip() + "\n")
        return all(row.failed == 0 for row in self.rows.values()) and any(row.passed for row in self.rows.values())

    def needed(self):
        """The presets whose dependencies are called for."""
        needed = set(self.presets) | ({"fuzz"} if "fuzz" in self.parts else set())
        if "memcheck" in self.parts:
            needed.add("native")
        if {"gates", "canaries"} & set(self.parts):
            needed |= {*PRESETS, "fuzz"}
        return sorted(needed)


def arguments():
    parser = argparse.ArgumentParser(prog="./test", description="Builds and tests everything.")
    parser.add_argument("--only", action="append", choices=[*PRESETS, "native", *OTHERS],
                        help="this part alone; may be given several times")
    parser.add_argument("--filter", metavar="REGEX", help="only the test programs whose name matches")
    parser.add_argument("--long", action="store_true", help="every test and every fuzz target for longer: about an hour")
    parser.add_argument("--coverage", action="store_true",
                        help="measures which lines of src/ the native tests reach, and nothing else")
    return parser.parse_args()


def lock():
    """One run at a time: two would share the Wine prefix and the folders that tests run in."""
    gates.BUILD.mkdir(exist_ok=True)
    held = open(gates.BUILD / ".test-lock", "w")
    try:
        fcntl.flock(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        say("waiting for another ./test in this tree")
        fcntl.flock(held, fcntl.LOCK_EX)
    return held


def main():
    chosen = arguments()
    parts = ["coverage"] if chosen.coverage else chosen.only or [*PRESETS, *OTHERS]
    held = lock()
    run = Run(chosen, parts)
    if subprocess.run([gates.ROOT / "scripts" / "build-deps", *run.needed()]).returncode != 0:
        sys.exit("the dependencies could not be built")
    run.build()
    run.test()
    run.check()
    good = run.report()
    held.close()
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
