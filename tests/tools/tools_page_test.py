"""Runs the commands of docs/tools.md, top to bottom, and compares what each prints with what the page says.

usage, in the folder for what comes up: python3 tools_page_test.py DEV

DEV is a folder as the dev zip has it. The page's user works in its `bin`; a copy of it is made here. In a block of the
page that follows a comment "run", lines with a prompt are commands: ">" for cmd, which runs under Wine, "$" for a shell
of this machine. The other lines are what the command before them prints: numbers and spaces are not compared, and "..."
stands for any lines, or for the end of one. A comment "edit: FILE COPY OLD NEW" is a change that the page asks its reader for.
A block after "run with PROGRAM" is left out where there is no such program.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "tools.md"
STEP = re.compile(r"<!-- run(?: with (?P<needs>\w+))? -->\n```\w*\n(?P<block>.*?)```|<!-- edit: (?P<edit>.*?) -->", re.S)
END = "-- end of a command --"


def prepare(dev):
    """The unpacked zip, as far as the page needs it; a user's own settings are not."""
    page = Path("page").absolute()
    shutil.rmtree(page, ignore_errors=True)
    tests = shutil.ignore_patterns("unit_*", "integration_*", "stress_*", "bench_*", "fuzz_*", "no_service", "*.map")
    shutil.copytree(dev / "bin", page / "bin", ignore=tests)
    shutil.copytree(dev / "tools", page / "tools")
    return page / "bin"


def commands_of(block):
    commands = []
    for line in block.splitlines():
        if line[:2] in ("> ", "$ "):
            commands.append((line[2:], []))
        else:
            commands[-1][1].append(line)
    return commands


def run_in_cmd(commands, folder):
    lines = [f"{command}\n@echo.\n@echo {END}" for command in commands]
    (folder / "block.bat").write_text("@echo off\n" + "\n".join(lines) + "\n", newline="\r\n")
    return [ROOT / "scripts" / "wine-run", "cmd", "/c", "block.bat"]


def run_in_shell(commands, _):
    return ["bash", "-c", "\n".join(f"{command}\necho; echo '{END}'" for command in commands)]


def printed(block, folder):
    """What each command of a block prints; they share a shell."""
    commands = [command for command, _ in commands_of(block)]
    start = run_in_cmd if block.startswith("> ") else run_in_shell
    output = folder / "printed.txt"
    with open(output, "wb") as file:  # no pipe: what is left running would hold it open
        subprocess.run(start(commands, folder), cwd=folder, stdin=subprocess.DEVNULL, stdout=file, stderr=file, timeout=100,
                       env={**os.environ, "HOME": str(folder), "LC_ALL": "C.UTF-8"})
    text = output.read_text(errors="replace").replace("\r\n", "\n")
    return [output.splitlines() for output in text.split(END)]


def masked(lines):
    plain = [re.sub(r"[0-9]+", "#", " ".join(line.split())) for line in lines]
    return [line for line in plain if line]


def same(expected, found):
    if not expected:
        return not found
    if expected[0] == "...":
        return any(same(expected[1:], found[skip:]) for skip in range(len(found) + 1))
    start, cut, _ = expected[0].partition("...")
    alike = bool(found) and (found[0].startswith(start) if cut else found[0] == start)
    return alike and same(expected[1:], found[1:])


def differences(block, folder):
    outputs = printed(block, folder)
    for number, (command, expected) in enumerate(commands_of(block)):
        found = outputs[number] if number < len(outputs) else ["(it did not run)"]
        if not same(masked(expected), masked(found)):
            yield "\n".join([f"{command}\n-- the page:", *expected, "-- printed:", *found])


def edit(words, folder):
    file, copy, old, new = words.split(" ")
    text = (folder / file).read_text()
    if text.count(old) != 1:
        sys.exit(f"{old} stands {text.count(old)} times in {file}")
    (folder / copy).write_text(text.replace(old, new))


def main(dev):
    folder = prepare(Path(dev))
    count, found = 0, []
    for step in STEP.finditer(PAGE.read_text()):
        if step["edit"]:
            edit(step["edit"], folder)
            continue
        if step["needs"] and not shutil.which(step["needs"]):
            print(f"SKIPPED: there is no {step['needs']}; ./test --all installs it\n{step['block']}")
            continue
        count += len(commands_of(step["block"]))
        found += differences(step["block"], folder)
    print("\n\n".join(found))
    print(f"{count} commands, {len(found)} of them print something else than the page says")
    return 1 if found or not count else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
