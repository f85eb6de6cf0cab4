"""Runs test programs of the native build under valgrind: the optimised code, without a sanitizer's runtime in it.

A block that nothing points at when the process ends, a read of a value that was never set, or a bad access is a
failure. What is still pointed at is no leak: the log's writer and libuv's pool live until the process ends. Nor is what
valgrind calls possibly lost: the C library's blocks of these running threads.
"""
import os
import shutil
import threading
from contextlib import nullcontext

import gates
import limited
from summary import Row, Tried, count_program, read_result

FOLDER = gates.BUILD / "native"
# The whole library; in the long form each of its floors as well, which asan's check for leaks sees in the short one.
PROGRAMS = {
    "short": ["stress_repeated_lives"],
    "long": ["stress_repeated_lives", "unit_log", "unit_log_front", "unit_platform", "unit_platform_service",
             "unit_protocol", "unit_session", "unit_transport"],
}
# One at a time: they start the one service beside them, and each of them ends any that it finds.
WITH_SERVICE = {"stress_repeated_lives", "unit_platform_service"}
_service = threading.Lock()
EXIT_CODE = 99
# Several times what a program takes: one that hangs is ended.
SECONDS = {"short": 30 * 60, "long": 90 * 60}


def valgrind(program, *arguments):
    return ["valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=definite",
            "--errors-for-leak-kinds=definite", f"--error-exitcode={EXIT_CODE}",
            "--fair-sched=yes", program, *arguments]


def measure(program, folder, seconds, environment=None):
    """Runs a test program under valgrind in an empty folder. Returns its exit status; None: it was not done in time."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return limited.run(valgrind(program, "--gtest_output=xml:result.xml"), folder / "output.txt", seconds,
                       cwd=folder, env={**os.environ, **(environment or {})})


def judge(program, folder, status):
    """What a run in that folder showed: its row and what was tried."""
    row, tried = Row("memcheck"), []
    result = read_result(folder / "result.xml", program, row.name)
    if status == EXIT_CODE:
        row.fail(f"{program}: valgrind found errors, see {folder.relative_to(gates.ROOT)}/output.txt")
    failure = {0: "", EXIT_CODE: "", None: "was not done in time"}.get(status, f"exit code {status}")
    count_program(row, tried, program, result, failure)
    cases = len(result.passed) + len(result.failed) if result else 0
    return row, [Tried(f"valgrind {program} (cases)", row.name, cases, int(status == EXIT_CODE)), *tried]


def run(program, effort, show):
    """One program, in its short form but for the many lives: valgrind takes fifty times as long as the processor.

    Returns its row and what it tried."""
    folder = FOLDER / "testrun" / f"memcheck_{program}"
    form = effort if program == "stress_repeated_lives" else "short"
    with _service if program in WITH_SERVICE else nullcontext():
        status = measure(FOLDER / "bin" / program, folder, SECONDS[effort],
                         {"SONVIA_EFFORT": form, "SONVIA_MEMCHECK": "1"})
    row, tried = judge(program, folder, status)
    if row.failed:
        for line in (folder / "output.txt").read_text(errors="replace").splitlines()[-80:]:
            show(line)
    show(f"{program}: {tried[0].times} cases, {'FAILED' if row.failed else 'no error'}")
    return row, tried
