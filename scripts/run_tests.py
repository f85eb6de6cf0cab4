"""Builds and runs what was chosen and sums it up; ./test starts it once the machine has the packages it needs.

One build after another is made, with all processors; the tests of what is built run beside that (ctest, one run for each
build), and the builds are the ones that give way: tests wait more than they work.
"""
import argparse
import fcntl
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import coverage
import pictures
import summary
from tree import BUILD, JOBS, ROOT, compile_commands

SUMMARY = BUILD / "summary.txt"
SMALL = ["windows", "gates", "canaries"]
ALL = ["windows", "tsan", "asan", "fuzz", "memcheck", "gates", "canaries"]
# In the order in which they are built, and their tests start: the longest first. What of a build's tests belongs to a
# part of its own, by label, and what to build for that part alone.
PRESETS = {
    "windows": {"gates": ("gate", ["SonviaPCAudioDll"]), "canaries": ("canary", ["SonviaPCAudioDll", "canaries"])},
    "tsan": {"canaries": ("canary", ["canaries"])},
    "asan": {"fuzz": ("fuzz", ["fuzzers"]), "gates": ("gate", []), "canaries": ("canary", ["canaries"])},
    "native": {"memcheck": ("memcheck", ["memcheck"]), "canaries": ("canary", ["canaries"])},
    "coverage": {},
}
SAYS = {
    "small": "the Windows product under Wine and what can be judged without another build. About 3 minutes on two "
             "cores, 7 with everything to install and to build",
    "all": "every build, under Wine, sanitizers and valgrind, and fuzzing. About 12 minutes on two cores, 17 with "
           "everything to install and to build",
    "long": "every test that repeats something and every fuzz target for longer. About an hour",
    "coverage": "which lines of src/ the native tests reach. About 5 minutes on two cores",
    "part": "a part of the tests",
}
PROGRESS = re.compile(r"\s*(\d+)/(\d+) (?:Test|MemCheck)\s+#\d+: (\S+) \.*\s*(\**.*?)\s+[\d.]+ sec")


class Screen:
    """What a run shows while it lasts: on a terminal one line that changes, elsewhere a line now and then."""

    def __init__(self):
        self.start, self.shown, self.parts, self.lock = time.monotonic(), 0.0, {}, threading.Lock()

    def seconds(self):
        return time.monotonic() - self.start

    def say(self, text):
        with self.lock:
            print(("\r\033[K" if sys.stdout.isatty() else "") + text, flush=True)

    def at(self, part, state):
        """The part has come so far; None: to its end."""
        with self.lock:
            self.parts[part] = state
            now = self.seconds()
            under_way = [f"{name} {state}" for name, state in self.parts.items() if state]
            line = ", ".join([*under_way, f"{now:.0f} s"])
            if sys.stdout.isatty():
                print(f"\r\033[K{line[:shutil.get_terminal_size().columns - 1]}", end="", flush=True)
            elif under_way and now - self.shown >= 15:
                self.shown = now
                print(line, flush=True)


class Run:
    def __init__(self, chosen):
        self.filter, self.long, self.screen = chosen.filter, chosen.long, Screen()
        self.size = ("coverage" if chosen.coverage else "part" if chosen.only else "long" if chosen.long else
                     "all" if chosen.all else "small")
        self.whole = self.size == "long" and not chosen.filter
        self.parts = {"coverage": ["coverage"], "part": chosen.only, "small": SMALL}.get(self.size, ALL)
        self.rows, self.tried, self.lock = {part: summary.Row(part) for part in self.parts}, [], threading.Lock()

    def row(self, part):
        return self.rows.setdefault(part, summary.Row(part))

    def presets(self):
        """For each build: the labels of what belongs to a chosen part, and whether its own tests are one."""
        for preset, parts in PRESETS.items():
            labels = {label for part, (label, _) in parts.items() if part in self.parts}
            if preset in self.parts or (labels and self.size != "small"):
                yield preset, labels, preset in self.parts

    def logged(self, name, preset, command):
        """Whether a step of a build went well; its output is in a file and shown when it did not."""
        log = BUILD / preset / f"{name}.log"
        log.parent.mkdir(parents=True, exist_ok=True)
        with open(log, "w") as out:
            good = subprocess.run(command, cwd=ROOT, stdout=out, stderr=subprocess.STDOUT).returncode == 0
        if not good:
            text = log.read_text(errors="replace")
            self.screen.say(text[-20000:])
            self.row(preset).fail(f"{name} {preset} failed, see build/{preset}/{name}.log", text)
        return good

    def build(self, preset, own):
        start = time.monotonic()
        self.screen.at(preset, "is built")
        targets = sorted({target for part, (_, targets) in PRESETS[preset].items() if part in self.parts
                          for target in targets})
        everything = own or (preset == "native" and self.long)
        options = [f"-DSONVIA_TIMEOUT_FACTOR={30 if self.long else 1}", f"-DSONVIA_FUZZ_SECONDS={300 if self.long else 30}",
                   f"-DSONVIA_UNITY_BUILD={'OFF' if preset == 'coverage' else 'ON'}"]
        good = self.logged("configuring", preset, ["cmake", "--preset", preset, *options])
        if good and (everything or targets):
            good = self.logged("building", preset, ["nice", "cmake", "--build", "--preset", preset, "--parallel", str(JOBS),
                                                    *([] if everything else ["--target", *targets])])
        if own:
            self.row(preset).seconds += time.monotonic() - start
        self.screen.at(preset, None)
        return good

    def selection(self, preset, labels, own):
        """The options that choose the tests of a build."""
        left_out = {label for label, _ in PRESETS[preset].values()} - labels - {"canary"} if own else set()
        # Other languages' tools take long to install; to refuse memory at every place takes long to run.
        left_out |= {"bindings", "memory"} if self.size == "small" else set()
        left_out |= set() if self.long else {"long"}
        return ([] if own else ["-L", f"^({'|'.join(sorted(labels))})$"]) + (
            ["-LE", f"^({'|'.join(sorted(left_out))})$"] if left_out else []) + (
            ["-R", self.filter] if self.filter else [])

    def listed(self, preset):
        """The labels of each test of a build."""
        shown = subprocess.run(["ctest", "--test-dir", BUILD / preset, "--show-only=json-v1"], check=True, cwd=ROOT,
                               capture_output=True, text=True).stdout
        return {test["name"]: [label for one in test["properties"] if one["name"] == "LABELS" for label in one["value"]]
                for test in json.loads(shown)["tests"]}

    def test(self, preset, labels, own):
        """Runs the chosen tests of a build and counts them."""
        for kind in ("result.xml", "cases.txt"):
            for old in (BUILD / preset / "testrun").glob(f"*/{kind}"):
                old.unlink()
        if preset == "coverage":
            coverage.forget_counts(BUILD / preset, compile_commands(preset))
        if "memcheck" in labels:
            labels = labels - {"memcheck"}
            self.ctest(preset, "memcheck", ["-T", "memcheck", "-R", self.filter or (
                r"^(stress_repeated_lives|unit_\w+)\." if self.long else r"^stress_repeated_lives\.")])
        if labels or own:
            self.ctest(preset, preset, self.selection(preset, labels, own))

    def ctest(self, preset, part, options):
        start, names, folder = time.monotonic(), self.listed(preset), BUILD / preset
        junit = folder / "ctest.xml"
        junit.unlink(missing_ok=True)
        shutil.rmtree(folder / "Testing", ignore_errors=True) if part == "memcheck" else None
        # Tests under Wine wait even more than others.
        parallel = JOBS + 2 if preset == "windows" else JOBS
        spec = ["--resource-spec-file", ROOT / "cmake" / "wine-prefixes.json"] if preset == "windows" else []
        effort = "long" if self.long else "short"
        process = subprocess.Popen(
            ["ctest", "--test-dir", folder, "--parallel", str(parallel), *spec, *options, "--output-junit", junit,
             "--test-output-truncation", "head", "--test-output-size-failed", "20000"],
            cwd=ROOT, env={**os.environ, "SONVIA_EFFORT": effort, **({"SONVIA_MEMCHECK": "1"} if part == "memcheck" else {})},
            text=True, errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        said = ""
        for line in process.stdout:
            said = (said + line)[-2000:]
            if match := PROGRESS.match(line):
                self.screen.at(part, f"{match[1]} of {match[2]}")
                if "*" in match[4]:
                    self.screen.say(f"{part}: {match[3]}: {match[4].strip('*').lower()}")
        process.wait()
        self.screen.at(part, None)
        with self.lock:
            self.count(part, names, folder, junit, said, process.returncode)
            if part in self.rows:  # not of a build that only others' parts come from
                self.row(part).seconds += time.monotonic() - start

    def count(self, part, names, folder, junit, said, status):
        failures = sum(row.failed for row in self.rows.values())
        if part == "memcheck":
            found = [entry for file in folder.glob("Testing/*/DynamicAnalysis.xml")
                     for entry in summary.checked_entries(file, names, folder / "testrun")]
        else:
            found = list(summary.entries(junit, names, folder / "testrun")) if junit.is_file() else []
        for entry in found:
            row = self.row(summary.row_name(entry, part) if part != "memcheck" else part)
            row.seconds += entry.seconds if row.name != part else 0
            summary.count_entry(row, self.tried, entry)
        if (not found or status != 0) and sum(row.failed for row in self.rows.values()) == failures:
            self.row(part).fail("ctest failed" if found or status else "ctest ran nothing", said)

    def go(self):
        chosen = list(self.presets())
        # Dependencies of `native` serve `coverage` too.
        needed = sorted({"native" if preset == "coverage" else preset for preset, _, _ in chosen})
        if subprocess.run([ROOT / "scripts" / "build-deps", *needed]).returncode != 0:
            sys.exit("the dependencies could not be built")
        with ThreadPoolExecutor() as pool:
            running = [pool.submit(self.test, preset, labels, own) for preset, labels, own in chosen
                       if self.build(preset, own)]
            for one in running:
                one.result()
        if self.size == "coverage":
            for found in coverage.findings(BUILD / "coverage", ROOT, sorted(
                    str(Path(entry["file"]).relative_to(ROOT)) for entry in compile_commands("coverage")
                    if Path(entry["file"]).is_relative_to(ROOT / "src"))):
                self.row("coverage").fail(found)

    def report(self, form):
        rows = list(self.rows.values())
        if not self.filter:
            summary.fail_empty(rows)
        text = summary.report(rows, self.tried, form, self.screen.seconds())
        print(text, flush=True)
        SUMMARY.write_text(text.lstrip() + "\n")
        if self.whole:
            commit = subprocess.run(["git", "-c", f"safe.directory={ROOT}", "-C", ROOT, "describe", "--always", "--dirty",
                                     "--exclude", "*"], capture_output=True, text=True).stdout.strip() or "unknown"
            drawn = pictures.draw({preset: BUILD / preset / "testrun" for preset in PRESETS}, ROOT / "docs" / "proof")
            (ROOT / "docs" / "proof.md").write_text(summary.proof(text, commit, JOBS, drawn))
        return not any(row.failed for row in rows) and any(row.passed for row in rows)


def arguments():
    parser = argparse.ArgumentParser(prog="./test", description="Builds and tests; without an argument: " + SAYS["small"])
    parser.add_argument("--all", action="store_true", help=SAYS["all"])
    parser.add_argument("--long", action="store_true", help=SAYS["long"])
    parser.add_argument("--coverage", action="store_true", help=SAYS["coverage"])
    parser.add_argument("--only", action="append", choices=[*ALL, "native"],
                        help="this part alone; may be given several times")
    parser.add_argument("--filter", metavar="REGEX", help="only the tests whose name matches")
    return parser.parse_args()


def lock():
    """One run at a time, ./run included: two would share the Wine prefix and the folders that tests run in."""
    BUILD.mkdir(exist_ok=True)
    held = open(BUILD / ".test-lock", "w")
    try:
        fcntl.flock(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        print("== waiting for another ./test or ./run in this tree", flush=True)
        fcntl.flock(held, fcntl.LOCK_EX)
    return held


def main():
    run = Run(arguments())
    form = shlex.join(["./test", *sys.argv[1:]])
    print(f"== {form}: {SAYS[run.size]}.", flush=True)
    held = lock()
    SUMMARY.unlink(missing_ok=True)  # or it would be taken for that of a run which breaks off
    if run.size != "small":
        subprocess.run([ROOT / "scripts" / "bootstrap", "coverage" if run.size == "coverage" else "all"], check=True)
    run.go()
    good = run.report(form)
    held.close()
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
