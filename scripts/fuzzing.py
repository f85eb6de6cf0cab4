"""Runs the libFuzzer targets of the preset `fuzz`, each from its seeds and with its dictionary.

What a run finds stays in build/fuzz/artifacts; an input that broke something belongs into fuzz/corpus/<target>, where
the replay tests of every preset run it from then on.
"""
import os
import re
import subprocess

import gates
from summary import Row, Tried

FOLDER = gates.BUILD / "fuzz"
SECONDS = {"short": 30, "long": 300}
# Short stacks of allocations leave half as much time again for inputs; a finding is run again by hand anyway.
ENVIRONMENT = {"ASAN_OPTIONS": "malloc_context_size=4"}


def targets():
    """The list is the tree's: each target has a folder of seeds."""
    return sorted(path.name for path in (gates.ROOT / "fuzz" / "corpus").iterdir() if path.is_dir())


def command(target, seconds):
    found, artifacts = FOLDER / "corpus" / target, FOLDER / "artifacts"
    for folder in (found, artifacts):
        folder.mkdir(parents=True, exist_ok=True)
    seeds = gates.ROOT / "fuzz" / "corpus" / target
    dictionary = gates.ROOT / "fuzz" / "dict" / f"{target}.dict"
    return [gates.ROOT / "scripts" / "run-sanitized", FOLDER / "bin" / f"fuzz_{target}",
            f"-max_total_time={seconds}", "-timeout=20", "-rss_limit_mb=4096", "-print_final_stats=1",
            f"-artifact_prefix={artifacts}/{target}-", f"-dict={dictionary}", found, seeds]


def run(target, effort, show):
    """One target for its time. Returns its row and what it tried."""
    row = Row(f"fuzz {target}")
    log = FOLDER / f"{target}.log"
    log.parent.mkdir(parents=True, exist_ok=True)
    with open(log, "w") as out:
        status = subprocess.run(command(target, SECONDS[effort]), stdout=out, stderr=subprocess.STDOUT,
                                cwd=FOLDER, env={**os.environ, **ENVIRONMENT}).returncode
    text = log.read_text(errors="replace")
    executed = re.search(r"stat::number_of_executed_units:\s*(\d+)", text)
    times = int(executed.group(1)) if executed else 0
    if status != 0:
        for line in text.splitlines()[-60:]:
            show(line)
        row.fail(f"a finding or a crash, see build/fuzz/{log.name} and build/fuzz/artifacts")
    elif times == 0:
        row.fail(f"no input was run, see build/fuzz/{log.name}")
    else:
        row.passed = 1
    show(f"{target}: {times} inputs, {'FAILED' if row.failed else 'nothing found'}")
    return row, [Tried(f"fuzzing {target} (inputs)", "fuzz", times, row.failed)]
