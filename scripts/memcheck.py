"""Runs test programs of the native build under valgrind: the optimised code, without a sanitizer's runtime in it.

A block that nothing points at when the process ends, a read of a value that was never set, or a bad access is a
failure. What is still pointed at is no leak: the log's writer and libuv's pool live until the process ends. Nor is what
valgrind calls possibly lost: the C library's blocks of these running threads.
"""
import os
import shutil
import subprocess
import xml.etree.ElementTree as ElementTree

import gates
from summary import Row, Tried, tried_in

FOLDER = gates.BUILD / "native"
# The whole library, then the floors with most memory of their own. The long form takes the rest as well.
PROGRAMS = {
    "short": ["stress_repeated_lives", "unit_log", "unit_session"],
    "long": ["stress_repeated_lives", "unit_log", "unit_log_front", "unit_platform",
             "unit_protection", "unit_protocol", "unit_session", "unit_transport"],
}
EXIT_CODE = 99


def valgrind(program, *arguments):
    return ["valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=definite",
            "--errors-for-leak-kinds=definite", f"--error-exitcode={EXIT_CODE}",
            "--fair-sched=yes", program, *arguments]


def run(program, effort, show):
    """One program, in its short form but for the many lives: valgrind takes fifty times as long as the processor.

    Returns its row and what it tried."""
    row = Row(program)
    folder = FOLDER / "testrun" / f"memcheck_{program}"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    effort = effort if program == "stress_repeated_lives" else "short"
    log = folder / "output.txt"
    with open(log, "w") as out:
        status = subprocess.run(valgrind(FOLDER / "bin" / program, "--gtest_output=xml:result.xml"), cwd=folder,
                                stdout=out, stderr=subprocess.STDOUT,
                                env={**os.environ, "SONVIA_EFFORT": effort, "SONVIA_MEMCHECK": "1"}).returncode
    result = folder / "result.xml"
    total = ElementTree.parse(result).getroot() if result.is_file() else None
    cases = 0 if total is None else int(total.get("tests")) - int(total.get("failures"))
    if status != 0:
        for line in log.read_text(errors="replace").splitlines()[-80:]:
            show(line)
        row.fail(f"{'valgrind found errors' if status == EXIT_CODE else f'exit code {status}'}, "
                 f"see {log.relative_to(gates.ROOT)}")
    row.passed = cases
    show(f"{program}: {cases} cases, {'FAILED' if row.failed else 'no error'}")
    noted = [] if total is None else list(tried_in(total, "memcheck"))
    return row, [Tried(f"valgrind {program} (cases)", "memcheck", cases, row.failed), *noted]
