"""Builds and tests everything and sums it up; ./test starts it once the machine has the packages it needs.

The count at the end is that of the single GoogleTest cases (from the result.xml that each test program leaves), of
the ctest entries that are no GoogleTest programs, of the fuzz targets, of the gates and of their canaries. A test
program that fails without a failed case (it crashed, a sanitizer stopped it, its time ran out) counts as one failure,
and so does one that leaves no result of a case, and a part in which nothing passes.

One build after another is made, with all processors. Beside that, workers take what is built already, one run after
another: the tests under Wine in two lanes, the native tests of a preset, a fuzz target, a program under valgrind. Tests
wait more than they work, so the builds are the ones that give way.
"""
import argparse
import fcntl
import json
import os
import shlex
import signal
import subprocess
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree
from concurrent.futures import ThreadPoolExecutor

import canaries
import checks
import coverage
import fuzzing
import gates
import limited
import memcheck
from summary import Row, count_entry, fail_empty, proof, report

# In the order in which they are built, and their tests start: the longest first.
PRESETS = ["windows", "tsan", "asan"]
# What else ./test does when nothing is chosen.
OTHERS = ["fuzz", "memcheck", "gates", "canaries"]
# Tests in one Wine prefix must not run beside each other: they end each other's service. So there are two prefixes; what
# takes longest has the first one to itself.
FIRST_WINE_LANE = "^(stress_hostile_service|stress_busy_pipe)$"
WINE_PREFIX = os.environ.get("SONVIA_WINEPREFIX") or str(gates.BUILD / "windows" / "wineprefix")
WINE_PREFIXES = [WINE_PREFIX, f"{WINE_PREFIX}2"]
SUMMARY = gates.BUILD / "summary.txt"
PROOF = gates.ROOT / "docs" / "proof.md"
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


def commit_of_the_tree():
    described = subprocess.run(["git", "-c", f"safe.directory={gates.ROOT}", "-C", gates.ROOT, "describe", "--always",
                                "--dirty", "--exclude", "*"], capture_output=True, text=True)
    return described.stdout.strip() or "unknown"


def step(name, command, preset, row):
    """Whether one step of a build went well; the row gets the failure and the time."""
    start = time.monotonic()
    good = run_logged(command, gates.BUILD / preset / f"{name}.log")
    if not good:
        row.fail(f"{name} {preset} failed, see build/{preset}/{name}.log")
    row.seconds += time.monotonic() - start
    return good


def configure(preset, row, options=()):
    return step("configuring", ["cmake", "--preset", preset, *options], preset, row)


def build(preset, row, options=(), targets=()):
    say(f"{preset}: building")
    chosen = ["--target", *targets] if targets else []
    command = ["nice", "cmake", "--build", "--preset", preset, "--parallel", str(gates.JOBS), *chosen]
    return configure(preset, row, options) and step("building", command, preset, row)


def googletest_programs(preset):
    """The ctest entries that leave result.xml in the folder that they run in."""
    listed = subprocess.run(["ctest", "--preset", preset, "--show-only=json-v1"], cwd=gates.ROOT,
                            capture_output=True, text=True)
    tests = json.loads(listed.stdout)["tests"] if listed.returncode == 0 else []
    return {test["name"] for test in tests
            if any(argument.startswith("--gtest_output") for argument in test.get("command", []))}


def show_from(part):
    """Several parts talk at once, so each line says whose it is."""
    return lambda line: print(f"{part:9}{line.rstrip()}", flush=True)


def forget_results(preset):
    for old in (gates.BUILD / preset / "testrun").glob("*/result.xml"):
        old.unlink()
    if preset == "coverage":
        coverage.forget_counts()


def lanes(preset, pattern):
    """How the tests of a preset are shared out: pairs of the options that choose them and their environment."""
    if preset != "windows" or pattern:
        return [(["-R", pattern] if pattern else [], {})]
    return [(["-R", FIRST_WINE_LANE], {"SONVIA_WINEPREFIX": WINE_PREFIXES[0]}),
            (["-E", FIRST_WINE_LANE], {"SONVIA_WINEPREFIX": WINE_PREFIXES[1]})]


def run_ctest(preset, number, lane, effort):
    """Runs a lane of the tests of a built preset. Returns its row and what was tried."""
    row = Row(preset)
    show = show_from(preset)
    folder = gates.BUILD / preset / "testrun"
    programs = googletest_programs(preset)
    if not programs:
        row.fail("ctest lists no GoogleTest program")
    junit = gates.BUILD / preset / f"ctest{number}.xml"
    junit.unlink(missing_ok=True)
    chosen, environment = lane
    # In the long form there is always another part to run beside this one.
    parallel = gates.JOBS if effort == "short" else max(1, gates.JOBS // 2)
    ctest = subprocess.Popen(["ctest", "--preset", preset, "--parallel", str(parallel),
                              "--no-tests=error", "--output-junit", junit, *chosen],
                             cwd=gates.ROOT, env={**os.environ, **environment, "SONVIA_EFFORT": effort}, text=True,
                             errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    for line in ctest.stdout:
        if line.strip() and not line.lstrip().startswith("Start "):
            show(line)
    tried = []
    if junit.is_file():
        for entry in ElementTree.parse(junit).getroot().iter("testcase"):
            count_entry(row, tried, folder, entry, programs)
    else:
        row.fail("ctest left no result")
    if ctest.wait() != 0 and not row.failures:
        row.fail("ctest failed")
    return row, tried


def run_checks(row, named_checks):
    say(row.name)
    start = time.monotonic()
    for name, found in checks.run(named_checks, gates.JOBS):
        print(f"{'FAIL' if found else 'ok':5}{name}", flush=True)
        for line in found:
            print(f"       {line}", flush=True)
        if found:
            row.fail(name)
        else:
            row.passed += 1
    row.seconds += time.monotonic() - start


class Run:
    """Everything that was chosen: built, and run side by side as soon as it is."""

    def __init__(self, chosen, parts):
        self.pattern = chosen.filter
        self.effort = "long" if chosen.long else "short"
        self.whole = not chosen.only and not chosen.filter
        self.presets = [part for part in (*PRESETS, "native", "coverage") if part in parts]
        self.parts = parts
        self.built = []
        self.rows = {}
        self.tried = []
        self.prepared = set()  # presets of which the gates and canaries alone need something
        self.lock = threading.Lock()

    def row(self, part):
        return self.rows.setdefault(part, Row(part))

    def build(self):
        """Builds what was chosen; yields each part as soon as it is there."""
        factor = LONG_TIMEOUT_FACTOR if self.effort == "long" else 1
        options = [f"-DSONVIA_TIMEOUT_FACTOR={factor}"]
        for preset in self.presets:
            if build(preset, self.row(preset), options):
                yield preset
        programs = [f"fuzz_{target}" for target in fuzzing.targets()]
        if "fuzz" in self.parts and build(fuzzing.PRESET, self.row("fuzz"), options, programs):
            yield "fuzz"
        if "memcheck" in self.parts:
            # After `native`, whose row has any failure of this build's already.
            if build("native", self.row("memcheck"), options, memcheck.PROGRAMS[self.effort]):
                yield "memcheck"
        for part in ("gates", "canaries"):
            if part in self.parts:
                self.prepare_checks(self.row(part), options)

    def prepare_checks(self, row, options):
        """What is judged has to be that of the tree as it is now: the commands of every preset, and the DLL."""
        for preset in PRESETS:
            if preset in self.built or preset in self.prepared:
                continue
            self.prepared.add(preset)
            if preset == "windows":
                build(preset, row, options, ["SonviaPCAudioDll"])
            else:
                configure(preset, row, options)

    def tasks(self, part):
        """What there is to run in a part that is built."""
        if part == "fuzz":
            return [lambda target=target: fuzzing.run(target, self.effort, show_from(part))
                    for target in fuzzing.targets()]
        if part == "memcheck":
            return [lambda program=program: memcheck.run(program, self.effort, show_from(part))
                    for program in memcheck.PROGRAMS[self.effort]]
        forget_results(part)
        return [lambda number=number, lane=lane: run_ctest(part, number, lane, self.effort)
                for number, lane in enumerate(lanes(part, self.pattern))]

    def work(self, part, function):
        start = time.monotonic()
        row, tried = function()
        with self.lock:
            self.tried += tried
            total = self.row(part)
            total.passed += row.passed
            total.skipped += row.skipped
            total.seconds += time.monotonic() - start
            total.failures += row.failures
            total.failed += row.failed

    def build_and_test(self):
        # One more in the long form, which waits even more.
        workers = gates.JOBS + ("windows" in self.presets) + (self.effort == "long")
        running = []
        try:
            with ThreadPoolExecutor(workers) as pool:
                try:
                    for part in self.build():
                        self.built.append(part)
                        running += [pool.submit(self.work, part, task) for task in self.tasks(part)]
                    say("all is built; waiting for the tests")
                    for one in running:
                        one.result()
                except BaseException:
                    pool.shutdown(wait=False, cancel_futures=True)
                    limited.end_all()
                    raise
        finally:
            if "windows" in self.presets:
                for prefix in WINE_PREFIXES:
                    subprocess.run([gates.ROOT / "scripts" / "wine-prefix", "stop"],
                                   env={**os.environ, "SONVIA_WINEPREFIX": prefix})

    def check(self):
        if "coverage" in self.built:
            say("coverage")
            coverage.check(self.row("coverage"))
        if "gates" in self.parts:
            slow = gates.SLOW_GATES if self.effort == "long" else {}
            run_checks(self.row("gates"), [*gates.GATES.items(), *slow.items()])
        if "canaries" in self.parts:
            run_checks(self.row("canaries"), canaries.named_checks())

    def report(self, form, start):
        rows = [self.row(part) for part in self.parts]
        if not self.pattern:
            fail_empty(rows)
        text = report(self.rows.values(), self.tried, form, time.monotonic() - start)
        print(text, flush=True)
        SUMMARY.write_text(text.lstrip() + "\n")
        if self.effort == "long" and self.whole:
            PROOF.write_text(proof(text, commit_of_the_tree(), gates.JOBS))
        return all(row.failed == 0 for row in self.rows.values()) and any(row.passed for row in self.rows.values())

    def needed(self):
        """The presets whose dependencies are called for."""
        needed = set(self.presets) - {"coverage"} | ({fuzzing.PRESET} if "fuzz" in self.parts else set())
        if {"memcheck", "coverage"} & set(self.parts):
            needed.add("native")
        if {"gates", "canaries"} & set(self.parts):
            needed |= set(PRESETS)
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
    """One run at a time, ./run included: two would share the Wine prefix and the folders that tests run in."""
    gates.BUILD.mkdir(exist_ok=True)
    held = open(gates.BUILD / ".test-lock", "w")
    try:
        fcntl.flock(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        say("waiting for another ./test or ./run in this tree")
        fcntl.flock(held, fcntl.LOCK_EX)
    return held


def end(signal_number, _):
    """A signal that ends this process group does not reach what runs in sessions of its own."""
    limited.end_all()
    signal.signal(signal_number, signal.SIG_DFL)
    os.kill(os.getpid(), signal_number)


def main():
    start = time.monotonic()
    for number in (signal.SIGTERM, signal.SIGHUP):
        if signal.getsignal(number) == signal.SIG_DFL:  # else it is ignored on purpose
            signal.signal(number, end)
    chosen = arguments()
    parts = ["coverage"] if chosen.coverage else chosen.only or [*PRESETS, *OTHERS]
    held = lock()
    SUMMARY.unlink(missing_ok=True)  # or it would be taken for that of a run which breaks off
    run = Run(chosen, parts)
    if subprocess.run([gates.ROOT / "scripts" / "build-deps", *run.needed()]).returncode != 0:
        sys.exit("the dependencies could not be built")
    run.build_and_test()
    run.check()
    good = run.report(shlex.join(["./test", *sys.argv[1:]]), start)
    held.close()
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
