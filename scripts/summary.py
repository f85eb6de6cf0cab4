"""What a run of ./test found, and the two tables at its end: how many tests passed where, and what was tried how often."""
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

# Entries of ctest that prepare and clear up; they count only when they fail.
FIXTURES = {"wine_start", "wine_stop"}


@dataclass
class Row:
    """A line of the first table."""
    name: str
    passed: int = 0
    skipped: list = field(default_factory=list)  # the names of the cases
    seconds: float = 0
    failures: list = field(default_factory=list)
    failed: int = 0

    def fail(self, what, count=1):
        self.failures.append(what)
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
class Result:
    """What the cases of one GoogleTest program came to: the names of those that passed, failed and did not run."""
    passed: list = field(default_factory=list)
    failed: list = field(default_factory=list)
    skipped: list = field(default_factory=list)
    tried: list = field(default_factory=list)


def read_result(file, program, part):
    """Reads a program's result.xml. None when it left none, a torn one, or one without a case: nothing was proved."""
    try:
        cases = list(ElementTree.parse(file).getroot().iter("testcase"))
    except (FileNotFoundError, ElementTree.ParseError):
        return None
    result = Result()
    for case in cases:
        name = f"{case.get('classname')}.{case.get('name')}"
        noted = list(tried_in(case, part))
        result.tried += noted
        if case.find("failure") is not None:
            result.failed.append(name)
            if not any(note.found for note in noted):  # a case notes what it tried when the work is done
                result.tried.append(Tried(f"{program}: {name} (ended early)", part, 1, 1))
        elif case.find("skipped") is not None or case.get("status") == "notrun":
            result.skipped.append(name)
        else:
            result.passed.append(name)
    return result if cases else None


def tried_in(case, part):
    """What a test case noted about itself."""
    for note in case.iter("property"):
        name, value = note.get("name"), note.get("value")
        if name.startswith("tried: "):
            yield Tried(name.removeprefix("tried: "), part, int(value), len(case.findall("failure")))
        elif name.startswith("longest: "):
            yield Tried(name.replace(": ", " ", 1), part, int(value), merge=max)


def count_program(row, tried, program, result, failure):
    """Adds a GoogleTest program: `result` is what read_result gave, `failure` how it failed as a whole, or nothing."""
    if result is not None:
        row.passed += len(result.passed)
        row.skipped += result.skipped
        tried += result.tried
    if result is not None and result.failed:
        row.fail(f"{program}: {', '.join(result.failed)}", len(result.failed))
    elif failure or result is None:
        row.fail(f"{program}: {failure or 'left no result of any case'}")
        tried.append(Tried(f"{program} (did not finish)", row.name, 1, 1))


def count_entry(row, tried, folder, entry, programs):
    """Adds one ctest entry of the JUnit file of the row's preset; `folder` is where the preset's tests run, `programs`
    are the entries that are GoogleTest programs."""
    name, status = entry.get("name"), entry.get("status")
    failure = {"run": "", "disabled": "did not run", "notrun": "did not run"}.get(status, "failed")
    if name in programs:
        count_program(row, tried, name, read_result(folder / name / "result.xml", name, row.name), failure)
    elif failure:
        row.fail(f"{name}: {failure}")
        tried.append(Tried(f"{name} (did not finish)", row.name, 1, 1))
    elif name not in FIXTURES:
        row.passed += 1


def number(value):
    return f"{value:,}"


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
    for what, entries in sorted(lines.items()):
        counts = "".join(f"{number(entries[part].times) if part in entries else '-':>12}" for part in parts)
        yield f"{what:{width}}{counts}{sum(entry.found for entry in entries.values()):>7}"


def duration(seconds):
    minutes, seconds = divmod(round(seconds), 60)
    return f"{minutes} min {seconds} s"


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
    lines += ["", f"{form}: {duration(seconds)}", f"{passed} passed, {failed} failed"]
    return "\n".join(lines)


PROOF_PAGE = """# What has the last long run tried?

`./test --long` writes this page itself, whatever it found: commit it with the change that the run was made for. What the
parts and columns are: [testing.md](testing.md).

Commit {commit}, {cores} cores:

```text
{text}
```
"""


def proof(text, commit, cores):
    """The page docs/proof.md, of the text that a whole long run ended with."""
    return PROOF_PAGE.format(text=text.strip(), commit=commit, cores=cores)
