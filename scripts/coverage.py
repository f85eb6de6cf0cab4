"""Which lines and branches of src/ the native tests reach. Lines that none reaches must be in tests/uncovered.txt, with
the reason; what is listed there and reached after all is a finding too.
"""
import re
import subprocess
from collections import defaultdict

import gates

FOLDER = gates.BUILD / "coverage"
LIST = gates.ROOT / "tests" / "uncovered.txt"
WANTED_PERCENT = 95


def capture():
    """Returns, for each source below src/, line -> times reached, and the branches (taken, total) of all."""
    info = FOLDER / "coverage.info"
    # From all objects: a function in a header may have been linked in from a test's.
    subprocess.run(["lcov", "--quiet", "--capture", "--directory", FOLDER, "--base-directory", gates.ROOT,
                    "--rc", "lcov_branch_coverage=1", "--output-file", info],
                   check=True, stdout=subprocess.DEVNULL)
    lines, branches = defaultdict(dict), [0, 0]
    source = None
    for entry in info.read_text().splitlines():
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


def listed():
    """The list: a path, then lines of code (without their indentation) that no test reaches, each group after its reason."""
    known, path = defaultdict(list), None
    for line in LIST.read_text().splitlines():
        if re.fullmatch(r"src/\S+", line):
            path = line
        elif line.startswith("    "):
            known[path].append(line.strip())
    return known


def compare(lines):
    """Findings: lines that are neither reached nor listed, and listed ones that are reached or gone."""
    known = listed()
    findings = []
    for source in sorted(set(lines) | set(known)):
        path = gates.ROOT / source
        text = path.read_text().splitlines() if path.is_file() else []
        left = list(known[source])
        for line, times in sorted(lines.get(source, {}).items()):
            code = text[line - 1].strip()
            if code == "}":  # what is left of a scope when an exception passes through it
                continue
            if times == 0 and code in left:
                left.remove(code)
            elif times == 0:
                findings.append(f"{source}:{line}: not reached: {code}")
        findings += [f"{source}: listed, but reached or gone: {code}" for code in left]
    return findings


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
    for finding in compare(lines):
        row.fail(finding)
    if percent < WANTED_PERCENT:
        row.fail(f"fewer than {WANTED_PERCENT} % of the lines are reached")
