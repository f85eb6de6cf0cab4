"""What a run of ./test found: reads what ctest and the test programs left, and writes the two tables at the end.

The count is that of the single GoogleTest cases, and of the ctest entries that are no GoogleTest programs. An entry that
fails without a failed case (it crashed, a sanitizer stopped it, its time ran out), that leaves no result of a case, or
that is a fuzz target and ran no input, counts as one failure; so does a part in which nothing passes.
"""
import re
from dataclasses import dataclass, field
from xml.etree import ElementTree

import junitparser

# The row of an entry with one of these labels; of any other it is that of the build.
ROWS = {"gate": "gates", "canary": "canaries", "fuzz": "fuzz"}
FIXTURES = {"wine_start", "wine_stop"}  # they count only when they fail
NOT_IN_THIS_BUILD = "No case of the filter is in this build"
LINES_SHOWN = 15


@dataclass
class Row:
    """A line of the first table."""
    name: str
    passed: int = 0
    skipped: list = field(default_factory=list)  # the names of the cases
    seconds: float = 0
    failures: list = field(default_factory=list)  # what failed, with the message on further lines
    failed: int = 0

    def fail(self, what, message="", count=1):
        shown = [f"    {line}" for line in message.strip().splitlines()[-LINES_SHOWN:]]
        self.failures.append("\n".join([what, *shown]))
        self.failed += count


@dataclass
class Tried:
    """A line of the second table, for one part of the run: tests note these themselves."""
    what: str
    part: str
    times: int
    found: int = 0
    merge: object = sum  # of what several cases note: how often in all, or max of how long it took


@dataclass
class Entry:
    """A ctest entry that was run. `status` is "" when it passed, otherwise how it failed."""
    name: str
    labels: list
    status: str
    seconds: float
    output: str
    folder: object  # where it ran


def entries(junit, labels, testrun):
    """The entries of the JUnit file that ctest wrote; `labels` are those of each entry, by name."""
    for case in junitparser.JUnitXml.fromfile(str(junit)):
        said = {"run": "", "fail": "failed"}.get(case._elem.get("status"), "did not run")
        results = [one for one in case.result if one.message]
        if said == "failed" and results and results[0].message:
            said = results[0].message.lower()
        yield Entry(case.name, labels.get(case.name, []), said, case.time or 0, case.system_out or "",
                    testrun / case.name)


def checked_entries(analysis, labels, testrun):
    """The same of what ctest wrote about a run of its memory check: it tells more about those that failed alone."""
    site = ElementTree.parse(analysis).getroot()
    failed = {test.findtext("Name"): test for test in site.iter("Test") if test.get("Status")}
    for name in (one.text.rpartition("/")[2] for one in site.iterfind(".//TestList/Test")):  # a path there
        test = failed.get(name)
        defects = [one.get("type").lower() for one in test.iter("Defect")] if test else []
        yield Entry(name, labels.get(name, []), ", ".join(defects) or "failed" if test else "", 0,
                    test.findtext("Log") or "" if test else "", testrun / name)


def cases_in(file):
    """The GoogleTest cases that a program wrote about when it ended, or an empty list."""
    try:
        found = junitparser.JUnitXml.fromfile(str(file))
    except (OSError, SyntaxError, junitparser.JUnitXmlError):  # none, torn, or something else
        return []
    suites = [found] if isinstance(found, junitparser.TestSuite) else found
    return [case for suite in suites for case in suite]


def notes_of(case):
    """What a test case noted about itself (tests/support/effort.h): pairs of a name and a value."""
    return [(note.name, note.value) for properties in case.iterchildren(junitparser.Properties) for note in properties]


def noted(case, part, failures):
    for name, value in notes_of(case):
        kind, _, what = name.partition(": ")
        if kind == "tried":
            yield Tried(what, part, int(value), failures)
        elif kind == "longest":
            yield Tried(f"longest {what}", part, int(value), merge=max)


def count_cases(row, tried, entry):
    """Adds the entry of a GoogleTest program."""
    cases, failed = cases_in(entry.folder / "result.xml"), False
    for case in cases:
        name = f"{case.classname}.{case.name}"
        failures = [one.message or "" for one in case.result if isinstance(one, junitparser.Failure)]
        notes = list(noted(case, row.name, len(failures)))
        tried += notes
        if failures:
            failed = True
            row.fail(f"{entry.name}: {name}", "\n".join(failures))
            if not any(note.found for note in notes):  # a case notes what it tried when the work is done
                tried.append(Tried(f"{name} (ended early)", row.name, 1, 1))
        elif any(isinstance(one, junitparser.Skipped) for one in case.result):
            row.skipped.append(name)
        elif case._elem.get("status") != "notrun":
            row.passed += 1
    if failed or (cases and not entry.status):
        return
    if not entry.status and NOT_IN_THIS_BUILD in entry.output:
        return
    row.passed += 0 if cases else count_written(row, entry)
    row.fail(f"{entry.name}: {entry.status or 'left no result of any case'}{last_case(entry)}", entry.output)
    tried.append(Tried(f"{entry.name} (did not finish)", row.name, 1, 1))


def written(entry):
    """What the program wrote case by case (tests/support/case_log.cpp): pairs of a word and the rest of its line."""
    file = entry.folder / "cases.txt"
    text = file.read_text(errors="replace") if file.is_file() else ""
    return [line.partition(" ")[::2] for line in text.replace("\n\t", " | ").splitlines()]


def count_written(row, entry):
    """How many cases of a program that did not come to its end had passed; the failed ones are named in the row."""
    message = []
    for what, text in written(entry):
        message = [] if what == "start" else message + [text] * (what == "failure")
        if what == "failed":
            row.fail(f"{entry.name}: {text}", "\n".join(message))
    return sum(what == "passed" for what, _ in written(entry))


def last_case(entry):
    """The case that was running when the program ended."""
    lines = [(what, text) for what, text in written(entry) if what != "failure"]
    return f", in {lines[-1][1]}" if lines and lines[-1][0] == "start" else ""


def count_entry(row, tried, entry):
    inputs = re.search(r"stat::number_of_executed_units:\s*(\d+)", entry.output)
    if "." in entry.name:
        count_cases(row, tried, entry)
    elif "fuzz" in entry.labels:
        times = int(inputs[1]) if inputs else 0
        said = entry.status or ("" if times else "ran no input")
        tried.append(Tried(f"{entry.name} (inputs)", row.name, times, int(bool(said))))
        row.passed += not said
        if said:
            row.fail(f"{entry.name}: {said}", entry.output)
    elif entry.status:
        row.fail(f"{entry.name}: {entry.status}", entry.output)
        tried.append(Tried(f"{entry.name} (did not finish)", row.name, 1, 1))
    elif entry.name not in FIXTURES:
        row.passed += 1


def row_name(entry, part):
    return next((ROWS[label] for label in entry.labels if label in ROWS), part)


def results_table(rows):
    yield f"{'':12}{'passed':>8}{'failed':>8}{'skipped':>9}{'seconds':>9}"
    for row in rows:
        yield f"{row.name:12}{row.passed:8}{row.failed:8}{len(row.skipped):9}{row.seconds:9.0f}"


def tried_table(rows, tried):
    """One line for each thing that was tried, one column for each part of the run that tried it."""
    parts = [row.name for row in rows if any(entry.part == row.name for entry in tried)]
    lines = {}
    for entry in tried:  # several cases of one test may note the same
        total = lines.setdefault(entry.what, {}).setdefault(entry.part, Tried(entry.what, entry.part, 0))
        total.times = entry.merge((total.times, entry.times))
        total.found += entry.found
    width = max(map(len, lines)) + 2
    yield f"{'what was tried':{width}}" + "".join(f"{part:>12}" for part in parts) + f"{'found':>7}"
    for what, entries_of in sorted(lines.items()):
        counts = "".join(f"{entries_of[part].times if part in entries_of else '-':>12,}" if part in entries_of
                         else f"{'-':>12}" for part in parts)
        yield f"{what:{width}}{counts}{sum(entry.found for entry in entries_of.values()):>7}"


def fail_empty(rows):
    """A part in which nothing passed proves nothing, even when nothing failed."""
    for row in rows:
        if row.passed == 0 and row.failed == 0:
            row.fail("nothing passed")


def report(rows, tried, form, seconds):
    """The text that a run ends with; `form` is how it was called, `seconds` what it took."""
    lines = ["", "== summary", *results_table(rows)]
    if tried:
        lines += ["", *tried_table(rows, tried)]
    lines += [""] if any(row.skipped or row.failures for row in rows) else []
    lines += [f"SKIPPED {row.name}: {case}" for row in rows for case in row.skipped]
    lines += [f"FAILED {row.name}: {failure}" for row in rows for failure in row.failures]
    passed, failed = sum(row.passed for row in rows), sum(row.failed for row in rows)
    took = f"{round(seconds) // 60} min {round(seconds) % 60} s"
    lines += ["", f"{form}: {took}", f"{passed} passed, {failed} failed"]
    return "\n".join(lines)


PROOF_PAGE = """# What has the last long run tried?

`./test --long` writes this page itself, whatever it found: commit it with the change that the run was made for. What the
parts and columns are: [testing.md](testing.md).

Commit {commit}, {cores} cores:

```text
{text}
```
"""


def proof(text, commit, cores, pictures):
    """The page docs/proof.md, of the text that a whole long run ended with and the names of its pictures."""
    return PROOF_PAGE.format(text=text.strip(), commit=commit, cores=cores) + "".join(
        f"\n![{name.replace('_', ' ').capitalize()}](proof/{name}.svg)\n" for name in pictures)
