"""What a run of ./test found, and the two tables at its end: how many tests passed where, and what was tried how often."""
from dataclasses import dataclass, field


@dataclass
class Row:
    """A line of the first table."""
    name: str
    passed: int = 0
    skipped: int = 0
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


def tried_in(result, part):
    """What the cases of a test program noted about themselves; `result` is what GoogleTest left of its run."""
    for case in result.iter("testcase"):
        for note in case.iter("property"):
            name, value = note.get("name"), note.get("value")
            if name.startswith("tried: "):
                yield Tried(name.removeprefix("tried: "), part, int(value), len(case.findall("failure")))


def number(value):
    return f"{value:,}"


def results_table(rows):
    yield f"{'':12}{'passed':>8}{'failed':>8}{'skipped':>9}{'seconds':>9}"
    for row in rows:
        yield f"{row.name:12}{row.passed:8}{row.failed:8}{row.skipped:9}{row.seconds:9.0f}"


def tried_table(rows, tried):
    """One line for each thing that was tried, one column for each part of the run that tried it."""
    parts = [row.name for row in rows if any(entry.part == row.name for entry in tried)]
    lines = {}
    for entry in tried:  # several cases of one test may note the same
        total = lines.setdefault(entry.what, {}).setdefault(entry.part, Tried(entry.what, entry.part, 0))
        total.times += entry.times
        total.found += entry.found
    width = max(map(len, lines)) + 2
    yield f"{'what was tried':{width}}" + "".join(f"{part:>12}" for part in parts) + f"{'found':>7}"
    for what, entries in sorted(lines.items()):
        counts = "".join(f"{number(entries[part].times) if part in entries else '-':>12}" for part in parts)
        yield f"{what:{width}}{counts}{sum(entry.found for entry in entries.values()):>7}"


def report(rows, tried):
    """The text that a run ends with."""
    lines = ["", "== summary", *results_table(rows)]
    if tried:
        lines += ["", *tried_table(rows, tried)]
    lines += [f"FAILED {row.name}: {failure}" for row in rows for failure in row.failures]
    passed, failed = sum(row.passed for row in rows), sum(row.failed for row in rows)
    lines += ["", f"{passed} passed, {failed} failed"]
    return "\n".join(lines)
