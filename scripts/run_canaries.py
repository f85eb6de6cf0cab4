"""Proof that what ./test runs beside the gates can turn red: the fuzz targets, valgrind, the coverage, the summary, the
running of checks. Each function stages one fault and returns whether it was found; scripts/canaries.py runs them.
"""
import subprocess
import time
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import checks
import coverage
import fuzzing
import gates
import limited
import memcheck
import summary
from scratch import scratch

CANARY_SOURCES = gates.ROOT / "tests" / "canary"


def silent(_line):
    """Where the output of what is meant to fail goes."""


def under_valgrind(folder, source):
    """Returns the exit status of the program and its row."""
    subprocess.run(["g++", "-O1", source, "-o", folder / "program"], check=True)
    status = memcheck.measure(folder / "program", folder / "run", seconds=60)
    row, _ = memcheck.judge("canary", folder / "run", status)
    return status, row


def leak_under_valgrind():
    with scratch() as folder:
        status, row = under_valgrind(folder, CANARY_SOURCES / "leak.cpp")
        return status == memcheck.EXIT_CODE and any("valgrind found errors" in failure for failure in row.failures)


def clean_program_that_ran_no_test_under_valgrind():
    with scratch() as folder:
        (folder / "clean.cpp").write_text("int main() {}\n")
        status, row = under_valgrind(folder, folder / "clean.cpp")
        return status == 0 and row.failed == 1 and row.passed == 0


def has_ended(process_id):
    try:
        # Empty: it has ended, and nobody has asked for its exit code yet.
        return not Path(f"/proc/{process_id}/cmdline").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return True


def program_that_hangs():
    """It and what it started are ended."""
    with scratch() as folder:
        status = limited.run(["sh", "-c", "sleep 600 & echo $!; wait"], folder / "log", seconds=3)
        started = int((folder / "log").read_text())
        for _ in range(100):  # a killed process takes a moment
            if has_ended(started):
                return status is None
            time.sleep(0.1)
        return False


def oracle_that_is_wrong():
    with scratch() as folder:
        program = folder / "fuzz_wrong_oracle"
        subprocess.run(["clang++-14", "-std=c++20", "-O1", "-fsanitize=fuzzer,address", f"-I{gates.ROOT / 'fuzz'}",
                        CANARY_SOURCES / "wrong_oracle.cpp", "-o", program], check=True)
        row, tried = fuzzing.run_program("wrong_oracle", program, folder, 20, silent)
        return (row.failed == 1 and row.passed == 0 and tried[0].found == 1 and
                "does not hold: no byte" in (folder / "wrong_oracle.log").read_text(errors="replace") and
                any((folder / "artifacts").glob("wrong_oracle-crash-*")))


def fuzz_target_that_runs_no_input():
    with scratch() as folder:
        row, _ = fuzzing.run_program("nothing", "true", folder, 1, silent)
        return row.failed == 1 and row.passed == 0


def must_report(program):
    """Whether a canary of ctest that does this would pass."""
    return subprocess.run(["sh", CANARY_SOURCES / "must-report", "a report", "sh", "-c", program],
                          stdout=subprocess.DEVNULL).returncode == 0


def report_with_an_exit_code_of_success():
    return must_report("echo some: a report; exit 3") and not must_report("echo some: a report")


def failure_without_a_report():
    return not must_report("echo something else; exit 3")


COVERED = """int one(int size) {
    if (size < 0) {
        // refused
        return 0;
    }
    if (size > 9) {
        return 0;
    }
    return size;
}
"""
LIST_OF_COVERED = "src/canary.cpp\n  Why.\n    after: if (size < 0) {\n    return 0;\n"


def coverage_findings(counts, list_text=LIST_OF_COVERED):
    return coverage.compare({"src/canary.cpp": counts}, list_text, lambda _: COVERED)


def line_that_no_test_reaches():
    """One that reads like the listed line, with and without that one reached."""
    known = {1: 1, 2: 1, 4: 0, 6: 1, 7: 1, 9: 1}
    return (coverage_findings(known) == [] and
            coverage_findings({**known, 7: 0}) == ["src/canary.cpp:7: not reached: return 0;"] and
            "src/canary.cpp:7: not reached: return 0;" in coverage_findings({**known, 4: 1, 7: 0}))


def listed_line_that_is_reached():
    return coverage_findings({1: 1, 2: 1, 4: 1, 6: 1, 7: 1, 9: 1}) == [
        "src/canary.cpp: listed, but reached or gone: return 0;"]


def listed_line_that_may_mean_several():
    unclear = LIST_OF_COVERED.replace("    after: if (size < 0) {\n", "")
    return any("stands there 2 times" in finding for finding in coverage_findings({2: 1, 4: 0, 7: 0}, unclear))


def source_that_no_test_links():
    commands = [{"file": str(gates.ROOT / "src" / name)} for name in ("one.cpp", "two.cpp")]
    return (coverage.uncounted({"src/one.cpp": {1: 1}, "src/two.cpp": {1: 0}}, commands) == [] and
            coverage.uncounted({"src/one.cpp": {1: 1}}, commands) == ["src/two.cpp: no line of it was counted"] and
            coverage.uncounted({}, []) != [])


def counted(result, status="run"):
    """What ./test makes of a program that leaves this result.xml (None: no file). Returns row and what was tried."""
    row, tried = summary.Row("canary"), []
    with scratch() as folder:
        (folder / "unit_canary").mkdir()
        if result is not None:
            (folder / "unit_canary" / "result.xml").write_text(result)
        entry = ElementTree.Element("testcase", {"name": "unit_canary", "status": status})
        summary.count_entry(row, tried, folder, entry, {"unit_canary"})
    return row, tried


def result_of(cases):
    return f"<testsuites><testsuite>{cases}</testsuite></testsuites>"


PASSED = '<testcase classname="Some" name="Passes" status="run" result="completed"/>'
SKIPPED = '<testcase classname="Some" name="Skips" status="run" result="skipped"><skipped message=""/></testcase>'
FAILED = '<testcase classname="Some" name="Fails" status="run" result="completed"><failure message=""/></testcase>'


def program_that_proved_nothing():
    """Its exit code says success, but it left no result, a torn one, or one without a case."""
    return all(row.failed == 1 and row.passed == 0
               for row, _ in (counted(None), counted("<testsuites>"), counted(result_of(""))))


def case_that_was_skipped():
    """It is no pass, and it is named."""
    row, _ = counted(result_of(PASSED + SKIPPED))
    return (row.passed, row.failed) == (1, 0) and "SKIPPED canary: Some.Skips" in summary.report([row], [], "", 0)


def case_that_ended_early():
    row, tried = counted(result_of(PASSED + FAILED), "fail")
    return (row.passed, row.failed) == (1, 1) and tried == [
        summary.Tried("unit_canary: Some.Fails (ended early)", "canary", 1, 1)]


def program_that_did_not_finish():
    return all(row.failed == 1 and tried == [summary.Tried("unit_canary (did not finish)", "canary", 1, 1)]
               for row, tried in (counted(None, "fail"), counted(result_of(PASSED), "fail"), counted(None, "notrun")))


def longest_of_several():
    """It stands in the table as it is, and is not added up."""
    note = '<testcase classname="Some" name="Notes"><properties><property name="longest: wait (ms)" value="{}"/>' \
           "</properties></testcase>"
    row, tried = counted(result_of(note.format(7) + note.format(5)))
    return any(line.split() == ["longest", "wait", "(ms)", "7", "0"]
               for line in summary.report([row], tried, "", 0).splitlines())


def part_in_which_nothing_passed():
    rows = [summary.Row("some", passed=1), summary.Row("canary")]
    summary.fail_empty(rows)
    return ([row.failed for row in rows] == [0, 1] and
            summary.report(rows, [], "", 0).endswith("1 passed, 1 failed"))


def check_that_raises():
    """It fails with what it raised and what its command said, and the next one is run all the same."""
    def broken():
        subprocess.run(["sh", "-c", "echo what it said >&2; exit 3"], check=True, capture_output=True, text=True)

    (_, found), after = checks.run([("broken", broken), ("after", lambda: [])], 1)
    return any("exit status 3" in line for line in found) and "what it said" in found and after == ("after", [])


# For each thing that ./test judges by and that is no gate.
CANARIES = {
    "memcheck": [leak_under_valgrind, clean_program_that_ran_no_test_under_valgrind, program_that_hangs],
    "fuzz": [oracle_that_is_wrong, fuzz_target_that_runs_no_input],
    "the canaries of ctest": [report_with_an_exit_code_of_success, failure_without_a_report],
    "coverage": [line_that_no_test_reaches, listed_line_that_is_reached, listed_line_that_may_mean_several,
                 source_that_no_test_links],
    "the summary": [program_that_proved_nothing, case_that_was_skipped, case_that_ended_early,
                    program_that_did_not_finish, longest_of_several, part_in_which_nothing_passed],
    "the checks": [check_that_raises],
}
