#!/usr/bin/python3
"""Proof that the gates, and what else ./test judges by, can turn red: each canary plants a fault where no one else sees
it and fails when nothing is found. Faults that take no more than a file stand in faults.toml next to it, programs with a fault
too. Each is a ctest entry of the build that its judge belongs to.

usage: tests/canary/canaries.py CANARY...
       tests/canary/canaries.py --list BUILD     names the canaries of a build
"""
import contextlib
import functools
import re
import shutil
import subprocess
import sys
import tempfile
import tomllib
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "gates"))
import gates  # noqa: E402

FAULTS = tomllib.loads((HERE / "faults.toml").read_text())


@contextlib.contextmanager
def scratch():
    (gates.BUILD / "canaries").mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=gates.BUILD / "canaries") as folder:
        yield Path(folder)


def put(root, path, text=None):
    """A file in a tree: the text, or that of the tree's own."""
    file = root / path
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text((gates.ROOT / path).read_text() if text is None else text)


def changed(root, path, old, new):
    text = (root / path).read_text()
    if text.count(old) != 1:
        raise ValueError(f"{path}: {old} is not there once")
    (root / path).write_text(text.replace(old, new))


def fault_is_found(gate, fault):
    """Plants one fault of the list; the gate must be green before, and then find what the list says."""
    with scratch() as root:
        subprocess.run(["git", "init", "-q", root], check=True)
        wanted = (".clang-format", ".gitignore", *fault.get("beside", []), *([fault["path"]] if "old" in fault else []))
        for path in gates.tracked():
            if str(path).startswith(wanted):
                put(root, path)
        check = gates.every_gate()[gate]
        before = check(root)
        if "old" in fault:
            changed(root, fault["path"], fault["old"], fault["new"])
        else:
            put(root, fault["path"], fault["text"])
        try:
            found = [] if before else check(root)
        except ValueError as error:  # a gate may break off at what it finds
            found = [str(error)]
    names_it = any(Path(fault["path"]).name in finding or "old" in fault for finding in found)
    right = not found if fault.get("green") else len(found) == fault["findings"] if "findings" in fault else names_it
    if before or not right:
        print(f"{fault}\nbefore: {before}\nafter: {found}")
    return right and not before


def planted(gate):
    return all([fault_is_found(gate, fault) for fault in FAULTS[gate]])


# One fault for each family of checks in .clang-tidy.
TIDY_FAULTS = """
#include <cstdlib>
#include <string>
int Canary_Function(int value);
int Canary_Function(int value) {
    if (value == 1) {
        return 2;
    } else {
        return 2;
    }
}
int canary__Reserved();
int canary__Reserved() {
    return std::rand();
}
bool canaryCopies(const std::string text);
bool canaryCopies(const std::string text) {
    return text.empty();
}
int canaryLines(int value);
int canaryLines(int value) {
""" + "    value += value;\n" * 61 + """    return value;
}
"""
TIDY_CHECKS = ["readability-identifier-naming", "readability-function-size", "bugprone-branch-clone",
               "concurrency-mt-unsafe", "clang-diagnostic-reserved-identifier", "performance-unnecessary-value-param"]


def tidy():
    """Natively, and in a source that the cross build alone compiles."""
    with scratch() as root:
        for path in gates.tracked():
            if path.parts[0] in ("src", "include") or path.name == ".clang-tidy":
                put(root, path)
        sources = [Path("src/log/history.cpp"), Path("src/platform/windows/thread_id.cpp")]
        before = gates.check_tidy(root, sources)
        for source in sources:
            put(root, source, (root / source).read_text() + TIDY_FAULTS)
        found = gates.check_tidy(root, sources)
    missed = [f"{source}: no {check}" for source in sources for check in TIDY_CHECKS
              if not any(check in finding and str(source) in finding for finding in found)]
    print(*before, *missed, sep="\n")
    return not before and not missed


def instrumented():
    """Archives that are missing, and such as were built without a sanitizer."""
    with scratch() as deps:
        (deps / "canary.c").write_text("int canary(void) { return 0; }\n")
        subprocess.run(["gcc", "-c", "canary.c", "-o", "canary.o"], cwd=deps, check=True)
        missing = gates.check_instrumented(deps)
        for finding in missing:
            preset, name = re.fullmatch(r"(\w+): (\S+) is not built", finding).groups()
            (deps / preset / "lib").mkdir(parents=True, exist_ok=True)
            subprocess.run(["ar", "rc", deps / preset / "lib" / name, "canary.o"], cwd=deps, check=True)
        plain = gates.check_instrumented(deps)
        return len(missing) == 6 and len(plain) == 9 and all("does not call" in finding for finding in plain)


def small_dll(folder, names, source="", options=("-static",)):
    (folder / "canary.def").write_text("LIBRARY canary\nEXPORTS\n" + "".join(f"    {name}\n" for name in names))
    functions = "".join(f'extern "C" int {name}() {{ return 0; }}\n' for name in names)
    (folder / "canary.cpp").write_text(source + functions)
    subprocess.run(["x86_64-w64-mingw32-g++-posix", "-shared", "-o", folder / "canary.dll", folder / "canary.cpp",
                    folder / "canary.def", *options], check=True)
    return folder / "canary.dll"


def exports():
    """A ninth one, and one that is missing."""
    with scratch() as folder:
        eight = sorted(gates.EXPORTS)
        return [bool(gates.check_exports(small_dll(folder, names)))
                for names in (eight, [*eight, "canary"], eight[1:])] == [False, True, True]


def imports():
    """A compiler's library, a function that came after the lowest Windows, and a DLL that a host need not load."""
    throws = "#include <stdexcept>\nvoid raise() { throw std::runtime_error(\"canary\"); }\n"
    dumps = "#include <windows.h>\n#include <dbghelp.h>\nvoid* canaryUses = (void*)&MiniDumpWriteDump;\n"
    names = "#include <windows.h>\nextern \"C\" HRESULT WINAPI SetThreadDescription(HANDLE, PCWSTR);\n" \
            "void* canaryNames = (void*)&SetThreadDescription;\n"
    with scratch() as folder:
        found = [gates.check_imports(small_dll(folder, ["canary"], source, options)) for source, options in (
            (throws, ["-static"]), (throws, []), (names, ["-static"]), (dumps, ["-static", "-ldbghelp"]))]
    return (not found[0] and any("libstdc++" in one for one in found[1]) and
            any("SetThreadDescription" in one for one in found[2]) and found[3] == ["imports dbghelp.dll"])


def tap():
    """The development build in the place of the product, and a product into which the tap was linked."""
    with scratch() as folder:
        dll, linked = folder / gates.DLL.name, folder / gates.DLL.with_suffix(".map").name
        shutil.copy(gates.DLL, dll)
        shutil.copy(gates.DLL.with_suffix(".map"), linked)
        before = gates.check_tap(dll)
        put(folder, linked.name, linked.read_text() + " 0x180001000 __wrap_uv_write\n")
        shutil.copy(gates.DLL.parent / "tap" / gates.DLL.name, dll)
        found = gates.check_tap(dll)
    return not before and found == [f"{dll.name} holds SONVIA_TAP", f"{dll.name} holds qupc-capture",
                                    f"{linked.name} holds __wrap_uv_"]


def abi():
    """Other declarations, and a DLL that imports something else."""
    with scratch() as folder:
        other = gates.check_abi(dll=small_dll(folder, sorted(gates.EXPORTS)))
    return planted("abi") and any("KERNEL32" in line.upper() for line in other)


def identity():
    """Another version, a time, a PDB of another build, a PDB without a name, and one that tells of the build machine."""
    version = "2.1.2110122".encode("utf-16-le")

    def with_bytes(text, at, new):
        return text[:at] + new + text[at + len(new):]

    changes = [
        ("", "", lambda text: text),
        (".dll", "ProductVersion is 3", lambda text: text.replace(version, version.replace(b"2", b"3"))),
        (".dll", "linked at a time", lambda text: with_bytes(text, text.index(b"PE\0\0") + 8, b"\1\0\0\x60")),
        (".dll", "and the PDB says", lambda text: with_bytes(text, text.index(b"RSDS") + 4, b"\0\1\2\3")),
        (".pdb", "does not name setAccountID", lambda text: text.replace(b"setAccountID", b"setAccountIT")),
        (".pdb", "names a folder", lambda text: text + b"/home" + b"/somebody/canary.o"),
    ]
    right = []
    for suffix, expected, change in changes:
        with scratch() as folder:
            for file in (gates.DLL, gates.DLL.with_suffix(".pdb")):
                text = file.read_bytes()
                (folder / file.name).write_bytes(change(text) if file.suffix == suffix else text)
            found = gates.check_identity(folder / gates.DLL.name)
        right.append(any(expected in finding for finding in found) if expected else not found)
        print(found)
    return all(right)


def reproduce():
    """A byte that differs in each of the files that scripts/reproduce compares."""
    windows = gates.BUILD / "windows"
    files = ["bin/SonviaPCAudioDll.dll", "bin/SonviaPCAudioDll.pdb", "lib/SonviaPCAudioDll.dll.a",
             "lib/SonviaPCAudioDll.lib"]
    with scratch() as folder:
        def same():
            return subprocess.run([gates.ROOT / "scripts" / "reproduce", "--compare", windows, folder]).returncode == 0

        for file in files:
            (folder / file).parent.mkdir(exist_ok=True)
            shutil.copy(windows / file, folder / file)
        equal = [same()]
        for file in files:
            text = (folder / file).read_bytes()
            (folder / file).write_bytes(text[:200] + bytes([text[200] ^ 1]) + text[201:])
            equal.append(same())
            (folder / file).write_bytes(text)
    return equal == [True, False, False, False, False]


def warnings(preset):
    """The project's own code is compiled with warnings, and a warning fails the build."""
    entry = next(entry for entry in gates.compile_commands(preset) if "/src/" in entry["file"])
    faults = {"": "int canary(int length) {\n    return length;\n}\n",
              "shadow": "int canary(int length) {\n    { long length = 1; (void)length; }\n    return length;\n}\n",
              "conversion": "char canary(int length) {\n    return length;\n}\n"}
    for warning, text in faults.items():
        with scratch() as folder:
            put(folder, "canary.cpp", text.split(" {")[0] + ";\n" + text)
            command = re.sub(r" -o \S+ -c \S+$", f" -o {folder}/canary.o -c {folder}/canary.cpp", entry["command"])
            run = subprocess.run(command, shell=True, cwd=entry["directory"], capture_output=True, text=True)
        # GCC says -Werror=shadow, clang -Werror,-Wshadow.
        if run.returncode == 0 if warning else run.returncode != 0:
            return False
        if warning and not re.search(rf"-Werror(=|,-W)[a-z-]*{warning}", run.stderr):
            return False
    return True


# --- the runner ---

PASSED = '<testcase classname="Some" name="Passes" status="run" result="completed"/>'
SKIPPED = '<testcase classname="Some" name="Skips" status="run" result="skipped"><skipped message=""/></testcase>'
FAILED = '<testcase classname="Some" name="Fails" status="run" result="completed"><failure message="is 3"/></testcase>'
LONGEST = '<testcase classname="Some" name="Notes" status="run"><properties>' \
          '<property name="longest: wait (ms)" value="{}"/></properties></testcase>'
RUNNING = "program 2\nstart Some.Passes\npassed Some.Passes\nstart Some.Hangs\nfailure a.cpp:1: is 2\n"


def counted(cases, status="", labels=(), output="", written="", name="unit_canary.Some"):
    """What ./test makes of an entry that leaves these cases (None: no file). Returns the row, and what is reported."""
    import summary

    row, tried = summary.Row("canary"), []
    with scratch() as folder:
        if cases is not None:
            put(folder, "result.xml", f"<testsuites><testsuite>{cases}</testsuite></testsuites>" if cases != "torn" else "<a")
        put(folder, "cases.txt", written)
        summary.count_entry(row, tried, summary.Entry(name, list(labels), status, 1, output, folder))
    return (row.passed, row.failed), summary.report([row], tried, "", 0)


def summary_of_a_run():
    """What proves nothing fails, what did not run is named, and a failure comes with its message and its case."""
    def shows(result, numbers, *texts):
        right = result[0] == numbers and all(text in result[1] for text in texts)
        print("" if right else f"{result} instead of {numbers} with {texts}", end="")
        return right

    import summary
    rows = [summary.Row("some", passed=1), summary.Row("canary")]
    summary.fail_empty(rows)
    return all([
        *(shows(counted(cases), (0, 1), "left no result") for cases in (None, "torn", "")),
        shows(counted(PASSED + SKIPPED), (1, 0), "SKIPPED canary: Some.Skips"),
        shows(counted(PASSED + FAILED, "failed"), (1, 1), "Some.Fails\n    is 3", "Some.Fails (ended early)"),
        shows(counted(None, "failed", output="last words"), (0, 1), "last words", "unit_canary.Some (did not finish)"),
        shows(counted(PASSED, "failed"), (1, 1)),
        shows(counted(None, "did not run"), (0, 1)),
        shows(counted(None, "timeout", written=RUNNING), (1, 1), "timeout, in Some.Hangs"),
        shows(counted(LONGEST.format(7) + LONGEST.format(5)), (2, 0), "longest wait (ms)"),
        shows(counted(None, "", ["fuzz"], "stat::number_of_executed_units: 9", name="fuzz_canary"), (1, 0), "9"),
        shows(counted(None, "", ["fuzz"], "", name="fuzz_canary"), (0, 1), "ran no input"),
        shows(counted(None, "failed", ["gate"], "a finding", name="gate_canary"), (0, 1), "a finding"),
        summary.report(rows, [], "", 0).endswith("1 passed, 1 failed"),
    ])


def memcheck():
    """A leak is found by ctest's memory check as `native` is set up for it, and fails."""
    import summary

    native = gates.BUILD / "native"
    with scratch() as folder:
        shutil.copy(native / "DartConfiguration.tcl", folder)
        text = (folder / "DartConfiguration.tcl").read_text().replace(str(native), str(folder))
        put(folder, "DartConfiguration.tcl", text)
        put(folder, "CTestTestfile.cmake", f'add_test(leak "{native}/bin/canary_leak")\nadd_test(none "true")\n')
        status = subprocess.run(["ctest", "-T", "memcheck"], cwd=folder, stdout=subprocess.DEVNULL).returncode
        entries = list(summary.checked_entries(next(folder.glob("Testing/*/DynamicAnalysis.xml")), {}, folder))
    return status != 0 and [(one.name, bool(one.status)) for one in entries] == [("leak", True), ("none", False)]


def coverage():
    """A line that no test reaches, a marked one that is reached, and a source that no test links."""
    import coverage as judge

    source = "int main(int count, char**) {\n    if (count > 1) {\n        return 1;%s\n    }\n    return 0;%s\n}\n"
    mark = " // GCOVR_EXCL_LINE why"
    found = []
    for marks in (("", ""), (mark, ""), (mark, mark)):
        with scratch() as folder:
            put(folder, "src/canary.cpp", source % marks)
            subprocess.run(["g++", "--coverage", "-O0", "src/canary.cpp", "-o", "canary"], cwd=folder, check=True)
            subprocess.run([folder / "canary"], check=True)
            found.append(judge.findings(folder, folder, ["src/canary.cpp", "src/other.cpp"]))
    other = ["src/other.cpp: no line of it was counted"]
    return found == [["src/canary.cpp:3: not reached: return 1;", *other], other,
                     [f"src/canary.cpp:5: marked, but reached: return 0;{mark}", *other]]


def gate_without_a_canary():
    return [gate for gate in [*gates.every_gate(), "canary"] if gate not in every_canary()] == ["canary"]


CANARIES = {
    "windows": {**{gate: functools.partial(planted, gate) for gate in FAULTS if gate != "spelling"}, "exports": exports, "imports": imports,
                "abi": abi, "identity": identity, "tap": tap, "reproduce": reproduce, "summary": summary_of_a_run,
                "warnings": functools.partial(warnings, "windows"), "gate_without_a_canary": gate_without_a_canary},
    "asan": {"spelling": functools.partial(planted, "spelling"), "tidy": tidy, "instrumented": instrumented,
             "clang_warnings": functools.partial(warnings, "asan")},
    "native": {"memcheck": memcheck},
    "coverage": {"coverage": coverage},
}


def every_canary():
    return {name: canary for canaries in CANARIES.values() for name, canary in canaries.items()}


def main(names):
    if names[:1] == ["--list"]:
        print(*(f"{name} canary" for name in CANARIES.get(names[1], {})), sep="\n")
        return 0
    red = [name for name in names if every_canary()[name]()]
    print(*(f"{'ok' if name in red else 'FAIL: stayed green':5}{name}" for name in names), sep="\n")
    return 0 if red == names else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
