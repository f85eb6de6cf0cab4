"""Proof that the gates can turn red: each canary plants one fault where no one else sees it (a copy of the tree, a
small DLL of its own) and fails when its gate does not find it.

usage: python3 scripts/canaries.py [canary...]
"""
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import gates

SCRATCH = gates.BUILD / "canaries"


class Tree:
    """A copy of the tracked files, under version control of its own, to plant faults in."""

    def __init__(self):
        SCRATCH.mkdir(parents=True, exist_ok=True)
        self.root = Path(tempfile.mkdtemp(dir=SCRATCH))
        for path in gates.tracked():
            (self.root / path.parent).mkdir(parents=True, exist_ok=True)
            shutil.copy(gates.ROOT / path, self.root / path)

    def plant(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
        for command in (["init", "-q"], ["add", "-A", "-f"]):
            subprocess.run(["git", "-c", "core.autocrlf=false", "-C", self.root, *command], check=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.root)


def planted(gate, path, text):
    """Whether the gate, run on a copy of the tree that holds one more file, has a finding about that file."""
    with Tree() as tree:
        tree.plant(path, text)
        return any(Path(path).name in finding for finding in gate(tree.root))


def badly_formatted_file():
    return planted(gates.check_format, "src/log/canary.cpp", "int  canary( ){return 1 ;}\n")


def include_from_a_higher_floor():
    return planted(gates.check_floors, "src/protocol/canary.cpp", '#include "session/canary.h"\n')


def windows_header_outside_its_folder():
    return planted(gates.check_floors, "src/log/canary.cpp", "#include <windows.h>\n")


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


def badly_named_function():
    with Tree() as tree:
        source = "src/log/canary.cpp"
        tree.plant(source, "int Canary_Function();\nint Canary_Function() {\n    return 1;\n}\n")
        findings = gates.tidy_one(tree.root, source, ["--extra-arg=-std=c++20"])
        return any("readability-identifier-naming" in finding for finding in findings)


def buffer_that_cppcheck_sees_overrun():
    return planted(gates.check_cppcheck, "src/log/canary.cpp",
                   "int canary() {\n    int bytes[4] = {0, 1, 2, 3};\n    return bytes[4];\n}\n")


def function_of_too_many_lines():
    with Tree() as tree:
        source = "src/log/canary.cpp"
        tree.plant(source, "int canary(int value);\nint canary(int value) {\n" + "    value += value;\n" * 61 +
                   "    return value;\n}\n")
        findings = gates.tidy_one(tree.root, source, ["--extra-arg=-std=c++20"])
        return any("readability-function-size" in finding for finding in findings)


def small_dll(folder, names, source="", options=()):
    folder = Path(folder)
    (folder / "canary.def").write_text("LIBRARY canary\nEXPORTS\n" + "".join(f"    {name}\n" for name in names))
    functions = "".join(f'extern "C" int {name}() {{ return 0; }}\n' for name in names)
    (folder / "canary.cpp").write_text(source + functions)
    dll = folder / "canary.dll"
    subprocess.run(["x86_64-w64-mingw32-g++-posix", "-shared", "-o", dll, folder / "canary.cpp",
                    folder / "canary.def", *options], check=True)
    return dll


def ninth_export():
    SCRATCH.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=SCRATCH) as folder:
        eight = sorted(gates.EXPORTS)
        if gates.check_exports(small_dll(folder, eight, options=["-static"])):
            return False
        return (gates.check_exports(small_dll(folder, eight + ["canary"], options=["-static"])) != [] and
                gates.check_exports(small_dll(folder, eight[1:], options=["-static"])) != [])


def import_of_a_compilers_library():
    SCRATCH.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=SCRATCH) as folder:
        throws = "#include <stdexcept>\nvoid raise() { throw std::runtime_error(\"canary\"); }\n"
        linked_in = small_dll(folder, ["canary"], throws, ["-static"])
        if gates.check_imports(linked_in):
            return False
        return gates.check_imports(small_dll(folder, ["canary"], throws)) != []


def compiled_as_the_project_is(preset, text):
    """Compiles the text with the options that the preset compiles a file of src/ with."""
    entry = next(entry for entry in gates.compile_commands(preset) if "/src/" in entry["file"])
    SCRATCH.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=SCRATCH) as folder:
        source = Path(folder) / "canary.cpp"
        source.write_text(text)
        command = re.sub(r" -o \S+ -c \S+$", f" -o {folder}/canary.o -c {source}", entry["command"])
        return subprocess.run(command, shell=True, cwd=entry["directory"], capture_output=True, text=True)


def warning_in_the_projects_code():
    clean = "int canary(int length);\nint canary(int length) {\n    return length;\n}\n"
    shadow = "int canary(int length);\nint canary(int length) {\n    { long length = 1; (void)length; }\n" \
             "    return length;\n}\n"
    narrowing = "char canary(int length);\nchar canary(int length) {\n    return length;\n}\n"
    for preset in ("windows", "asan", "fuzz"):  # MinGW's compiler, GCC and clang
        if compiled_as_the_project_is(preset, clean).returncode != 0:
            return False
        for text, warning in ((shadow, "shadow"), (narrowing, "conversion")):
            # GCC says -Werror=shadow, clang -Werror,-Wshadow.
            if not re.search(rf"-Werror(=|,-W)[a-z-]*{warning}", compiled_as_the_project_is(preset, text).stderr):
                return False
    return True


CANARIES = [badly_formatted_file, include_from_a_higher_floor, windows_header_outside_its_folder,
            libuv_header_outside_transport, program_that_uses_more_than_the_public_header, unlisted_test_file,
            path_of_somebodys_machine, sample_that_differs_from_its_file, badly_named_function, function_of_too_many_lines,
            buffer_that_cppcheck_sees_overrun, ninth_export,
            import_of_a_compilers_library, warning_in_the_projects_code]


def main(names):
    unknown = set(names) - {canary.__name__ for canary in CANARIES}
    if unknown:
        sys.exit(f"no canary {', '.join(sorted(unknown))}")
    failed = False
    for canary in CANARIES:
        if names and canary.__name__ not in names:
            continue
        red = canary()
        print(f"{'ok' if red else 'FAIL':5}{canary.__name__}{'' if red else ': the gate stayed green'}")
        failed = failed or not red
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
