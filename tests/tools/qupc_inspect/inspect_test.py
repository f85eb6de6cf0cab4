"""qupc-inspect as its users meet it: files and pipes in, text and exit codes out.

usage, in the folder for what comes up: python3 inspect_test.py TEST BIN [LAUNCHER...]

LAUNCHER runs a program of the folder BIN; none natively.
"""
import json
import os
import re
import resource
import shutil
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[3]
CAPTURES = ROOT / "tests" / "tools" / "captures"
KEY = "2b7e151628aed2a6abf7158809cf4f3c"
IV = "000102030405060708090a0b0c0d0e0f"
BIN, LAUNCHER = Path(sys.argv[2]), sys.argv[3:]
WINDOWS = (BIN / "qupc-inspect.exe").is_file()
LONG = os.environ.get("SONVIA_EFFORT") == "long"
HANG = 2000 if LONG else 200  # seconds in which anything here is long done


def expect(condition, what):
    if not condition:
        sys.exit(f"FAILED: {what}")


def program(name):
    return [*LAUNCHER, str(BIN / name)]


INSPECT = program("qupc-inspect.exe" if WINDOWS else "qupc-inspect")


def inspect(*arguments, code=0, given=None, **environment):
    """What it wrote, as bytes, and what it said of mistakes."""
    done = subprocess.run([*INSPECT, *map(str, arguments)], input=given, capture_output=True, timeout=HANG,
                          stdin=None if given is not None else subprocess.DEVNULL, env={**os.environ, **environment})
    expect(done.returncode == code, f"{arguments}: exit code {done.returncode}\n{done.stdout[-4000:]}\n{done.stderr[-4000:]}")
    return done.stdout, done.stderr.decode(errors="replace")


def shown(*arguments, **options):
    return inspect("show", *arguments, **options)[0].decode()


def packet(payload=b"", command=34, sequence=1, size=None):
    return struct.pack(">BHHI", 0x24, command, sequence, len(payload) if size is None else size) + payload


def number(key, value):
    return bytes([len(key)]) + key.encode() + b"\6" + struct.pack(">i", value)


# --- there and back ---

def bytes_by_side(text):
    """The hexadecimal text of `encode --hex`, or of a capture that is written like that."""
    sides = {">": b"", "<": b""}
    for line in text.splitlines():
        line = line.split("#")[0].strip()
        if line:
            sides[line[0]] += bytes.fromhex(line[1:])
    return sides


def round_trip():
    """Every capture of the tree, and every stream of the fuzzers' corpus, keeps its bytes when it is decoded and encoded."""
    def back(*arguments):
        lines, _ = inspect("show", "--json", *arguments)
        return inspect("encode", "--hex", "-", given=lines)[0].decode()

    for path in sorted(CAPTURES.glob("*.hex")):
        for key in ((), ("--key", KEY, "--iv", IV)):
            expect(bytes_by_side(back(path, *key)) == bytes_by_side(path.read_text()), f"{path.name} {key}")
    for path in sorted(CAPTURES.glob("*.jsonl")):
        original = inspect("encode", "--hex", path)[0].decode()
        expect(bytes_by_side(back(path)) == bytes_by_side(original), path.name)
        expect(shown(path) == shown("-", given=inspect("show", "--json", path)[0]), f"{path.name} is shown differently")
    # What is in front of a stream there says how it is to be cut. Under Wine each program takes a while to start.
    streams = sorted((ROOT / "fuzz" / "corpus" / "packet_stream").iterdir())
    expect(len(streams) > 20, f"{len(streams)} streams")
    for path in streams[::8] if WINDOWS and not LONG else streams:
        stream = path.read_bytes()[3:]
        Path("stream").write_bytes(stream)
        expect(bytes_by_side(back("--as", "raw", "--from", "host", "stream"))[">"] == stream, path.name)
    raw = b"".join(packet(number("k", 10 * step), sequence=step) for step in range(3))
    lines = inspect("show", "--json", "--as", "raw", "-", given=raw)[0]
    expect(inspect("encode", "--raw", "-", given=lines)[0] == raw, "raw bytes: an end of line was changed")


def encode():
    """Packets are made of JSON and of a scenario, to a file and to standard output."""
    line = b'{"from":"service","command":"Notify","seq":1,"entries":[{"key":"k","type":6,"value":266}]}\n'
    expect(inspect("encode", "--raw", "-", given=line)[0] == packet(number("k", 266)), "of JSON")
    inspect("encode", "--raw", "--out", "made", "-", given=b'notify int "k" 266\n')
    expect(Path("made").read_bytes() == packet(number("k", 266)), "of a scenario, into a file")


# --- what a command line and an input may have wrong ---

def exit_codes():
    """0 done, 2 for the input, 3 for the command line; what is wrong is said on standard error."""
    good = CAPTURES / "session.jsonl"
    expect("Exit codes" in inspect("--help")[0].decode(), "--help")
    for arguments in ((), ("display", good), ("show",), ("show", good, "--filter", "form=host"), ("show", good, "--key", "12"),
                      ("show", "--json", "--hex", good), ("encode",), ("replay", good), ("pcap", "--from", "phone", good)):
        said = inspect(*arguments, code=3)[1]
        expect(said.strip(), f"{arguments}: nothing was said")
    Path("bad.jsonl").write_text('{"event":"connect"}\n{"from":"nobody","bytes":"24"}\n')
    for command in ("show", "pcap", "encode"):
        expect('bad.jsonl:2: expected "from" to be "host" or "service"' in inspect(command, "bad.jsonl", code=2)[1], command)
        expect("nothing.jsonl: expected a file that can be read" in inspect(command, "nothing.jsonl", code=2)[1], command)
    expect("no folder/out" in inspect("pcap", "--out", "no folder/out", good, code=2)[1], "a file that cannot be written")
    if not WINDOWS:
        with open("/dev/full", "wb") as full:
            done = subprocess.run([*INSPECT, "show", str(good)], stdout=full, stderr=subprocess.PIPE, timeout=HANG)
        expect(done.returncode == 2 and b"standard output" in done.stderr, f"a full disk: {done}")


def protected():
    """The right key opens every packet; a wrong one and none are said to be."""
    capture = CAPTURES / "protected.hex"
    opened = shown(capture, "--key", KEY, "--iv", IV)
    expect(opened.count("(opened)") == 5 and "!!" not in opened, opened)
    for text in ('accountID          "someone@example.com"', "player-state       2", 'phone-name         "Handset A"'):
        expect(text in opened, f"{text} is missing:\n{opened}")
    expect(shown(capture, "--iv", IV, QUPC_KEY=KEY) == opened, "the key from the environment")
    expect(shown(capture).count("!! byte 9: the payload looks protected, --key opens it") == 5, shown(capture))
    wrong = shown(capture, "--key", KEY[::-1], "--iv", IV)
    expect("Handset" not in wrong and wrong.count("of the opened payload: ") == 5, wrong)


# --- inputs that grow, and large ones ---

def follow():
    """Lines are shown as they are written, a line in two pieces once it is whole, until the capture ends."""
    path = Path("growing.jsonl").absolute()
    path.write_text("")
    process = subprocess.Popen([*INSPECT, "show", "--follow", path.name], stdout=subprocess.PIPE, text=True)
    watchdog = threading.Timer(HANG, process.kill)
    watchdog.daemon = True
    watchdog.start()

    def write(text):
        with open(path, "a") as out:
            out.write(text)

    def line():
        return process.stdout.readline().strip()

    write('{"event":"connect","at":5}\n')
    expect(line().startswith("seconds"), "no head")
    expect(line() == "0.000000  -- connect", "no event")
    write('{"event":"packet","from":"service","command":34,"se')
    write('q":7,"entries":[],"at":1000005}\n')
    expect(re.fullmatch(r"1\.000000 +service +Notify +7 +9", line()), "no packet")
    write('{"event":"exit","at":2000005}\n')
    expect(line() == "2.000000  -- exit", "no end")
    expect(process.wait() == 0 and not process.stdout.read(), "it did not end")
    watchdog.cancel()


def big_capture(path, size):
    """A capture of so many bytes: short packets, and now and then one of a megabyte."""
    lines = []
    for sequence in range(400):
        payload = number("player-state", sequence) + b"\4name\x14" + struct.pack(">I", 60) + b"n" * 60
        payload = payload + b"\1x\x14" + struct.pack(">I", 1 << 20) + b"y" * (1 << 20) if sequence == 399 else payload
        data = packet(payload, sequence=sequence)
        lines.append(json.dumps({"event": "bytes", "from": "service", "bytes": data.hex(), "at": sequence}))
    block = ("\n".join(lines) + "\n").encode()
    with open(path, "wb") as out:
        while out.tell() < size:
            out.write(block)
    return 400 * (size // len(block) + (1 if size % len(block) else 0))


def constant_memory():
    """A capture many times as large as the memory that may be used: 200 MB, in the long form 1 GB."""
    size = (1000 if LONG else 200) << 20
    packets = big_capture("big.jsonl", size)
    start = time.monotonic()
    table = shown("--filter", "seq=399", "big.jsonl")
    used = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss // 1024
    Path("big.jsonl").unlink()
    expect(table.count("Notify") == packets // 400, f"{table.count('Notify')} packets of {packets // 400}")
    print(f"{size >> 20} MB read in {time.monotonic() - start:.1f} s, with {used} MB of memory")
    expect(used < 150, f"{used} MB of memory were used")


# --- pcapng ---

def tshark(*arguments):
    done = subprocess.run(["tshark", "-X", f"lua_script:{ROOT / 'tools' / 'wireshark' / 'qupc.lua'}", *arguments],
                          capture_output=True, text=True, timeout=HANG, env={**os.environ, "HOME": os.getcwd()})
    expect(done.returncode == 0 and "Lua" not in done.stderr, f"tshark: {done.stdout}\n{done.stderr}")
    return done.stdout


def records(path, *, where=None, fields):
    options = [word for field in fields for word in ("-e", field)]
    return [line.split("\t") for line in tshark("-r", path, *(["-Y", where] if where else []), "-T", "fields", *options).splitlines()]


def wireshark():
    """tshark reads the pcapng, and the dissector shows what the table shows."""
    if not shutil.which("tshark"):
        print("SKIPPED: there is no tshark; ./test --all installs it")
        sys.exit(77)
    inspect("pcap", "--out", "session.pcapng", CAPTURES / "session.jsonl")
    lines = [json.loads(line) for line in shown("--json", CAPTURES / "session.jsonl").splitlines()]
    packets = [line for line in lines if line["event"] == "packet"]
    found = records("session.pcapng", fields=("qupc.command", "qupc.seq", "qupc.size", "_ws.col.Source", "frame.time_epoch"))
    wanted = [[str(one["command"]), str(one["seq"]), str(one["size"]), one["from"]] for one in packets]
    expect([row[:4] for row in found] == wanted, f"{found}\n{wanted}")
    expect([round(float(row[4]) * 1e6) for row in found] == [one["at"] for one in packets], "times differ")
    states = records("session.pcapng", where='qupc.key == "player-state"', fields=("qupc.int",))
    expect(states == [[str(entry["value"])] for one in packets for entry in one["entries"] if entry["key"] == "player-state"], states)
    inner = records("session.pcapng", where='qupc.key == "deviceID"', fields=("qupc.command",))
    expect(len(inner) == 1, "the nested entries are not found")

    inspect("pcap", "--out", "malformed.pcapng", CAPTURES / "malformed.hex")
    said = [row[0] for row in records("malformed.pcapng", where="qupc.malformed", fields=("_ws.expert.message",))]
    table = re.findall(r"!! byte (\d+)[^:]*: ([^:]*): ", shown(CAPTURES / "malformed.hex"))
    # Of a packet that is not whole, the table names the byte of the stream.
    expect([text.split(": ")[1] for text in said] == [reason for _, reason in table], f"{said}\n{table}")
    expect([text.split(": ")[0] for text in said][:-1] == [f"byte {at}" for at, _ in table][:-1], f"{said}\n{table}")

    deep = number("k", 1)
    while len(deep) < 60000:
        deep = b"\0\x0e" + struct.pack(">H", len(deep)) + deep
    Path("odd").write_bytes(packet(deep) + packet(b"\1t\x14" + struct.pack(">I", 300000) + b"t" * 300000, sequence=2))
    inspect("pcap", "--as", "raw", "--out", "odd.pcapng", "odd")
    rows = records("odd.pcapng", fields=("qupc.seq", "frame.len", "_ws.col.Info"))
    expect([row[0] for row in rows] == ["1", "2"] and rows[1][1] == "300016", f"{[row[:2] for row in rows]}")


def dissector_names():
    """The dissector has every command's name, as the decoder of the tests has them."""
    pattern = {"qupc.lua": r'\[(\d+)\] = "(\w+)"', "commands.cpp": r'\{(\d+), "(\w+)"\}'}
    lua, cpp = (dict(re.findall(pattern[path.name], path.read_text()))
                for path in (ROOT / "tools/wireshark/qupc.lua", ROOT / "tests/oracle/commands.cpp"))
    expect(len(cpp) > 100 and lua == cpp, f"{set(lua.items()) ^ set(cpp.items())}")


# --- replay ---

def pipe_name(name):
    return rf"\\.\pipe\{name}" if WINDOWS else name


def with_standin(name, *arguments, code=0, wait=60000):
    """Plays the host's side to the stand-in; gives what replay said and what the stand-in recorded."""
    pipe, record = pipe_name(name), Path(f"{name}.record.jsonl")
    record.unlink(missing_ok=True)
    service = subprocess.Popen([*program("QuPCAudio.exe"), "--scenario", "happy", "--pipe", pipe, "--guard", "100",
                                "--record", record.name, "--record-sent"])
    said, _ = inspect("replay", "--side", "host", "--pipe", pipe, "--wait", wait, *arguments, code=code)
    if code: # nothing has stopped the service yet
        stop = b'{"from":"host","command":"StopPCAudioZLK"}\n'
        inspect("replay", "--side", "host", "--pipe", pipe, "--speed", "0", "-", given=stop)
    service.wait(timeout=HANG)
    return said.decode(), record


def changed(path, old, new, name):
    """The line of the first change in a copy of the capture."""
    lines = path.read_text().splitlines()
    line = next(index for index, text in enumerate(lines) if old in text)
    lines[line] = lines[line].replace(old, new)
    Path(name).write_text("\n".join(lines) + "\n")
    return line + 1


def with_a_packet_more(record, name):
    """Writes a copy with a packet that the service never sends."""
    lines = record.read_text().splitlines()
    line = next(index for index, text in enumerate(lines) if "exitAudioProjection" in text)
    lines.insert(line, json.dumps({"event": "packet", "from": "service", "command": 34, "seq": 99,
                                   "entries": [{"key": "change-mode", "type": 6, "value": 4}], "at": 1}))
    Path(name).write_text("\n".join(lines) + "\n")


def replay_to_standin():
    """The stand-in sends what it sent; what it recorded can be played again; a changed byte is named by its line."""
    said, record = with_standin("first", "--speed", "0", CAPTURES / "session.jsonl")
    expect(said == "no difference\n", said)
    again, _ = with_standin("second", record.name)
    expect(again == "no difference\n", again)
    line = changed(record, '"key":"buffering-end"', '"key":"buffering-and"', "changed.jsonl")
    said, _ = with_standin("third", "--speed", "0", "changed.jsonl", code=1)
    expect(said.startswith(f"changed.jsonl:{line}: the service sent another packet\n"), said)
    for text in ("came:     Notify #4  buffering-end 1\n", "recorded: Notify #4  buffering-and 1\n", "byte 20: recorded 61, came 65\n"):
        expect(text in said, said)
    with_a_packet_more(record, "more.jsonl")
    missing, _ = with_standin("fourth", "--speed", "0", "more.jsonl", code=1, wait=1500)
    expect("recorded: Notify #99  change-mode 4" in missing, missing)


def own_time():
    """Packets go out no sooner than they were recorded, or the given number of times as fast."""
    for speed, distance in ((1, 1.5), (600, 300)):
        lines = [{"event": "packet", "from": "host", "command": command, "seq": 0, "entries": [], "at": at}
                 for command, at in ((34, 1000000), (8193, 1000000 + int(distance * 1e6)))]
        Path("slow.jsonl").write_text("".join(json.dumps(line) + "\n" for line in lines))
        start = time.monotonic()
        with_standin(f"speed{speed}", "--speed", speed, "slow.jsonl")
        passed = time.monotonic() - start
        expect(passed > distance / speed, f"speed {speed}: {passed} s passed")


def replay_to_library():
    """A session of the demo host with the real DLL is recorded, played to the DLL again, and a changed byte is named."""
    recorded = Path("recorded.jsonl")
    shutil.rmtree("live", ignore_errors=True)
    done = subprocess.run([*program("demo_host.exe"), "--folder", "live"], stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=HANG, env={**os.environ, "SONVIA_STANDIN_GUARD": "100"})
    expect(done.returncode == 0, done.stdout.decode(errors="replace"))
    shutil.copy("live/record.jsonl", recorded)

    def replay(path, code):
        host = "Z:" + str(BIN / "demo_host.exe").replace("/", "\\")
        return inspect("replay", "--side", "service", "--wait", "30000", "--run", host, path, "--", "--folder", "replayed",
                       code=code, SONVIA_STANDIN_GUARD="100")[0].decode()

    expect(replay(recorded, 0) == "no difference\n", "it is played again with a difference")
    line = changed(recorded, '"key":"StopSonviaAudioService"', '"key":"ShopSonviaAudioService"', "changed.jsonl")
    said = replay("changed.jsonl", 1)
    expect(said.startswith(f"changed.jsonl:{line}: the host sent another packet\n") and "recorded 68, came 74" in said, said)


TESTS = {test.__name__: test for test in (round_trip, encode, exit_codes, protected, follow, constant_memory, wireshark,
                                          dissector_names, replay_to_standin, own_time, replay_to_library)}

if __name__ == "__main__":
    TESTS[sys.argv[1]]()
