"""Runs the libFuzzer targets, which the preset `asan` builds, each from its seeds and with its dictionary.

What a run finds stays in build/fuzz/artifacts; an input that broke something belongs into fuzz/corpus/<target>, where
the replay tests of every preset run it from then on.
"""
import os
import re

import gates
import limited
from summary import Row, Tried

PRESET = "asan"
FOLDER = gates.BUILD / "fuzz"
SECONDS = {"short": 30, "long": 300}
# For the seeds and the end of a run, which libFuzzer does not count: one that hangs is ended.
SPARE_SECONDS = 600
# Bytes of the longest input: beyond the 64 KB that a read brings, and beyond the 8191 that a logger's texts may have.
LONGEST = {"log_config": 20000, "log_folder": 8000}
LONGEST_OTHERS = 200000
# Short stacks of allocations leave half as much time again for inputs; a finding is run again by hand anyway.
ENVIRONMENT = {"ASAN_OPTIONS": "malloc_context_size=4"}


def targets():
    """The list is the tree's: each target has a folder of seeds."""
    return sorted(path.name for path in (gates.ROOT / "fuzz" / "corpus").iterdir() if path.is_dir())


def command(target, program, folder, seconds):
    found, artifacts = folder / "corpus" / target, folder / "artifacts"
    for path in (found, artifacts):
        path.mkdir(parents=True, exist_ok=True)
    return [gates.ROOT / "scripts" / "run-sanitized", program, f"-max_total_time={seconds}",
            f"-max_len={LONGEST.get(target, LONGEST_OTHERS)}", "-timeout=20", "-rss_limit_mb=4096",
            "-print_final_stats=1", f"-artifact_prefix={artifacts}/{target}-", found]


def run(target, effort, show):
    """One target for its time, from its seeds and with its dictionary. Returns its row and what it tried."""
    seeds = gates.ROOT / "fuzz" / "corpus" / target
    dictionary = gates.ROOT / "fuzz" / "dict" / f"{target}.dict"
    return run_program(target, gates.BUILD / PRESET / "bin" / f"fuzz_{target}", FOLDER, SECONDS[effort], show,
                       [f"-dict={dictionary}", seeds])


def run_program(target, program, folder, seconds, show, inputs=()):
    """A libFuzzer program, which leaves its log and what it finds in the folder."""
    row = Row("fuzz")
    folder.mkdir(parents=True, exist_ok=True)
    log = folder / f"{target}.log"
    status = limited.run([*command(target, program, folder, seconds), *inputs], log, seconds + SPARE_SECONDS,
                         cwd=folder, env={**os.environ, **ENVIRONMENT})
    text = log.read_text(errors="replace")
    executed = re.search(r"stat::number_of_executed_units:\s*(\d+)", text)
    times = int(executed.group(1)) if executed else 0
    places = f"see {log.relative_to(gates.ROOT)} and artifacts beside it"
    if status is None:
        row.fail(f"{target}: was not done in time, {places}")
    elif status != 0:
        row.fail(f"{target}: a finding or a crash, {places}")
    elif times == 0:
        row.fail(f"{target}: no input was run, {places}")
    else:
        row.passed = 1
    if row.failed:
        for line in text.splitlines()[-60:]:
            show(line)
    show(f"{target}: {times} inputs, {'FAILED' if row.failed else 'nothing found'}")
    return row, [Tried(f"fuzzing {target} (inputs)", row.name, times, row.failed)]
