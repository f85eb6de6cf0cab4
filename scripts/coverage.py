"""Which lines and branches of src/ the native tests reach. Lines that none reaches must be in tests/uncovered.txt, with
the reason; what is listed there and reached after all is a finding too.
"""
import re
import subprocess
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path

import gates

FOLDER = gates.BUILD / "coverage"
LIST = gates.ROOT / "tests" / "uncovered.txt"
WANTED_PERCENT = 95
CONTEXT = "after: "


def forget_counts():
    """Counters add up over runs, and a source that left the build would leave its lines: only this run is to count."""
    objects = {Path(entry["directory"], match[1]) for entry in gates.compile_commands("coverage")
               if (match := re.search(r" -o (\S+)", entry["command"]))}
    for counts in FOLDER.rglob("*.gcda"):
        counts.unlink()
    for notes in FOLDER.rglob("*.gcno"):
        if notes.with_suffix(".o") not in objects:
            notes.unlink()


def lcov(*arguments):
    subprocess.run(["lcov", "--quiet", "--rc", "lcov_branch_coverage=1", *arguments],
                   check=True, stdout=subprocess.DEVNULL)


def capture():
    """Returns, for each source below src/, line -> times reached, and the branches (taken, total) of all."""
    compiled, reached, info = FOLDER / "compiled.info", FOLDER / "reached.info", FOLDER / "coverage.info"
    # From all objects: a function in a header may have been linked in from a test's. And from what was compiled, with
    # zeros: an object that no test links leaves no counts.
    source_of_counts = ["--directory", FOLDER, "--base-directory", gates.ROOT]
    lcov("--capture", "--initial", *source_of_counts, "--output-file", compiled)
    lcov("--capture", *source_of_counts, "--output-file", reached)
    lcov("--add-tracefile", compiled, "--add-tracefile", reached, "--output-file", info)
    return read_info(info.read_text())


def read_info(text):
    lines, branches = defaultdict(dict), [0, 0]
    source = None
    for entry in text.splitlines():
        kind, _, value = entry.partition(":")
        if kind == "SF":
            source = value.removeprefix(f"{gates.ROOT}/")
        elif not source or not source.startswith("src/"):
            continue
        elif kind == "DA":
            line, times = (int(part) for part in value.split(",")[:2])
            lines[source][line] = lines[source].get(line, 0) + times
        elif kind == "BRDA":
            branches[1] += 1
            branches[0] += value.rsplit(",", 1)[1] not in ("-", "0")
    return lines, branches


def uncounted(lines, commands):
    """Findings: sources of src/ among the compile commands of which nothing was counted."""
    compiled = {str(Path(entry["file"]).relative_to(gates.ROOT)) for entry in commands
                if Path(entry["file"]).is_relative_to(gates.ROOT / "src")}
    findings = [f"{source}: no line of it was counted" for source in sorted(compiled) if not lines.get(source)]
    return findings if compiled else ["no source of src/ is in the compile commands"]


@dataclass
class Listed:
    """A line of code in the list; one that is context only says which of several equal lines the next one means."""
    code: str
    is_context: bool
    starts_group: bool


def listed(text):
    """Reads the list; its head says how it is written. Returns path -> its lines."""
    known, path, starts_group = defaultdict(list), None, True
    for line in text.splitlines():
        if re.fullmatch(r"src/\S+", line):
            path = line
        if not line.startswith("    "):
            starts_group = True
            continue
        code = line.strip()
        is_context = code.startswith(CONTEXT)
        known[path].append(Listed(code.removeprefix(CONTEXT), is_context, starts_group))
        starts_group = False
    return known


def code_lines(text):
    """Pairs of line number and code without its indentation; empty lines and those of comments are left out."""
    return [(number, line.strip()) for number, line in enumerate(text.splitlines(), 1)
            if line.strip() and not line.strip().startswith("//")]


def places(entries, text):
    """The lines of a source that its entries in the list mean: pairs of the code and all the lines that it may mean."""
    code = code_lines(text)
    previous, after_context = set(), False  # the places, as indices of `code`, of the entry before this one
    for entry in entries:
        here = {index for index, (_, line) in enumerate(code) if line == entry.code}
        following = {index for index in here if index - 1 in previous}
        if entry.starts_group or (entry.is_context and not after_context):
            previous = here
        elif after_context:
            previous = following
        else:  # most listed lines stand directly below the one listed before, but they need not
            previous = following or here
        after_context = entry.is_context
        if not entry.is_context:
            yield entry.code, {code[index][0] for index in previous}


def compare(lines, list_text, read_source):
    """Findings: lines that are neither reached nor listed, and listed ones that are reached, gone, or not clear."""
    known = listed(list_text)
    findings = []
    for source in sorted(set(lines) | set(known)):
        text = read_source(source)
        code = dict(code_lines(text))
        # What is left of a scope when an exception passes through it is no code of ours.
        left = {line for line, times in lines.get(source, {}).items() if times == 0 and code.get(line) != "}"}
        for entry, meant in places(known[source], text):
            if len(meant) > 1:
                findings.append(f"{source}: listed, but stands there {len(meant)} times, and no \"{CONTEXT}\" line "
                                f"says which is meant: {entry}")
            elif meant <= left and meant:
                left -= meant
            else:
                findings.append(f"{source}: listed, but reached or gone: {entry}")
        findings += [f"{source}:{line}: not reached: {code.get(line, '')}" for line in sorted(left)]
    return findings


def source_text(source):
    path = gates.ROOT / source
    return path.read_text() if path.is_file() else ""


def check(row):
    """Prints the figures and adds what is wrong to the row."""
    lines, branches = capture()
    reached = total = 0
    for source, counts in sorted(lines.items()):
        covered = sum(times > 0 for times in counts.values())
        reached, total = reached + covered, total + len(counts)
        print(f"{100 * covered / len(counts):6.1f} %  {covered:4} of {len(counts):4} lines  {source}")
    percent = 100 * reached / total
    print(f"{percent:6.1f} %  {reached} of {total} lines of src/")
    print(f"{100 * branches[0] / branches[1]:6.1f} %  {branches[0]} of {branches[1]} branches of src/", flush=True)
    for finding in (uncounted(lines, gates.compile_commands("coverage")) +
                    compare(lines, LIST.read_text(), source_text)):
        row.fail(finding)
    if percent < WANTED_PERCENT:
        row.fail(f"fewer than {WANTED_PERCENT} % of the lines are reached")
