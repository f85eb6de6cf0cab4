"""Proof that the gates can turn red, and what else ./test judges by: each canary plants one fault where no one else
sees it (a copy of the tree, a small program or result of its own) and fails when nothing is found. A gate without a
canary fails too. What the sanitizers and the test runner find is proved by the programs in tests/canary.

usage: python3 scripts/canaries.py [canary...]
"""
import contextlib
import functools
import re
import shutil
import subprocess
import sys
import threading
from pathlib import Path

import checks
import gates
import run_canaries
from scratch import Tree, scratch


def planted(gate, path, text):
    """Whether the gate, run on a copy of the tree that holds one more file, has a finding about that file."""
    with Tree() as tree:
        tree.plant(path, text)
        return any(Path(path).name in finding for finding in gate(tree.root))


def badly_formatted_file():
    """Planted files are new to version control: such ones are judged too."""
    return planted(gates.check_format, "src/log/canary.cpp", "int  canary( ){return 1 ;}\n")


def badly_formatted_file_in_an_ignored_folder():
    """What git ignores is nobody's fault."""
    return not planted(gates.check_format, "build/canary.cpp", "int  canary( ){return 1 ;}\n")


def include_from_a_higher_floor():
    return planted(gates.check_floors, "src/protocol/canary.cpp", '#include "session/canary.h"\n')


def include_by_way_of_the_folder_above():
    return all(planted(gates.check_floors, "src/protocol/canary.cpp", f'#include "{name}"\n')
               for name in ("../session/canary.h", "./../session/canary.h", "platform/../session/canary.h"))


def windows_header_outside_its_folder():
    return planted(gates.check_floors, "src/log/canary.cpp", "#include <windows.h>\n")


def windows_runtime_header_outside_its_folder():
    return planted(gates.check_floors, "src/log/canary.cpp", "#include <process.h>\n")


def posix_header_outside_its_folder():
    return all(planted(gates.check_floors, "src/log/canary.cpp", f"#include <{name}>\n")
               for name in ("unistd.h", "fcntl.h", "sys/stat.h"))


def miniz_header_outside_log():
    return planted(gates.check_floors, "src/session/canary.cpp", "#include <miniz.h>\n")


def libuv_header_outside_transport():
    return planted(gates.check_floors, "src/session/canary.cpp", "  #  include <uv.h>\n")


def program_that_uses_more_than_the_public_header():
    return planted(gates.check_floors, "examples/canary.cpp", '#include "transport/canary.h"\n')


def unlisted_test_file():
    return planted(gates.check_lists, "tests/unit/log/canary_test.cpp", "int canary;\n")


def path_of_somebodys_machine():
    return planted(gates.check_paths, "docs/canary.md", "See " + "/home" + "/somebody/canary.\n")


def sample_that_differs_from_its_file():
    return planted(gates.check_samples, "docs/canary.md", "<!-- file: test -->\n```sh\nrm -r build\n```\n")


def proof_that_does_not_exist():
    """A test, a gate, and tests of a host and of the package that nobody has."""
    with Tree() as tree:
        tree.plant("docs/canary.md", "Shown by `Canary.Sings`, gate `canary`, `hosts_canary` and test `package_canary`.\n")
        return len(gates.check_tests_named(tree.root)) == 4


def proof_of_another_run():
    return all(edited(gates.check_proof, "docs/proof.md", old, new) for old, new in (
        ("./test --long: ", "./test: "), ("== summary", "== results"), ("writes this page", "makes this page")))


@contextlib.contextmanager
def described():
    """A copy of what gates compare with each other by name: a tree of its own would take a second each time."""
    with scratch() as root:
        for path in ("CMakeLists.txt", "README.md", "CHANGELOG.md", "vcpkg.json", "bindings/node/package.json", gates.HEADER, gates.abi.MANIFEST,
                     "scripts/windows-functions.txt", "docs/limits.md", "docs/proof.md"):
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(gates.ROOT / path, root / path)
        yield root


def edited(gate, path, old, new):
    """What the gate finds when one file says something else."""
    with described() as root:
        text = (root / path).read_text()
        if text.count(old) != 1:
            raise ValueError(f"{path}: {old} is not there once")
        (root / path).write_text(text.replace(old, new))
        return gate(root)


def header_that_not_every_language_takes():
    """A comment that C89 has not, and a field of the record that has moved."""
    comment = edited(gates.check_header, gates.HEADER, "#ifndef __cplusplus\n", "// canary\n#ifndef __cplusplus\n")
    moved = edited(gates.check_header, gates.HEADER, "    char deviceID[SONVIA_TEXT_SIZE];\n    char sn[",
                   "    char deviceID[SONVIA_TEXT_SIZE + 8];\n    char sn[")
    return len(comment) == 3 and len(moved) == 33


def page_that_promises_another_windows():
    return all(edited(gates.check_lowest_windows, path, old, old.replace("1507", "1909")) for path, old in (
        ("README.md", "Windows 10 version 1507"), ("docs/limits.md", "supported versions are Windows 10 version 1507")))


def contract_that_is_incomplete():
    return all(len(edited(gates.check_contracts, gates.HEADER, old, "")) == 1 for old in (
        " * On failure: gives \"phone\".\n",
        "int getVersion(void);\n"))


def version_that_differs():
    return all(len(edited(gates.check_version, path, old, new)) == count for path, old, new, count in (
        ("CMakeLists.txt", "VERSION 2.1.2110122", "VERSION 2.1.2110123", 5),
        (gates.HEADER, "_BUILD 2110122", "_BUILD 2110121", 1),
        (gates.HEADER, '_STRING "2.1.2110122"', '_STRING "2.1"', 1),
        ("vcpkg.json", "2.1.2110122", "2.1.2110121", 1),
        ("bindings/node/package.json", "2.1.2110122", "2.1.2110121", 1),
        ("CHANGELOG.md", "## 2.1.2110122", "## 3.0.0\n\n## 2.1.2110122", 1)))


# One fault for each family of checks in .clang-tidy.
TIDY_FAULTS = """
#include <cstdlib>
#include <string>
int Canary_Function(int value);
int Canary_Function(int value) {
    return value;
}
int canaryBranches(int value);
int canaryBranches(int value) {
    if (value == 1) {
        return 2;
    } else {
        return 2;
    }
}
int canaryThreads();
int canaryThreads() {
    return std::rand();
}
int canary__Reserved(int value);
int canary__Reserved(int value) {
    return value;
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


@functools.cache  # a run for each family would take a minute
def findings_of_tidy(source):
    with Tree() as tree:
        if gates.check_tidy(tree.root, [Path(source)]):
            return []  # it is red without them, so that it were red with them would prove nothing
        tree.plant(source, (tree.root / source).read_text() + TIDY_FAULTS)
        return gates.check_tidy(tree.root, [Path(source)])


ONE_TIDY = threading.Lock()


def tidy_findings(source):
    """What the gate finds in a source of the tree once the faults stand at its end."""
    with ONE_TIDY:  # or canaries that run at once would each fill the cache
        return findings_of_tidy(source)


def found_by_clang_tidy(check):
    """Natively, and in a source that the cross build alone compiles."""
    return all(any(check in finding and source in finding for finding in tidy_findings(source))
               for source in ("src/log/history.cpp", "src/platform/windows/thread_id.cpp"))


def badly_named_function():
    return found_by_clang_tidy("readability-identifier-naming")


def function_of_too_many_lines():
    return found_by_clang_tidy("readability-function-size")


def branches_that_are_the_same():
    return found_by_clang_tidy("bugprone-branch-clone")


def call_that_threads_cannot_share():
    return found_by_clang_tidy("concurrency-mt-unsafe")


def name_that_is_reserved():
    return found_by_clang_tidy("clang-diagnostic-reserved-identifier")


def parameter_that_is_copied_for_nothing():
    return found_by_clang_tidy("performance-unnecessary-value-param")


def buffer_that_cppcheck_sees_overrun():
    return planted(gates.check_cppcheck, "src/log/canary.cpp",
                   "int canary() {\n    int bytes[4] = {0, 1, 2, 3};\n    return bytes[4];\n}\n")


def archives_without_a_sanitizer():
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


def small_dll(folder, names, source="", options=()):
    (folder / "canary.def").write_text("LIBRARY canary\nEXPORTS\n" + "".join(f"    {name}\n" for name in names))
    functions = "".join(f'extern "C" int {name}() {{ return 0; }}\n' for name in names)
    (folder / "canary.cpp").write_text(source + functions)
    dll = folder / "canary.dll"
    subprocess.run(["x86_64-w64-mingw32-g++-posix", "-shared", "-o", dll, folder / "canary.cpp",
                    folder / "canary.def", *options], check=True)
    return dll


def ninth_export():
    with scratch() as folder:
        eight = sorted(gates.EXPORTS)
        if gates.check_exports(small_dll(folder, eight, options=["-static"])):
            return False
        return (gates.check_exports(small_dll(folder, eight + ["canary"], options=["-static"])) != [] and
                gates.check_exports(small_dll(folder, eight[1:], options=["-static"])) != [])


def import_of_a_compilers_library():
    with scratch() as folder:
        throws = "#include <stdexcept>\nvoid raise() { throw std::runtime_error(\"canary\"); }\n"
        linked_in = small_dll(folder, ["canary"], throws, ["-static"])
        if gates.check_imports(linked_in):
            return False
        return gates.check_imports(small_dll(folder, ["canary"], throws)) != []


def import_that_older_windows_has_not():
    """Of a function that kernel32.dll got after the lowest supported version, and of a DLL that a host need not load."""
    with scratch() as folder:
        uses = "#include <windows.h>\n#include <{header}>\nvoid* canaryUses = (void*)&{name};\n"
        dumps = uses.format(header="dbghelp.h", name="MiniDumpWriteDump")
        names = "#include <windows.h>\nextern \"C\" HRESULT WINAPI SetThreadDescription(HANDLE, PCWSTR);\n" \
                "void* canaryNames = (void*)&SetThreadDescription;\n"
        found = [gates.check_imports(small_dll(folder, ["canary"], source, ["-static", "-ldbghelp"]))
                 for source in ("", names, dumps)]
        return (not found[0] and any("SetThreadDescription" in finding for finding in found[1]) and
                found[2] == ["imports dbghelp.dll"])


def change_of_what_hosts_were_compiled_against():
    """A field that has moved, a constant, an argument's type; and a DLL that imports something else."""
    fields = "    char deviceID[SONVIA_TEXT_SIZE];\n    char sn[SONVIA_TEXT_SIZE];"
    with described() as root:
        text = (root / gates.HEADER).read_text().replace("#if defined(_WIN64) ||", "#if 0 &&")
        same = gates.check_abi(root)
        moved = []
        for old, new in ((fields, "    char sn[SONVIA_TEXT_SIZE];\n    char deviceID[SONVIA_TEXT_SIZE];"),
                         ("FIRST_AUDIO = 200003", "FIRST_AUDIO = 200004"),
                         ("setAccountID(AudioServiceHandle* handle, const char*",
                          "setAccountID(AudioServiceHandle* handle, char*")):
            if text.count(old) != 1:
                raise ValueError(f"{old} is not there once")
            (root / gates.HEADER).write_text(text.replace(old, new))
            moved.append(gates.check_abi(root))
    with scratch() as folder:
        other = gates.check_abi(dll=small_dll(folder, sorted(gates.EXPORTS), options=["-static"]))
    return not same and all(moved) and any("imports" in line or "KERNEL32" in line.upper() for line in other)


def binding_that_is_not_of_this_header():
    """Another code, another function and another text each turn a binding red; so does a constant without a text."""
    manifest, texts, written = gates.abi.MANIFEST, gates.bindings.TEXTS, gates.bindings.FILES
    with described() as root:
        for path in (texts, *written):
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(gates.ROOT / path, root / path)

        def found(path, old, new):
            text = (root / path).read_text()
            if text.count(old) != 1:
                raise ValueError(f"{path}: {old} is not there once")
            (root / path).write_text(text.replace(old, new))
            try:
                return gates.check_bindings(root)
            except ValueError as error:
                return [str(error)]
            finally:
                (root / path).write_text(text)

        same = gates.check_bindings(root)
        other_code = found(manifest, '"SONVIA_EVENT_FIRST_AUDIO": 200003', '"SONVIA_EVENT_FIRST_AUDIO": 200004')
        new_code = found(manifest, '"SONVIA_ERROR_STREAM": -3,', '"SONVIA_ERROR_STREAM": -3, "SONVIA_ERROR_NEW": -4,')
        other_text = found(texts, '"first audio"', '"the first audio"')
        by_hand = [found(path, "bindings.py", "hand") for path in written]
    return (not same and len(other_code) >= len(written) and len(new_code) == 1 and "SONVIA_ERROR_NEW" in new_code[0] and
            len(other_text) >= len(written) - 1 and all(len(one) == 1 for one in by_hand))


def dll_that_is_not_what_it_says():
    """Another version, a time, a PDB of another build, and one that tells of the build machine."""
    version = "2.1.2110122".encode("utf-16-le")

    def found(suffix, change):
        with scratch() as folder:
            for file in (gates.DLL, gates.DLL.with_suffix(".pdb")):
                text = file.read_bytes()
                (folder / file.name).write_bytes(change(text) if file.suffix == suffix else text)
            return gates.check_identity(folder / gates.DLL.name)

    def with_a_time(text):
        at = text.index(b"PE\0\0") + 8
        return text[:at] + b"\1\0\0\x60" + text[at + 4:]

    def of_another_build(text):
        at = text.index(b"RSDS") + 4
        return text[:at] + bytes([text[at] ^ 1]) + text[at + 1:]

    return (found("", None) == [] and
            len(found(".dll", lambda text: text.replace(version, version.replace(b"2", b"3")))) == 2 and
            len(found(".dll", with_a_time)) == 1 and
            len(found(".dll", of_another_build)) == 1 and
            len(found(".pdb", lambda text: text.replace(b"setAccountID", b"setAccountIT"))) == 1 and
            any("names a folder" in finding
                for finding in found(".pdb", lambda text: text + b"/home" + b"/somebody/canary.o")))


def build_that_differs_in_one_byte():
    """In each of the files that scripts/reproduce compares."""
    script, windows = gates.ROOT / "scripts" / "reproduce", gates.BUILD / "windows"
    files = [windows / name for name in ("bin/SonviaPCAudioDll.dll", "bin/SonviaPCAudioDll.pdb",
                                         "lib/SonviaPCAudioDll.dll.a", "lib/SonviaPCAudioDll.lib")]
    with scratch() as folder:
        def same():
            return subprocess.run([script, "--compare", windows, folder], capture_output=True).returncode == 0

        for file in files:
            (folder / file.relative_to(windows).parent).mkdir(exist_ok=True)
            shutil.copy(file, folder / file.relative_to(windows))
        equal = [same()]
        for file in files:
            copy = folder / file.relative_to(windows)
            text = copy.read_bytes()
            copy.write_bytes(text[:200] + bytes([text[200] ^ 1]) + text[201:])
            equal.append(same())
            copy.write_bytes(text)
    return equal == [True, False, False, False, False]


def compiled_as_the_project_is(preset, text):
    """Compiles the text with the options that the preset compiles a file of src/ with."""
    entry = next(entry for entry in gates.compile_commands(preset) if "/src/" in entry["file"])
    with scratch() as folder:
        source = folder / "canary.cpp"
        source.write_text(text)
        command = re.sub(r" -o \S+ -c \S+$", f" -o {folder}/canary.o -c {source}", entry["command"])
        return subprocess.run(command, shell=True, cwd=entry["directory"], capture_output=True, text=True)


def warning_in_the_projects_code():
    clean = "int canary(int length);\nint canary(int length) {\n    return length;\n}\n"
    shadow = "int canary(int length);\nint canary(int length) {\n    { long length = 1; (void)length; }\n" \
             "    return length;\n}\n"
    narrowing = "char canary(int length);\nchar canary(int length) {\n    return length;\n}\n"
    for preset in ("windows", "asan"):  # GCC and clang
        if compiled_as_the_project_is(preset, clean).returncode != 0:
            return False
        for text, warning in ((shadow, "shadow"), (narrowing, "conversion")):
            # GCC says -Werror=shadow, clang -Werror,-Wshadow.
            if not re.search(rf"-Werror(=|,-W)[a-z-]*{warning}", compiled_as_the_project_is(preset, text).stderr):
                return False
    return True


def gate_without_a_canary():
    return without_canary({"canary": None}) == ["canary"]


# For each gate, and for each other thing that ./test judges by.
CANARIES = {
    "format": [badly_formatted_file, badly_formatted_file_in_an_ignored_folder],
    "floors": [include_from_a_higher_floor, include_by_way_of_the_folder_above, windows_header_outside_its_folder,
               windows_runtime_header_outside_its_folder, posix_header_outside_its_folder,
               libuv_header_outside_transport, miniz_header_outside_log,
               program_that_uses_more_than_the_public_header],
    "lists": [unlisted_test_file],
    "paths": [path_of_somebodys_machine],
    "samples": [sample_that_differs_from_its_file],
    "proof": [proof_of_another_run],
    "tests_named": [proof_that_does_not_exist],
    "header": [header_that_not_every_language_takes],
    "contracts": [contract_that_is_incomplete],
    "lowest_windows": [page_that_promises_another_windows],
    "version": [version_that_differs],
    "exports": [ninth_export],
    "imports": [import_of_a_compilers_library, import_that_older_windows_has_not],
    "abi": [change_of_what_hosts_were_compiled_against],
    "bindings": [binding_that_is_not_of_this_header],
    "identity": [dll_that_is_not_what_it_says],
    "reproduce": [build_that_differs_in_one_byte],
    "instrumented": [archives_without_a_sanitizer],
    "cppcheck": [buffer_that_cppcheck_sees_overrun],
    "tidy": [badly_named_function, function_of_too_many_lines, branches_that_are_the_same,
             call_that_threads_cannot_share, name_that_is_reserved, parameter_that_is_copied_for_nothing],
    "the compilers": [warning_in_the_projects_code],
    "the canaries": [gate_without_a_canary],
    **run_canaries.CANARIES,
}


def without_canary(names):
    return [name for name in names if not CANARIES.get(name)]


def named_checks():
    """Pairs of a name and a function that returns what is wrong."""
    yield "every_gate_has_a_canary", lambda: [f"{gate} has none" for gate in without_canary([*gates.GATES, *gates.SLOW_GATES])]
    for judge, its_canaries in CANARIES.items():
        for canary in its_canaries:
            yield canary.__name__, lambda canary=canary, judge=judge: [] if canary() else [f"{judge} stayed green"]


def main(names):
    unknown = set(names) - {name for name, _ in named_checks()}
    if unknown:
        sys.exit(f"no canary {', '.join(sorted(unknown))}")
    failed = False
    for name, check in named_checks():
        if names and name not in names:
            continue
        found = checks.findings(check)
        print(f"{'FAIL' if found else 'ok':5}{name}{''.join(f': {finding}' for finding in found)}", flush=True)
        failed = failed or bool(found)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
