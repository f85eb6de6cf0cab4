"""The package outside of the tree: packs and unpacks it, judges what is in it, and builds and runs hosts against it.

usage, in the folder for what comes up: python3 package_test.py TEST
"""
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "windows"
UNPACKED = Path("unpacked").absolute()
VERSION = re.search(r"^    VERSION (\S+)$", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]
NAME = f"SonviaPCAudioDll-{VERSION}-win-x64"
PACKAGE = UNPACKED / NAME

sys.path.insert(0, str(ROOT / "tests" / "gates"))
import abi  # noqa: E402
import gates  # noqa: E402
import pefile  # noqa: E402


def run(*command, **options):
    """What the command wrote; the test fails with it when the command does."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", timeout=200, **options)
    expect(done.returncode == 0, f"{' '.join(map(str, command))}: exit code {done.returncode}\n{done.stdout}")
    return done.stdout


def expect(condition, what):
    if not condition:
        sys.exit(f"FAILED: {what}")


def under_wine(*command, **environment):
    return run(ROOT / "scripts" / "wine-run", *command, env={**os.environ, **environment})


def under_wine_in(folder, *command):
    return run(ROOT / "scripts" / "wine-run", *command, cwd=folder)


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


# --- the archives ---

def archives():
    """cpack makes three archives, and all unpack into one folder."""
    for old in ("packed", "unpacked"):
        shutil.rmtree(old, ignore_errors=True)
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", Path("packed").absolute(),
        "-D", "CPACK_OUTPUT_FILE_PREFIX=" + str(Path("packed").absolute()))
    found = sorted(path.name for path in Path("packed").glob("*.zip"))
    expect(found == sorted(f"{NAME}{suffix}.zip" for suffix in ("", "-symbols", "-dev")), f"cpack made {found}")
    for path in Path("packed").glob("*.zip"):
        with zipfile.ZipFile(path) as archive:
            strange = [name for name in archive.namelist() if not name.startswith(f"{NAME}/")]
            expect(not strange, f"{path.name}: outside of the folder: {strange}")
            archive.extractall(UNPACKED)
    shutil.rmtree("packed")


RUNTIME = """bin/SonviaPCAudioDll.dll bin/sonvia-host.exe include/SonviaPCAudioDll.h include/SonviaPCAudio.hpp
    include/SonviaPCAudioLibrary.hpp include/SonviaPCAudioLife.hpp include/SonviaPCAudioNames.hpp
    lib/SonviaPCAudioDll.dll.a lib/SonviaPCAudioDll.lib
    lib/cmake/SonviaPCAudio/SonviaPCAudioConfig.cmake lib/cmake/SonviaPCAudio/SonviaPCAudioConfigVersion.cmake
    CHANGELOG.md README.md SECURITY.md THIRD-PARTY-NOTICES.txt abi.json docs/integrating.md docs/shipping.md
    examples/minimal_host/minimal_host.c examples/package_host/CMakeLists.txt examples/package_host/linked_host.c
    examples/package_host/linked_host.cpp examples/package_host/loaded_host.cpp
    bindings/node/package.json bindings/node/index.js bindings/node/index.d.ts bindings/node/lib/declarations.js
    bindings/csharp/Session.cs bindings/python/sonvia_pc_audio/__init__.py bindings/rust/src/lib.rs
    examples/cpp_host/host.cpp examples/csharp_host/Host.cs examples/python_host/host.py examples/rust_host/main.rs
    examples/node_host/host.js examples/electron_host/main.js docs/hosts/node.md""".split()
SYMBOLS = ["bin/SonviaPCAudioDll.pdb"]
DEV = """dev/verify.cmd dev/bin/QuPCAudio.exe dev/bin/standin_child.exe dev/bin/SonviaPCAudioDll.dll
    dev/bin/gallery/happy.scenario dev/bin/support-bundle.exe dev/bin/tap/SonviaPCAudioDll.dll dev/tools/sonvia.json
    dev/bin/qupc-inspect.exe dev/tools/qupc.lua
    dev/bin/SonviaPCAudioDll.map dev/bin/integration_lifecycle.exe dev/bin/unit_transport.exe
    dev/bin/stress_hostile_service.exe
    dev/bin/no_service/unit_api.exe dev/bin_alone/unit_platform_alone.exe dev/bin/demo_host.exe
    dev/examples/demo_host/demo_host.cpp dev/standin_service/README.md""".split()


def listed(name):
    """The files of a list of sums, which must be those that were unpacked."""
    sums = dict(line.split("  ", 1)[::-1] for line in (PACKAGE / name).read_text().splitlines())
    for path, digest in sums.items():
        expect(hashlib.sha256((PACKAGE / path).read_bytes()).hexdigest() == digest, f"{path} is not what {name} says")
    return set(sums)


def contents():
    """Everything that is promised is there and listed, and the DLL is the one that was built."""
    lists = {name: listed(name) for name in ("SHA256SUMS", "SHA256SUMS-symbols", "SHA256SUMS-dev")}
    for name, promised in zip(lists, (RUNTIME, SYMBOLS, DEV)):
        expect(not set(promised) - lists[name], f"{name} lacks {sorted(set(promised) - lists[name])}")
    files = {str(path.relative_to(PACKAGE)) for path in PACKAGE.rglob("*") if path.is_file()}
    expect(files == set().union(*lists.values(), lists), f"not listed: {sorted(files - set().union(*lists.values()))}")
    for path in ("bin/SonviaPCAudioDll.dll", "dev/bin/SonviaPCAudioDll.dll", "bin/SonviaPCAudioDll.pdb"):
        expect((PACKAGE / path).read_bytes() == (BUILD / "bin" / Path(path).name).read_bytes(), f"{path} is another")
    expect(abi.exports(pefile.PE(PACKAGE / "dev/bin/tap/SonviaPCAudioDll.dll")) == gates.EXPORTS, "the tap exports something else")
    expect(json.loads((PACKAGE / "abi.json").read_text()) == abi.manifest(), "abi.json is not that of the DLL")
    notices = " ".join((PACKAGE / "THIRD-PARTY-NOTICES.txt").read_text().split())
    sources = ROOT / "build/deps/src"
    for licence in (*sources.glob("libuv-*/LICENSE*"), *sources.glob("miniz-*/third-party/miniz/LICENSE")):
        if licence.name != "LICENSE-docs":
            expect(" ".join(licence.read_text().split()) in notices, f"the notices lack {licence.parent.name}'s {licence.name}")
    for name in ("winpthreads", "libstdc++", "GCC RUNTIME LIBRARY EXCEPTION", "CLI11", "JSON for Modern C++"):
        expect(name in notices, f"the notices lack {name}")


# --- hosts ---

def play(folder):
    """Puts the stand-in service into a folder; gives the environment in which it plays the package's scenario."""
    for name in ("QuPCAudio.exe", "standin_child.exe"):
        shutil.copy(PACKAGE / "dev" / "bin" / name, folder)
    return {"SONVIA_STANDIN_SCENARIO": windows_path(PACKAGE / "examples" / "package_host" / "scenario.txt"),
            "SONVIA_STANDIN_RECORD": windows_path(folder / "record.txt")}


def consumer():
    """The package's own samples build against it in a folder elsewhere, in C and C++, linked and loaded, and run."""
    with tempfile.TemporaryDirectory(prefix="sonvia package ") as elsewhere:
        folder = Path(elsewhere)
        shutil.copytree(PACKAGE, folder / "sdk", ignore=shutil.ignore_patterns("dev"))
        toolchain = folder / "toolchain.cmake"
        toolchain.write_text("set(CMAKE_SYSTEM_NAME Windows)\n"
                             "set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)\n"
                             "set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)\n"
                             "set(CMAKE_EXE_LINKER_FLAGS_INIT -static)\n")
        run("cmake", "-G", "Ninja", "-S", folder / "sdk" / "examples" / "package_host", "-B", folder / "build",
            f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", f"-DCMAKE_PREFIX_PATH={folder / 'sdk'}")
        run("cmake", "--build", folder / "build")
        service = play(folder / "build")
        for host in ("linked_host_c", "linked_host_cxx", "loaded_host_c", "loaded_host_cxx"):
            said = under_wine(folder / "build" / f"{host}.exe", windows_path(folder / "logs"), "20000", **service)
            for text in ("event 200003, value 0", 'phone "Handset A"'):
                expect(text in said or (host == "loaded_host_c" and text.startswith("event")), f"{host} said:\n{said}")
        lines = (folder / "build" / "record.txt").read_text()
        expect(lines.count('"reason":"stop"') == 4, f"the service was not stopped by each host:\n{lines}")
        # Enter is pressed at once: the service may not have opened its pipe by then, and is ended by force.
        run(ROOT / "scripts" / "wine-run", folder / "build" / "first_host.exe", env={**os.environ, **service}, input="\n")
        lines = (folder / "build" / "record.txt").read_text()
        expect(lines.count('"event":"start"') == 5, f"the first host did not start the service:\n{lines}")


MSVC_PROGRAM = """#include "SonviaPCAudioDll.h"
int start(void) { return getVersion() == 0 && SONVIA_TEXT_SIZE == 256 ? 42 : 1; }
"""


def visual_c():
    """What Visual C++'s tools do, done with LLVM's: the header with that compiler's layout, and the .lib to lld-link."""
    folder = Path("visual_c").absolute()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    (folder / "program.c").write_text(MSVC_PROGRAM)
    run("clang-14", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-std=c11", "-Wall", "-Wextra", "-Werror",
        "-I", PACKAGE / "include", "-c", folder / "program.c", "-o", folder / "program.obj")
    run("lld-link-14", "/entry:start", "/subsystem:console", "/nodefaultlib", f"/out:{folder / 'program.exe'}",
        folder / "program.obj", PACKAGE / "lib" / "SonviaPCAudioDll.lib")
    shutil.copy(PACKAGE / "bin" / "SonviaPCAudioDll.dll", folder)
    done = subprocess.run([ROOT / "scripts" / "wine-run", folder / "program.exe"], timeout=200)
    expect(done.returncode == 42, f"the program that lld-link made ended with {done.returncode}")


def verify():
    """verify.cmd runs what it is given, says so in its table, and fails when a program does."""
    script = PACKAGE / "dev" / "verify.cmd"
    said = under_wine("cmd", "/c", windows_path(script), "unit_platform_alone", "unit_api_start_up")
    for text in ("ok     unit_platform_alone", "ok     unit_api_start_up", "0 failed"):
        expect(text in said, f"verify.cmd said:\n{said}")
    bad = subprocess.run([ROOT / "scripts" / "wine-run", "cmd", "/c", windows_path(script), "no_such_program"],
                         capture_output=True, text=True, timeout=200)
    expect(bad.returncode == 1 and "FAILED no_such_program" in bad.stdout, f"and then:\n{bad.returncode} {bad.stdout}")


# --- the pages ---

def masked(line):
    """A line without what differs from run to run."""
    return re.sub(r"\d+", "#", line).strip()


def readme():
    """The README's sample of the demo host's output is what it prints, in this order, numbers aside."""
    sample = re.search(r"<!-- output: demo_host -->\n```text\n(.*?)```", (ROOT / "README.md").read_text(), re.S)[1]
    folder = Path("readme").absolute()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    rest = iter(under_wine_in(folder, PACKAGE / "dev" / "bin" / "demo_host.exe").splitlines())
    for line in sample.splitlines():
        expect(any(masked(one) == masked(line) for one in rest), f"the demo host does not print: {line}")


# --- signing ---

def signing():
    """The recipe of docs/shipping.md: a throw-away certificate signs the DLL, and what is changed after that is found."""
    folder = Path("signing").absolute()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    shutil.copy(PACKAGE / "bin" / "SonviaPCAudioDll.dll", folder / "unsigned.dll")
    page = (ROOT / "docs" / "shipping.md").read_text()
    recipe = re.search(r"<!-- recipe: signing -->\n```sh\n(.*?)```", page, re.S)[1]
    run("bash", "-euc", recipe, cwd=folder)
    signed = (folder / "SonviaPCAudioDll.dll").read_bytes()
    changed = bytearray(signed)
    changed[0x1000] ^= 1
    (folder / "changed.dll").write_bytes(changed)
    judged = subprocess.run(["osslsigncode", "verify", "-CAfile", "certificate.pem", "changed.dll"], cwd=folder,
                            capture_output=True, text=True)
    expect(judged.returncode != 0, "a changed DLL passed")


TESTS = {test.__name__: test for test in (archives, contents, consumer, visual_c, verify, readme, signing)}

if __name__ == "__main__":
    TESTS[sys.argv[1]]()
