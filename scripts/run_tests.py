"""Builds and tests everything and sums it up; ./test starts it once the machine has the packages it needs.

The count at the end is that of the single GoogleTest cases (from the result.xml that each test program leaves), of
the ctest entries that are no GoogleTest programs, of the gates and of their canaries. A test program that fails
without a failed case (it crashed, a sanitizer stopped it, its time ran out) counts as one failure.
"""
import argparse
import fcntl
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

import canaries
import gates

PRESETS = ["windows", "asan", "tsan"]
# Entries that prepare and clear up; they count only when they fail.
FIXTURES = {"wine_start", "wine_stop"}


@dataclass
class Row:
    """A line of the table at the end."""
    name: str
    passed: int = 0
    skipped: int = 0
    seconds: float = 0
    failures: list = field(default_factory=list)
    failed: int = 0

    def fail(self, what, count=1):
        self.failures.append(what)
        self.failed += count


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


def build(preset, row):
    say(f"{preset}: building")
    folder = gates.BUILD / preset
    for step, command in (("configuring", ["cmake", "--preset", preset]),
                          ("building", ["cmake", "--build", "--preset", preset, "--parallel", str(gates.JOBS)])):
        if not run_logged(command, folder / f"{step}.log"):
            row.fail(f"{step} failed, see build/{preset}/{step}.log")
            return False
    return True


def count_entry(row, preset, entry):
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
    elif good and name not in FIXTURES:
        row.passed += 1
    if failed:
        cases = [f"{case.get('classname')}.{case.get('name')}" for case in total.iter("testcase")
                 if case.find("failure") is not None]
        row.fail(f"{name}: {', '.join(cases)}", failed)
    elif not good:
        row.fail(f"{name}: {'did not run' if entry.get('status') in ('disabled', 'notrun') else 'failed'}")


def run_ctest(preset, row, pattern):
    say(f"{preset}: testing")
    for old in (gates.BUILD / preset).glob("testrun/*/result.xml"):
        old.unlink()
    junit = gates.BUILD / preset / "ctest.xml"
    junit.unlink(missing_ok=True)
    chosen = ["-R", pattern] if pattern else []
    status = subprocess.run(["ctest", "--preset", preset, "--parallel", str(gates.JOBS), "--no-tests=error",
                             "--output-junit", junit, *chosen], cwd=gates.ROOT).returncode
    if not junit.is_file():
        row.fail("ctest left no result")
        return
    for entry in ElementTree.parse(junit).getroot().iter("testcase"):
        count_entry(row, preset, entry)
    if status != 0 and not row.failures:
        row.fail("ctest failed")


def test_preset(preset, pattern):
    row = Row(preset)
    start = time.monotonic()
    if build(preset, row):
        run_ctest(preset, row, pattern)
    row.seconds = time.monotonic() - start
    return row


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
    for preset in PRESETS:
        if not (gates.BUILD / preset / "compile_commands.json").is_file():
            run_logged(["cmake", "--preset", preset], gates.BUILD / preset / "configuring.log")


def table(rows):
    say("summary")
    print(f"{'':12}{'passed':>8}{'failed':>8}{'skipped':>9}{'seconds':>9}")
    for row in rows:
        print(f"{row.name:12}{row.passed:8}{row.failed:8}{row.skipped:9}{row.seconds:9.0f}")
    for row in rows:
        for failure in row.failures:
            print(f"FAILED {row.name}: {failure}")
    passed, failed = sum(row.passed for row in rows), sum(row.failed for row in rows)
    print(f"\n{passed} passed, {failed} failed", flush=True)
    return failed == 0 and passed > 0


def arguments():
    parser = argparse.ArgumentParser(prog="./test", description="Builds and tests everything.")
    parser.add_argument("--only", action="append", choices=[*PRESETS, "native", "gates", "canaries"],
                        help="this part alone; may be given several times")
    parser.add_argument("--filter", metavar="REGEX", help="only the test programs whose name matches")
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
    parts = chosen.only or [*PRESETS, "gates", "canaries"]
    presets = [part for part in [*PRESETS, "native"] if part in parts]
    held = lock()
    rows = []
    needed = presets if set(parts) <= set(presets) else [*PRESETS, *presets]
    if subprocess.run([gates.ROOT / "scripts" / "build-deps", *needed]).returncode != 0:
        sys.exit("the dependencies could not be built")
    try:
        for preset in presets:
            rows.append(test_preset(preset, chosen.filter))
    finally:
        if "windows" in presets:
            subprocess.run([gates.ROOT / "scripts" / "wine-prefix", "stop"])
    if set(parts) - set(presets):
        configure_missing()
    if "gates" in parts:
        rows.append(run_gates())
    if "canaries" in parts:
        rows.append(run_canaries())
    good = table(rows)
    held.close()
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
