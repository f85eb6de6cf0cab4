"""Runs the benchmark programs and makes one table of what they found. bench/run builds them and starts this.

usage: bench/run [--quick] [--wine] [--only GROUP]... [--docs] [--canary]
"""
import argparse
import contextlib
import json
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

import plots

ROOT = Path(__file__).resolve().parent.parent
OUT = ROOT / "build" / "bench"
PAGE = ROOT / "docs" / "performance.md"
TABLE_BEGIN, TABLE_END = "<!-- table -->\n", "<!-- end of table -->\n"

# KB of the product, which has no symbols.
DLL_BOUND = 700
IDLE_SECONDS = 10

# For each group the program and its filter. One processor: the figure is the work of both ends and the switches between
# them, and not how long a sleeping processor takes to wake. Alone: what a process does first must not be done already.
PROGRAMS = {
    "codec": [("bench_codec", "")],
    "framing": [("bench_framing", "")],
    "events": [("bench_events", "^event")],
    "calls": [("bench_events", "^get"), ("bench_pipe", "^(caller|threads)/")],
    "logging": [("bench_log", "-archive|open")],
    "archiving": [("bench_log", "archive|open")],
    "protection": [("bench_protection", ""), ("bench_protection", ".")],
    "pipe": [("bench_pipe", "^pipe_"), ("bench_pipe", "^sends/")],
    "start-up": [("bench_life", "^(init|connect|release)/")],
    "memory": [("bench_life", "^memory/")],
}
ONE_PROCESSOR = {("bench_pipe", "^pipe_")}
ONCE = {("bench_life", "^memory/")}
# OpenSSL decides when it is loaded which processor features it uses.
MASKED = {("bench_protection", ".")}
GROUPS = [*PROGRAMS, "idle", "size"]
WINE_GROUPS = ["pipe", "calls", "start-up", "idle"]
WINE_PROGRAMS = {"bench_pipe", "bench_life"}


class Place:
    """Where programs are and how they are started."""

    def __init__(self, wine):
        self.wine = wine
        self.folder = ROOT / "build" / ("windows" if wine else "native") / "bin"

    def command(self, program, *arguments):
        path = self.folder / (f"{program}.exe" if self.wine else program)
        launcher = [ROOT / "scripts" / "wine-run"] if self.wine else []
        return [*launcher, path, *arguments]

    def has(self, program):
        return Path(self.command(program)[-1]).exists() and (not self.wine or program in WINE_PROGRAMS)


def measure(place, group, quick):
    """The rows of one group, as the programs judge them, and their exit code."""
    rows, status = [], 0
    for number, (program, choice) in enumerate(PROGRAMS[group]):
        if place.wine and program not in WINE_PROGRAMS:
            continue
        if not place.has(program):
            print(f"{group}: there is no {program}", file=sys.stderr)
            continue
        name = f"{group}_{number}"
        (OUT / f"{name}.rows").unlink(missing_ok=True)
        repetitions = 1 if (program, choice) in ONCE else 3 if quick else 9
        command = place.command(
            program, f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={0.02 if quick else 0.1}",
            f"--benchmark_filter={choice or 'all'}", f"--benchmark_out={name}.json", "--benchmark_out_format=json")
        if (program, choice) in ONE_PROCESSOR:
            command = ["taskset", "-c", str(max(os.sched_getaffinity(0))), *command]
        environment = {**os.environ, "SONVIA_BENCH_ROWS": f"{name}.rows", "SONVIA_BENCH_SAMPLES": "samples"}
        if (program, choice) in MASKED:
            environment["OPENSSL_ia32cap"] = "0:0"
        with open(OUT / f"{name}.log", "w") as log:
            ended = subprocess.run(command, cwd=OUT, env=environment, stdout=log, stderr=subprocess.STDOUT)
        if ended.returncode not in (0, 1, 2):
            sys.exit(f"{program} ended with {ended.returncode}: see {log.name}")
        status = max(status, ended.returncode)
        lines = (OUT / f"{name}.rows").read_text().splitlines() if (OUT / f"{name}.rows").exists() else []
        rows += [{"group": group, **json.loads(line)} for line in lines]
    return rows, status


def row_of(group, what, ours, peer, theirs, bound):
    """A row of what is measured here: an absolute figure with an upper bound, or none."""
    met = bound is None or ours <= bound
    return {"group": group, "what": what, "ours": what, "peer": peer, "figure": "", "our_median": ours,
            "peer_median": theirs, "ratio": ours, "absolute": 1, "at_least": 0, "bound": -1 if bound is None else bound,
            "rounds_met": int(met), "rounds": [ours], "verdict": "-" if bound is None else "pass" if met else "FAIL"}


def processes_named(start):
    for folder in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if (folder / "comm").read_text().startswith(start):
                yield folder


def wake_ups_and_time(process):
    """Of all threads of a process: how often they were woken, and the processor time in nanoseconds."""
    wake_ups = nanoseconds = 0
    for thread in (process / "task").iterdir():
        for line in (thread / "status").read_text().splitlines():
            if line.startswith("voluntary_ctxt_switches:"):
                wake_ups += int(line.split()[1])
        nanoseconds += int((thread / "schedstat").read_text().split()[0])
    return wake_ups, nanoseconds


def idle_figures(place, *arguments):
    """In IDLE_SECONDS of a host that does nothing."""
    command = place.command("bench_idle", str(IDLE_SECONDS + 2), *arguments)
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, cwd=OUT) as program:
        for line in program.stdout:
            if line.strip().endswith("idle"):  # the log may have begun the line
                break
        else:
            sys.exit("bench_idle did not start")
        [process] = processes_named("bench_idle")
        time.sleep(0.5)  # its own last line has been written
        before = wake_ups_and_time(process)
        time.sleep(IDLE_SECONDS)
        after = wake_ups_and_time(process)
        program.communicate()
    return after[0] - before[0], after[1] - before[1]


def measure_idle(place):
    ours = idle_figures(place)
    theirs = idle_figures(place, "--libuv")
    return [row_of("idle", f"wake-ups in {IDLE_SECONDS} s", ours[0], "libuv", theirs[0], 0),
            row_of("idle", f"processor ns in {IDLE_SECONDS} s", ours[1], "libuv", theirs[1], 0)]


def measure_size():
    dll = ROOT / "build" / "windows" / "bin" / "SonviaPCAudioDll.dll"
    return [row_of("size", "KB of the DLL", dll.stat().st_size / 1024, "-", 1, DLL_BOUND)] if dll.exists() else []


def figure(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def cells(row):
    bound = "" if row["bound"] == -1 else f"{'>=' if row['at_least'] else '<='} {figure(row['bound'])}"
    rounds = row["rounds"]
    spread = f"{figure(min(rounds))} to {figure(max(rounds))}" if len(rounds) > 1 else ""
    verdict = row["verdict"]
    if bound and rounds and verdict in ("pass", "FAIL") and row["rounds_met"] not in (0, len(rounds)):
        verdict += f" ({row['rounds_met']} of {len(rounds)} rounds)"
    return [row["group"], row["what"], row["peer"].split(" | ")[-1], figure(row["our_median"]),
            "" if row["absolute"] and row["peer"] == "-" else figure(row["peer_median"]),
            "" if row["absolute"] else f"{row['ratio']:.2f}", spread, bound, verdict]


HEAD = ["path", "figure", "against", "ours", "theirs", "ratio", "spread", "bound", ""]


def table(rows):
    lines = [HEAD, *map(cells, rows)]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEAD))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)


def markdown(rows):
    lines = [HEAD, ["---"] * len(HEAD), *map(cells, rows)]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def exit_code(rows):
    """2: a result was wrong. 1: a bound was missed, or nothing was measured at all."""
    verdicts = {row["verdict"] for row in rows}
    return 2 if "WRONG" in verdicts else 1 if "FAIL" in verdicts or not rows else 0


# For the canary, what of a program is short enough.
CANARY_FILTERS = {"bench_log": "(sustained|caller)/short/1/ours|archive/ours|open"}


def unseen_faults(place):
    """What stays green when a fault is planted in every result, and when a bound is missed."""
    for program in sorted({program for choices in PROGRAMS.values() for program, _ in choices}):
        if not place.has(program):
            continue
        (OUT / "canary.rows").unlink(missing_ok=True)
        ended = subprocess.run(
            place.command(program, "--benchmark_repetitions=1", "--benchmark_min_time=0.001",
                          f"--benchmark_filter={CANARY_FILTERS.get(program, 'ours')}"),
            cwd=OUT, env={**os.environ, "SONVIA_BENCH_PLANT": "1", "SONVIA_BENCH_ROWS": "canary.rows"},
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if ended.returncode != 2:
            yield f"{program} ended with {ended.returncode}"
        if (OUT / "canary.rows").exists():
            for row in map(json.loads, (OUT / "canary.rows").read_text().splitlines()):
                if row["verdict"] != "WRONG":
                    yield f"{program}: {row['what']} is {row['verdict']}"
    slow = row_of("canary", "slow", 2, "-", 1, 1)
    for rows, expected in (([slow], 1), ([{**slow, "verdict": "WRONG"}], 2), ([], 1), ([{**slow, "verdict": "pass"}], 0)):
        if exit_code(rows) != expected:
            yield f"the table ends with {exit_code(rows)} instead of {expected}"


def put_into_page(rows, machine):
    text = PAGE.read_text()
    before, rest = text.split(TABLE_BEGIN)
    after = rest.split(TABLE_END)[1]
    images = "".join(f"\n![{file.stem.replace('_', ' ')}](performance/{file.name})\n"
                     for file in sorted((PAGE.parent / "performance").glob("*.svg")))
    PAGE.write_text(f"{before}{TABLE_BEGIN}{machine}\n\n{markdown(rows)}{images}{TABLE_END}{after}")


def machine():
    model = next((line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                  if line.startswith("model name")), "unknown processor")
    return f"{time.strftime('%Y-%m-%d')}, {os.cpu_count()} processors, {model}, load {os.getloadavg()[0]:.1f} at the start."


def main():
    parser = argparse.ArgumentParser(prog="bench/run")
    parser.add_argument("--quick", action="store_true", help="three rounds: rough, 2 minutes")
    parser.add_argument("--wine", action="store_true", help="the Windows build: pipe, calls, start-up, idle")
    parser.add_argument("--only", action="append", choices=GROUPS, metavar="GROUP", help=", ".join(GROUPS))
    parser.add_argument("--docs", action="store_true", help="put table and plots into docs/performance.md")
    parser.add_argument("--canary", action="store_true", help="whether wrong results and missed bounds are seen")
    options = parser.parse_args()
    place = Place(options.wine)
    OUT.mkdir(parents=True, exist_ok=True)
    if options.canary:
        unseen = list(unseen_faults(place))
        print("\n".join(unseen) or "every planted fault was seen")
        return 1 if unseen else 0
    groups = options.only or (WINE_GROUPS if options.wine else GROUPS)
    shutil.rmtree(OUT / "samples", ignore_errors=True)
    (OUT / "samples").mkdir(parents=True)
    for stale in OUT.glob("*_[0-9].json"):  # of an earlier run, perhaps an interrupted one
        stale.unlink()
    started = machine()
    rows, worst = [], 0
    for group in groups:
        print(f"measuring {group}", file=sys.stderr, flush=True)
        if group == "idle":
            found, status = measure_idle(place), 0
        elif group == "size":
            found, status = measure_size(), 0
        else:
            found, status = measure(place, group, options.quick)
        rows += found
        worst = max(worst, status)
    print(f"{started}\n{table(rows)}")
    name = "wine" if options.wine else "native"
    (OUT / f"{name}.json").write_text(json.dumps({"machine": started, "rows": rows}, indent=1))
    plots.draw(OUT, ROOT / "docs" / "performance" if options.docs else OUT)
    if options.docs:
        put_into_page(rows, started)
    return max(worst, exit_code(rows))


if __name__ == "__main__":
    sys.exit(main())
