"""Which lines and branches of src/ the native tests reach, as gcovr counts. A line that none reaches is marked with
GCOVR_EXCL_LINE, or stands between GCOVR_EXCL_START and GCOVR_EXCL_STOP, and the mark says why (gate excluded_lines). A
marked line that is reached is a finding too, and so is a source of which nothing was counted.
"""
import json
import subprocess
from pathlib import Path


def marked_lines(text):
    inside = False
    for number, line in enumerate(text, 1):
        inside = (inside or "GCOVR_EXCL_START" in line) and "GCOVR_EXCL_STOP" not in line
        if inside or "GCOVR_EXCL_LINE" in line:
            yield number


def findings(build, root, sources):
    """Prints the figures; returns what is wrong. `sources` are those of src/ that were compiled."""
    run = subprocess.run(["/usr/bin/gcovr", "--root", root, "--filter", f"{root}/src/", "--no-markers",
                          "--json", "-", build],
                         check=True, stdout=subprocess.PIPE, text=True)
    found, reached, total, branches = [], 0, 0, []
    counted = {one["file"]: one["lines"] for one in json.loads(run.stdout)["files"]}
    for source, lines in sorted(counted.items()):
        text = (Path(root) / source).read_text().splitlines()
        marked = set(marked_lines(text))
        counts = {one["line_number"]: one["count"] for one in lines if not one["gcovr/noncode"]}
        branches += [branch["count"] > 0 for one in lines for branch in one["branches"]]
        hit = sum(count > 0 for count in counts.values())
        reached, total = reached + hit, total + len(counts)
        print(f"{100 * hit / max(1, len(counts)):6.1f} %  {hit:4} of {len(counts):4} lines  {source}")
        for number, count in counts.items():
            code = text[number - 1].strip()
            # What is left of a scope when an exception passes through it is no code of ours.
            if count == 0 and number not in marked and code != "}":
                found.append(f"{source}:{number}: not reached: {code}")
        found += [f"{source}:{number}: marked, but reached: {text[number - 1].strip()}"
                  for number in sorted(marked) if counts.get(number, 0) > 0 and "GCOVR_EXCL_LINE" in text[number - 1]]
    print(f"{100 * reached / max(1, total):6.1f} %  {reached} of {total} lines of src/")
    print(f"{100 * sum(branches) / max(1, len(branches)):6.1f} %  {sum(branches)} of {len(branches)} branches", flush=True)
    return found + [f"{source}: no line of it was counted" for source in sources if not counted.get(source)] + (
        [] if counted else ["no source of src/ was counted"])


def forget_counts(build, commands):
    """Counters add up over runs, and a source that left the build would leave its lines: only this run is to count."""
    objects = {Path(entry["directory"], entry["output"]) for entry in commands}
    for counts in Path(build).rglob("*.gcda"):
        counts.unlink()
    for notes in Path(build).rglob("*.gcno"):
        if notes.with_suffix(".o") not in objects:
            notes.unlink()
