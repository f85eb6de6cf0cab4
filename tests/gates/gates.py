#!/usr/bin/python3
"""The checks of the tree and the product that no compiler makes: functions that return a list of findings, empty when
the gate is green. Each is a ctest entry of the build that it judges, and so is its canary (tests/canary/canaries.py).

usage: tests/gates/gates.py GATE...
       tests/gates/gates.py --list BUILD     names the gates of a build, and the label of each
       tests/gates/gates.py --write-samples  puts the files' text into the pages that show them
"""
import json
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parents[1] / folder) for folder in ("scripts", "bindings")]
from tree import BUILD, JOBS, ROOT, compile_commands  # noqa: E402

SOURCE_SUFFIXES = {".c", ".cpp", ".h", ".hpp"}


def tracked(root=ROOT):
    """Files under version control and new ones that are not ignored, as paths below root; deleted ones are left out."""
    listed = subprocess.run(["git", "-c", f"safe.directory={root}", "-C", root, "ls-files", "--cached", "--others",
                             "--exclude-standard", "-z"], check=True, capture_output=True, text=True).stdout
    return [Path(name) for name in listed.split("\0") if name and (root / name).is_file()]


def sources(root=ROOT):
    return [path for path in tracked(root) if path.suffix in SOURCE_SUFFIXES]


def in_parallel(work, items):
    with ThreadPoolExecutor(JOBS) as pool:
        return [finding for found in pool.map(work, items) for finding in found]


# --- form ---

def check_format(root=ROOT):
    """clang-format would leave every source as it is."""
    def some(paths):
        run = subprocess.run(["clang-format-14", "--dry-run", "--Werror", "--ferror-limit=1", *paths],
                             cwd=root, capture_output=True, text=True)
        return [line for line in run.stderr.splitlines() if ": error: " in line] or (
            [] if run.returncode == 0 else run.stderr.splitlines())
    paths = sources(root)
    return in_parallel(some, [part for number in range(JOBS) if (part := paths[number::JOBS])])


def cross_include_options():
    """clang finds MinGW's C headers by itself, but not the C++ ones of Debian's compiler."""
    run = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-x", "c++", "-E", "-v", os.devnull],
                         check=True, capture_output=True, text=True)
    listed = run.stderr.split("search starts here:")[-1].split("End of search list")[0].split()
    return [f"--extra-arg=-isystem{os.path.normpath(path)}" for path in listed if "c++" in path]


def tidy_one(root, path, options):
    # The commands for Windows are GCC's, and some of its options are unknown to clang. Its warnings are
    # findings (.clang-tidy), but for lines marked NOLINT, which does not hold for errors.
    run = subprocess.run(["clang-tidy-14", "--quiet", "--extra-arg=-Wno-unknown-warning-option",
                          "--extra-arg=-Wno-error", *options, root / path],
                         cwd=root, capture_output=True, text=True)
    found = [line.replace(f"{root}/", "") for line in run.stdout.splitlines()
             if re.search(r": (error|warning): |^error: ", line)]
    if run.returncode != 0 and not found:
        found = [f"{path}: clang-tidy failed: {run.stderr.strip()[-400:]}"]
    return found


# What CMake writes for GCC and for clang.
PRECOMPILED = re.compile(r" -Winvalid-pch( -include \S+| -Xclang -include(-pch)? -Xclang \S+)+")


def tidy_commands(preset, folder):
    """The preset's compile commands in a folder for clang-tidy, without precompiled headers.

    It would look through all that these bring along, and a missing include would stay hidden."""
    entries = compile_commands(preset)
    for entry in entries:
        entry["command"] = PRECOMPILED.sub("", entry["command"])
    (Path(folder) / "compile_commands.json").write_text(json.dumps(entries))
    return {Path(entry["file"]) for entry in entries}


def check_tidy(root=ROOT, files=None):
    """clang-tidy has nothing to say about src/."""
    if files is None:
        files = [path for path in sources(root) if path.parts[0] == "src" and path.suffix == ".cpp"]
    with tempfile.TemporaryDirectory() as asan, tempfile.TemporaryDirectory() as windows:
        native, cross = tidy_commands("asan", asan), tidy_commands("windows", windows)
        cross_options = cross_include_options()

        def one(path):
            if ROOT / path in native:
                return tidy_one(root, path, ["-p", asan])
            if ROOT / path in cross:
                return tidy_one(root, path, ["-p", windows, *cross_options])
            return [f"{path}: no preset compiles it"]
        return sorted(set(in_parallel(one, files)))


def check_cppcheck(root=ROOT):
    """cppcheck has nothing to say about src/, for either platform."""
    findings = []
    for platform, left_out in (("unix64", "windows"), ("win64", "posix")):
        run = subprocess.run(["cppcheck", "--quiet", "--std=c++20", "--language=c++", f"--platform={platform}",
                              *(["-D_WIN32", "-D_WIN64"] if platform == "win64" else []),
                              "--enable=warning,performance,portability", "--inline-suppr", f"-j{JOBS}",
                              "--template={file}:{line}: {id}: {message}", "-Isrc", "-Iinclude",
                              f"-isrc/platform/{left_out}", "src"], cwd=root, capture_output=True, text=True)
        findings += run.stderr.splitlines()
        if run.returncode != 0:
            findings.append(f"cppcheck failed: {run.stdout.strip()[-400:]}")
    return sorted(set(findings))


# --- architecture ---

FLOORS = ["platform", "log", "transport", "protocol", "session", "api"]
# Which folders may include a header that is not the project's: the rule and the folders below src/.
FOREIGN = [
    (re.compile(r"(windows|winsock2?|ws2tcpip|shell(api|scalingapi)|shl(obj|wapi)|tlhelp32|psapi|winver|process|io|"
                r"direct)\.h", re.I),
     ["platform/windows", "api"], "Windows headers belong to platform/windows and api"),
    (re.compile(r"(unistd|dirent|spawn|pthread|signal|fcntl|dlfcn|sys/(wait|syscall|prctl|stat|types|socket|mman))\.h"),
     ["platform/posix"], "POSIX headers belong to platform/posix"),
    (re.compile(r"(uv|uv/.*)\.h"), ["transport"], "libuv belongs to transport"),
    (re.compile(r"miniz\.h"), ["log"], "miniz belongs to log"),
]
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^">]+)[">]', re.M)


def check_floors(root=ROOT):
    """A floor includes itself and the floors below; what is outside the library includes none of them."""
    findings = []
    for path in sources(root):
        top = path.parts[0]
        if top not in ("src", "tools", "examples", "include"):
            continue
        for match in INCLUDE.finditer((root / path).read_text(errors="replace")):
            name = match.group(1)
            line = (root / path).read_text(errors="replace").count("\n", 0, match.start(1)) + 1
            reason = wrong_include(path, name)
            if reason:
                findings.append(f"{path}:{line}: includes {name}: {reason}")
    return findings


def wrong_include(path, name):
    if {".", ".."} & set(name.split("/")):
        return "an include is named from src/ on, so that its floor can be seen"
    target = name.split("/")[0] if "/" in name else None
    if path.parts[0] != "src":
        is_tap = path.parts[:2] == ("tools", "tap")  # linked into the library, not a program that uses it
        return "only the public header is for programs" if target in FLOORS and not is_tap else None
    floor = path.parts[1]
    if target in FLOORS and floor in FLOORS and FLOORS.index(target) > FLOORS.index(floor):
        return f"{floor} stands below {target}"
    for pattern, folders, reason in FOREIGN:
        if pattern.fullmatch(name):
            below = path.relative_to("src")
            if not any(below.is_relative_to(folder) for folder in folders):
                return reason
    return None


def compiled(preset):
    """The sources that a preset compiles, those that are compiled together included."""
    for entry in compile_commands(preset):
        together = re.findall(r'^#include "(.*)"$', Path(entry["file"]).read_text(), re.M) if "/Unity/" in entry["file"] else []
        yield from map(Path, together or [entry["file"]])


def check_lists(root=ROOT):
    """Every source is built by some preset, so every test file is in a test."""
    built = {path for preset in ("windows", "asan", "tsan") for path in compiled(preset)}
    built = {path.relative_to(ROOT) for path in built if path.is_relative_to(ROOT)}
    return [f"{path}: in no target's list" for path in sources(root)
            if path.suffix in (".c", ".cpp") and path.parts[0] in ("src", "tests", "tools", "examples", "fuzz")
            and path not in built]


def check_paths(root=ROOT):
    """No file names a folder of somebody's machine."""
    homes = r"/(home|root|Users|work)/\w"
    # The checkout's own place, unless it is so short that a path inside the tree may look the same.
    own = f"|{re.escape(str(ROOT))}/" if len(ROOT.parts) > 2 else ""
    pattern = re.compile(rf"(?<![\w.$}}/])({homes}{own})")
    findings = []
    for path in tracked(root):
        try:
            text = (root / path).read_text()
        except UnicodeDecodeError:
            continue
        for number, line in enumerate(text.splitlines(), 1):
            if pattern.search(line):
                findings.append(f"{path}:{number}: {line.strip()[:100]}")
    return findings


SAMPLE = re.compile(r"(<!-- file: (\S+) -->\n```\w*\n)(.*?)(```)", re.S)


def fresh_pages(root):
    """The pages, each with its text and with what it would be with the samples' files in it."""
    for path in tracked(root):
        if path == Path("README.md") or (path.parts[0] == "docs" and path.suffix == ".md"):
            text = (root / path).read_text()
            yield path, text, SAMPLE.sub(lambda match: match[1] + (root / match[2]).read_text() + match[4], text)


def check_samples(root=ROOT):
    """A sample in a page is the file that it is taken from, letter for letter."""
    return [f"{path}: a sample differs from its file (tests/gates/gates.py --write-samples)"
            for path, text, fresh in fresh_pages(root) if text != fresh]


def check_tests_named(root=ROOT):
    """A test, gate or test of the package that a page names as its proof exists."""
    known = set()
    for path in tracked(root):
        if path.parts[0] == "tests" and path.suffix == ".cpp":
            known |= {f"{suite}.{name}" for suite, name in
                      re.findall(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", (root / path).read_text())}
        if path.match("tests/package/CMakeLists.txt"):
            known |= {f"package_{name}" for name in re.findall(r"^sonvia_package_test\((\w+)", (root / path).read_text(), re.M)}
        if path.match("tests/bindings/CMakeLists.txt"):
            known |= {f"hosts_{name}" for name in re.findall(r"^ +sonvia_host_language_test\((\w+)", (root / path).read_text(), re.M)}
    findings = []
    for path in tracked(root):
        if path.suffix != ".md" or path.parts[0] != "docs":
            continue
        text = (root / path).read_text()
        named = re.findall(r"`([A-Z]\w+\.[A-Z]\w+|(?:package|hosts)_\w+)`", text)
        gates = re.findall(r"\bgate `(\w+)`", text)
        findings += [f"{path}: no test {name}" for name in sorted(set(named) - known)]
        findings += [f"{path}: no gate {name}" for name in sorted(set(gates) - set(every_gate()))]
    return findings


def check_proof(root=ROOT):
    """docs/proof.md is as a whole long run wrote it."""
    import summary  # with a module that a machine without ./test need not have

    page = (root / "docs" / "proof.md").read_text()
    match = re.search(r"^Commit (\S+), (\d+) cores:\n\n```text\n(== summary\n.*?\n\d+ passed, \d+ failed)\n```\n", page,
                      re.M | re.S)
    pictures = re.findall(r"^!\[.*\]\(proof/(\w+)\.svg\)$", page, re.M)
    if not match or page != summary.proof(match[3], match[1], match[2], pictures):
        return ["docs/proof.md has another form"]
    if missing := [name for name in pictures if not (root / "docs" / "proof" / f"{name}.svg").is_file()]:
        return [f"docs/proof.md shows pictures that are not there: {missing}"]
    return [] if "\n./test --long: " in match[3] else ["docs/proof.md is not of ./test --long"]


# --- the public header ---

HEADER = "include/SonviaPCAudioDll.h"
HEADER_USE = """#include "SonviaPCAudioDll.h"
#include "SonviaPCAudioDll.h"
int main(void) {
    AudioServiceParam param;
    param.context = &param;
    return setParam((AudioServiceHandle*)0, &param) || SONVIA_VERSION_MAJOR < 2;
}
"""
LANGUAGES = [
    ("c", ["c89", "c99", "c11", "c17", "c2x"], ["gcc", "clang-14", "x86_64-w64-mingw32-gcc-posix"]),
    ("c++", ["c++98", "c++11", "c++14", "c++17", "c++20", "c++2b"],
     ["g++", "clang++-14", "x86_64-w64-mingw32-g++-posix"]),
]


def check_header(root=ROOT):
    """The public header compiles in every version of C and C++, without a warning."""
    def one(case):
        language, standard, compiler = case
        # clang alone calls the bool of its own <stdbool.h> an extension there.
        options = ["-Wno-c99-extensions"] if (compiler, standard) == ("clang-14", "c89") else []
        run = subprocess.run([compiler, f"-std={standard}", "-Wall", "-Wextra", "-pedantic", "-Werror", *options,
                              "-fsyntax-only", "-I", (root / HEADER).parent, "-x", language, "-"],
                             input=HEADER_USE, capture_output=True, text=True)
        errors = [line for line in run.stderr.splitlines() if "error:" in line] or run.stderr.splitlines()[:1]
        return [f"{compiler} -std={standard}: {errors[0].replace(f'{root}/', '')}"] if run.returncode else []
    return in_parallel(one, [(language, standard, compiler) for language, standards, compilers in LANGUAGES
                             for standard in standards for compiler in compilers])


CONTRACT = re.compile(r"/\*\*\n((?: \*.*\n)+?) \*/\n\w[^;{]*?\b(\w+)\([^;{]*\);\n")
CONTRACT_WORDS = ["Thread", "Blocks", "Returns", "On failure", "Callbacks"]


def check_contracts(root=ROOT):
    """Each exported function's contract has the same form: purpose, parameters, thread, blocking, results, callbacks."""
    contracts = {name: text for text, name in CONTRACT.findall((root / HEADER).read_text())}
    findings = [f"{name} has no contract" for name in sorted(EXPORTS - set(contracts))]
    for name, text in contracts.items():
        words = re.findall(r"^ \* (?:@)?(param|Thread|Blocks|Returns|On failure|Callbacks)\b", text, re.M)
        if [word for word in words if word != "param"] != CONTRACT_WORDS or "param" in words[-len(CONTRACT_WORDS):]:
            findings.append(f"{name}: {', '.join(words)} instead of parameters, {', '.join(CONTRACT_WORDS)}")
    return findings


def find_in(root, path, pattern):
    match = re.search(pattern, (root / path).read_text(), re.M)
    return match and ".".join(match.groups())


def version_of(root=ROOT):
    return find_in(root, "CMakeLists.txt", r"^    VERSION (\d+\.\d+\.\d+)$")


def check_lowest_windows(root=ROOT):
    """The lowest Windows that is promised is the one whose functions the DLL may import."""
    lowest = find_in(root, SYSTEM_FUNCTIONS.relative_to(ROOT), r"Windows 10 version (\d+)")
    return [f"{path}: Windows 10 version {found}, not {lowest}"
            for path in ("README.md", HEADER, "docs/limits.md", "CHANGELOG.md")
            if (found := find_in(root, path, r"Windows 10 version (\d+)")) != lowest]


def check_version(root=ROOT):
    """One version: that of CMake stands in the header, the vcpkg manifest and the first entry of the changes."""
    version = version_of(root)
    places = {
        (HEADER, "macros"): r"_MAJOR (\d+)\n#define SONVIA_VERSION_MINOR (\d+)\n#define SONVIA_VERSION_BUILD (\d+)\n",
        (HEADER, "SONVIA_VERSION_STRING"): r'SONVIA_VERSION_STRING "(.*)"$',
        ("vcpkg.json", "version-string"): r'"version-string": "(.*)"',
        ("bindings/node/package.json", "version"): r'"version": "(.*)"',
        ("bindings/python/pyproject.toml", "version"): r'^version = "(.*)"',
        ("bindings/rust/Cargo.toml", "version"): r'^version = "(.*)"',
        ("CHANGELOG.md", "first entry"): r"\A(?:(?!^## ).*\n)*## (\S+)$",
    }
    return ([] if version else ["CMakeLists.txt: no version found"]) + [
        f"{path}: {what}: {found}, not {version}" for (path, what), pattern in places.items()
        if (found := find_in(root, path, pattern)) != version]


# --- the product ---

DLL = BUILD / "windows" / "bin" / "SonviaPCAudioDll.dll"
EXPORTS = {"initSonviaAudioService", "uninitSonviaAudioService", "exitAudioProjection", "getState", "getSourceName",
           "setParam", "setAccountID", "getVersion"}
# What the lowest supported Windows has, by DLL.
SYSTEM_FUNCTIONS = HERE / "windows-functions.txt"


def system_functions(root=ROOT):
    found = {}
    for line in (root / SYSTEM_FUNCTIONS.relative_to(ROOT)).read_text().splitlines():
        if match := re.fullmatch(r"\[(\S+)\]", line):
            functions = found.setdefault(match[1], set())
        elif line and not line.startswith("#"):
            functions |= set(line.split())
    return found


def check_exports(dll=DLL):
    """The DLL exports the eight functions under their plain names and nothing else."""
    if not dll.is_file():
        return [f"{dll.name} is not built"]
    import abi
    import pefile

    exported = abi.exports(pefile.PE(dll))
    return ([f"exports {name}, which is not for hosts" for name in sorted(exported - EXPORTS)] +
            [f"does not export {name}" for name in sorted(EXPORTS - exported)])


def check_imports(dll=DLL):
    """The DLL needs no DLL and no function that the lowest supported Windows does not have."""
    if not dll.is_file():
        return [f"{dll.name} is not built"]
    import abi
    import pefile

    imported, known = abi.imports(pefile.PE(dll)), system_functions()
    if not any(imported.values()):
        return ["imports nothing: the DLL was not understood"]
    return [f"imports {module}" for module in imported if module not in known] + [
        f"imports {name} from {module}, which is not in {SYSTEM_FUNCTIONS.name}"
        for module, names in imported.items() for name in sorted(names - known.get(module, names))]


def check_tap(dll=DLL):
    """The product has nothing of the recorder that the development build of the DLL (tools/tap) has."""
    traces = {dll: ("SONVIA_TAP", "qupc-capture"), dll.with_suffix(".map"): ("__wrap_uv_", "sonvia_tap")}
    return [f"{file.name} is not built" for file in traces if not file.is_file()] + [
        f"{file.name} holds {trace}" for file, names in traces.items() if file.is_file() for trace in names
        if trace.encode() in file.read_bytes() or trace.encode("utf-16-le") in file.read_bytes()]


def check_abi(root=ROOT, dll=DLL):
    """What hosts were compiled against is what abi.json says; tests/gates/abi.py records an intended change."""
    import abi

    return abi.differences(root, dll) if dll.is_file() else [f"{dll.name} is not built"]


def check_bindings(root=ROOT):
    """The names, codes, texts and layouts of every binding are those of the header; bindings/declarations.py writes them."""
    import declarations

    return declarations.differences(root)


def check_identity(dll=DLL):
    """The DLL tells its version and its PDB, which has the names that the DLL has not; no time or folder is in them."""
    pdb = dll.with_suffix(".pdb")
    if not dll.is_file() or not pdb.is_file():
        return [f"{dll.name} or its PDB is not built"]
    import pefile

    module, version = pefile.PE(dll), version_of()
    texts = {name.decode(): text.decode() for one in module.FileInfo[0] if one.Key == b"StringFileInfo"
             for table in one.StringTable for name, text in table.entries.items()}
    numbers = [int(number) for number in version.split(".")]
    findings = [f"{name} is {texts.get(name)}, not {version}" for name in ("FileVersion", "ProductVersion")
                if texts.get(name) != version]
    findings += [f"{name} is missing" for name in ("CompanyName", "LegalCopyright") if not texts.get(name)]
    fixed = module.VS_FIXEDFILEINFO[0]
    number = (*divmod(fixed.FileVersionMS, 1 << 16), *divmod(fixed.FileVersionLS, 1 << 16))
    if number != (*numbers[:2], *divmod(numbers[2], 1000)):
        findings.append(f"the version number is {number}")
    if module.FILE_HEADER.TimeDateStamp != 0:
        findings.append(f"it was linked at a time: {module.FILE_HEADER.TimeDateStamp}")
    if module.FILE_HEADER.PointerToSymbolTable != 0:
        findings.append("it has symbols of its own")
    shown = subprocess.run(["llvm-pdbutil-14", "dump", "--summary", "--publics", pdb],
                           capture_output=True, text=True).stdout
    guid, debug = re.search(r"GUID: \{(.*)\}", shown), getattr(module, "DIRECTORY_ENTRY_DEBUG", [None])[0]
    own = debug and debug.entry and (debug.entry.PdbFileName.rstrip(b"\0").decode(), debug.entry.Signature_String[:32])
    if not guid or own != (pdb.name, guid[1].replace("-", "")):
        findings.append(f"its PDB is {own}, and the PDB says {guid and guid[1]}")
    findings += [f"{pdb.name} does not name {name}" for name in sorted(EXPORTS) + ["_Z9ThreadFun"]
                 if not re.search(rf"S_PUB32 .*`{name}", shown)]
    home = re.compile(rb"/(?:home|root|Users|work|tmp)/[\w./-]+|" + re.escape(str(ROOT).encode()))
    findings += [f"{file.name} names a folder: {folder.decode()}" for file in (dll, pdb)
                 for folder in sorted(set(home.findall(file.read_bytes())))]
    return findings


def check_instrumented(deps=BUILD / "deps"):
    """The sanitizer presets' dependencies are built with the sanitizers, and with what libFuzzer steers by."""
    findings = []
    for preset, symbols in (("asan", ["__asan_", "__sanitizer_cov_"]), ("tsan", ["__tsan_"])):
        for name in ("libuv.a", "libminiz.a", "libgtest.a"):
            library = deps / preset / "lib" / name
            if not library.is_file():
                findings.append(f"{preset}: {name} is not built")
                continue
            called = subprocess.run(["nm", library], capture_output=True, text=True).stdout
            findings += [f"{preset}: {name} does not call {symbol}..." for symbol in symbols if symbol not in called]
    return findings


def check_reproduce():
    """A build in another folder gives the same DLL, PDB and import libraries, byte for byte."""
    run = subprocess.run([ROOT / "scripts" / "reproduce"], capture_output=True, text=True)
    return [] if run.returncode == 0 else (run.stdout + run.stderr).splitlines()[-20:] or ["scripts/reproduce failed"]


EXCLUDED = re.compile(r"GCOVR_EXCL_(LINE|START)\b(.*)")


def check_excluded_lines(root=ROOT):
    """A line that no test reaches says why: GCOVR_EXCL_LINE, or GCOVR_EXCL_START of several, and then the reason."""
    return [f"{path}:{number}: no reason" for path in sources(root) if path.parts[0] == "src"
            for number, line in enumerate((root / path).read_text().splitlines(), 1)
            if (match := EXCLUDED.search(line)) and len(match[2].split()) < 2]


def check_spelling(root=ROOT):
    """Every word is in one of cspell's dictionaries (cspell.json) or in tests/spelling/words.txt."""
    fetch = subprocess.run([ROOT / "scripts" / "fetch-npm", "spelling"], capture_output=True, text=True)
    if fetch.returncode != 0:
        return [fetch.stderr.strip()]
    run = subprocess.run([BUILD / "npm-spelling" / "node_modules" / ".bin" / "cspell", "lint", "--config",
                          root / "cspell.json", "--root", root, "--no-progress", "--no-summary", "--relative",
                          "--file-list", "stdin"],
                         cwd=root, input="\n".join(map(str, tracked(root))), capture_output=True, text=True)
    findings = run.stdout.splitlines()
    if run.returncode != 0 and not findings:
        findings.append(f"cspell failed: {run.stderr.strip()[-400:]}")
    return findings


# By the build that they judge, which is made before; those of "asan" look at the commands of every build.
GATES = {
    "windows": {
        "format": check_format,
        "floors": check_floors,
        "paths": check_paths,
        "samples": check_samples,
        "tests_named": check_tests_named,
        "proof": check_proof,
        "header": check_header,
        "contracts": check_contracts,
        "version": check_version,
        "lowest_windows": check_lowest_windows,
        "excluded_lines": check_excluded_lines,
        "exports": check_exports,
        "imports": check_imports,
        "identity": check_identity,
        "tap": check_tap,
        "abi": check_abi,
        "bindings": check_bindings,
        "cppcheck": check_cppcheck,
        "reproduce": check_reproduce,
    },
    "asan": {
        "lists": check_lists,
        "instrumented": check_instrumented,
        "spelling": check_spelling,
        "tidy": check_tidy,
    },
}
LONG = {"reproduce"}  # what takes minutes: ./test --long runs these too


def every_gate():
    return {name: check for gates in GATES.values() for name, check in gates.items()}


def main(names):
    if names[:1] == ["--list"]:
        print(*(f"{name} gate{' long' * (name in LONG)}" for name in GATES.get(names[1], {})), sep="\n")
        return 0
    if names == ["--write-samples"]:
        for path, text, fresh in fresh_pages(ROOT):
            if text != fresh:
                (ROOT / path).write_text(fresh)
        return 0
    failed = False
    for name in names or set(every_gate()) - LONG:
        check = every_gate()[name]
        findings = check()
        print(f"{'FAIL' if findings else 'ok':5}{name}: {check.__doc__}")
        for finding in findings:
            print(f"       {finding}")
        failed = failed or bool(findings)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
