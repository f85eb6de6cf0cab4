#!/usr/bin/env python3
"""Writes the seeds of packet_stream, key_value, session and log_folder, and the long ones of log_config:
fuzz/make_seeds.py

The traffic is that of docs/protocol.md, read from the page, and more of its kind. Inputs that were kept because they
once broke something are not made here; they are only in the corpus.
"""
import pathlib
import re
import struct

FUZZ = pathlib.Path(__file__).resolve().parent
NOTIFY, STOP = 34, 8193


def page_packets():
    """The worked bytes of the protocol's page, by heading."""
    text = (FUZZ.parent / "docs" / "protocol.md").read_text()
    found = re.findall(r"^### (.*?)\n.*?```hex\n(.*?)```", text, re.S | re.M)
    return {re.sub(r"\W+", "_", title.split(" with ")[0].split(", ")[0].lower()).strip("_"): bytes.fromhex(digits)
            for title, digits in found}


def entry(key, kind, value):
    return bytes([len(key) & 255]) + key.encode("latin-1") + bytes([kind]) + value


def number(key, value):
    return entry(key, 6, struct.pack(">i", value))


def text(key, value):
    return entry(key, 20, struct.pack(">I", len(value)) + value.encode("latin-1"))


def nested(key, inner):
    return entry(key, 14, struct.pack(">H", len(inner)) + inner)


def packet(payload, command=NOTIFY, sequence=0, magic=0x24, size=None):
    return struct.pack(">BHHI", magic, command, sequence, len(payload) if size is None else size) + payload


def sealed_by_hand(data, flags=0, fields=b""):
    """A protected message as a peer may write it."""
    rest = bytes([1, flags]) + fields
    return struct.pack(">H", len(rest)) + rest + data


def integrity(data):
    value = 0xFFFFFFFF
    for byte in data:
        value ^= byte << 24
        for _ in range(8):
            value = (value << 1 ^ (0x04C11DB7 if value & 0x80000000 else 0)) & 0xFFFFFFFF
    return struct.pack("<I", value)


ALL_SIX = (number("player-state", 2) + text("phone-name", "Handset A") + number("first-audiopcm", 1) +
           number("change-mode", 3) + number("buffering-start", 1) + number("buffering-end", 1))
PLAYS = [packet(number("buffering-start", 1), sequence=1), packet(number("buffering-end", 1), sequence=2),
         packet(number("first-audiopcm", 1), sequence=3), packet(number("player-state", 2), sequence=4),
         packet(text("phone-name", "Handset A"), sequence=5), packet(number("change-mode", -3), sequence=6)]

# Two ways of cutting (see cuts.cpp) into pieces of some thousand bytes: all of them in sparse blocks, or some.
SPARSE, MIXED = 29, 83
# Two pieces longer than the 64 KB in which the library collects what arrives in sparse blocks.
LONG_TEXT = "".join(chr(33 + index * index % 89) for index in range(90000))


def packet_streams():
    seeds = {f"page_{name}": bytes([0, 1, 7]) + data for name, data in page_packets().items()}
    play = b"".join(PLAYS)
    seeds["play_cut_anyhow"] = bytes([0, 200, 31]) + play
    seeds["play_torn_at_its_end"] = bytes([0, 1, 2]) + play[:-5]
    seeds["empty_packets"] = bytes([0, 1, 3]) + packet(b"") * 3 + packet(b"", command=1, sequence=65535)
    seeds["other_magic_and_unknown_command"] = bytes([0, 5, 6]) + packet(b"abc", 65504, 9, 0xFF) + PLAYS[0]
    seeds["half_a_header"] = bytes([0, 1, 0]) + packet(b"")[:5]
    seeds["header_that_promises_four_gigabytes"] = bytes([0, 1, 9]) + packet(b"x" * 40, size=0xFFFFFFFF)
    seeds["long_payload"] = bytes([0, 12, 77]) + packet(text("phone-name", "n" * 1500)) + PLAYS[3]
    seeds["payload_beyond_a_block"] = bytes([0, SPARSE, MIXED]) + packet(text("phone-name", LONG_TEXT)) + play
    seeds["padded_payload_beyond_a_block"] = bytes([0x3A, SPARSE, 0]) + packet(text("phone-name", LONG_TEXT)) + PLAYS[3]
    for name, choice in {"encrypted": 0x39, "padded": 0x3A, "checked": 0x3C, "all_three": 0x3F, "plain": 0x38,
                         "unknown_algorithm": 0x37}.items():
        seeds[f"sealed_{name}"] = bytes([choice, 1, 40 + choice]) + play
    seeds["sealed_with_a_refused_one_between"] = (bytes([0x3F, 9, 2]) + PLAYS[0] +
                                                  packet(sealed_by_hand(b"data", 0x20, b"bad!"), magic=1) + PLAYS[1])
    seeds["sealed_with_an_accepted_one_between"] = (bytes([0x3F, 9, 2]) + PLAYS[0] +
                                                    packet(sealed_by_hand(b"0123456789abcdef", 0x80), magic=1) + PLAYS[1])
    by_hand = [sealed_by_hand(ALL_SIX), sealed_by_hand(b""), sealed_by_hand(b"pad\0\0", 0x40, b"\2"),
               sealed_by_hand(b"123456789", 0x20, integrity(b"123456789")), b"\0\1\0free of flags", b"\0\0", b""]
    for choice, name in {0x1F: "known", 0x17: "unknown"}.items():
        seeds[f"protected_by_hand_algorithm_{name}"] = (bytes([choice, 1, 13]) +
                                                        b"".join(packet(message) for message in by_hand))
    return seeds


def key_values():
    raw = {f"page_{name}": data[9:] for name, data in page_packets().items()}
    raw["all_notifications"] = ALL_SIX
    raw["duplicate_keys"] = number("a", 1) + text("a", "one") + number("a", 2) + text("b", "") + number("b", 3)
    raw["every_type"] = b"".join(entry(f"t{kind}", kind, bytes(width)) for kind, width in
                                 [(0, 1), (1, 1), (2, 1), (3, 1), (4, 2), (5, 2), (6, 4), (7, 4), (8, 8), (9, 8),
                                  (10, 4), (11, 8), (12, 2), (13, 2), (14, 2), (20, 4), (21, 4), (22, 4)])
    raw["unknown_types_have_no_value"] = entry("a", 15, b"") + entry("b", 23, b"") + entry("c", 255, b"") + ALL_SIX
    raw["cut_in_a_key"] = ALL_SIX[:5]
    raw["cut_behind_a_type"] = number("player-state", 2)[:-4]
    raw["cut_in_a_number"] = number("a", 1) + number("player-state", 2)[:-1]
    raw["cut_in_a_length"] = text("phone-name", "Handset A")[:-11]
    raw["cut_in_a_text"] = text("phone-name", "Handset A")[:-1]
    raw["length_beyond_everything"] = entry("phone-name", 20, b"\xff\xff\xff\xff") + b"abc"
    raw["empty_key"] = text("", "value of no key") + number("", 6)
    raw["longest_key"] = number("k" * 255, 1)
    raw["nested_in_nested"] = nested("outer", nested("inner", ALL_SIX))
    raw["names_in_utf8"] = text("phone-name", "T\xc3\xa9l\xc3\xa9phone \xe6\x89\x8b")
    seeds = {name: bytes([index * 5 % 256, 0]) + data for index, (name, data) in enumerate(raw.items())}
    built = {
        "numbers": b"\0\x03age\x041234" b"\0\x03siz\x041",
        "texts": b"\1\x05model\x01x" b"\1\x02sn\x08a serial",
        "duplicates": b"\0\1a\0" b"\1\1a\4text" b"\0\1a\4last",
        "nested": b"\2\x08KORUInfo\2" b"\1\x09accountID\1a" b"\1\x05model\1m" b"\0\1z\4abcd",
        "repeated_text": b"\1\x0aphone-name\xc8name",
        "longest_keys": b"\0\xfbk\4abcd" b"\1\xfcl\4text",
        "key_too_long_to_be_read_back": b"\0\xfdk\4abcd" b"\0\1a\4text",
    }
    seeds.update({f"build_{name}": bytes([7, 1]) + data for name, data in built.items()})
    return seeds


def sessions():
    def steps(*controls):
        return bytes([len(controls), *controls])

    init, connected, refused, end = 0, 6 * 8, 4 * 8, 5 * 8
    account, long_account, too_long = 2 * 8, 11 * 8, 3 * 8
    eof, reset, broken, nothing = 1, 1 + 8, 1 + 16, 1 + 24
    filled, sparse, large, recipe, wide, leave = 2 + 9 * 8, 3 + 5 * 8, 6 + 20 * 8, 4, 7 + 31 * 8, 7 * 8
    play = b"".join(PLAYS)
    seeds = {f"page_{name}": steps(init, connected) + data for name, data in page_packets().items()}
    seeds["play_in_one_read"] = steps(init, connected) + play
    seeds["play_in_small_reads"] = steps(init, connected, filled, sparse, filled, sparse, large, filled) + play
    seeds["all_notifications_in_one_payload"] = steps(init, connected) + packet(ALL_SIX)
    seeds["notifications_before_the_host"] = steps(large, init, connected) + play
    seeds["connection_refused_then_made"] = steps(init, refused, connected) + play
    seeds["stream_ends"] = steps(init, connected, large, eof, eof) + play
    seeds["stream_is_reset"] = steps(init, connected, large, reset) + play
    seeds["stream_breaks_and_goes_on"] = steps(init, connected, filled, broken, nothing, large) + play
    seeds["session_is_ended"] = steps(init, connected, large, end, eof, connected, refused) + play
    seeds["account_ids"] = steps(account, init, account, connected, long_account, account, too_long, init) + play
    seeds["texts_of_full_length"] = steps(8, connected, account) + PLAYS[5]
    seeds["values_of_other_types"] = steps(init, connected) + packet(
        text("player-state", "2") + number("phone-name", 1) + text("change-mode", "3") + entry("buffering-end", 3, b"\1"))
    seeds["name_with_a_nul"] = steps(init, connected) + packet(text("phone-name", "a\0b")) + packet(
        text("phone-name", "\0b"))
    seeds["name_taken_back"] = steps(init, connected, large) + packet(text("phone-name", "gone")) + packet(
        text("phone-name", ""))
    seeds["name_of_another_type_is_not_taken"] = steps(init, connected) + PLAYS[4] + packet(number("phone-name", 1))
    seeds["notifications_by_recipe"] = (steps(init, connected, recipe, recipe + 8, recipe + 24) + b"\x09Name" +
                                        b"\0\0\0\0\2" b"\2\0\0\0\3" + b"\x11\1\2\3\4" b"\x12\1\0\0\0"
                                        b"\x1b\0\0\0\0\x0f" b"\5\0\0\0\0")
    seeds["other_commands"] = steps(init, connected) + packet(ALL_SIX, STOP) + packet(ALL_SIX, 35) + packet(b"", 26)
    seeds["payload_cut_in_an_entry"] = steps(init, connected) + packet(ALL_SIX[:-3]) + packet(ALL_SIX[:40])
    seeds["wrong_size_puts_out_of_step"] = steps(init, connected) + packet(ALL_SIX, size=len(ALL_SIX) - 4) + play
    seeds["projection_is_left"] = steps(leave, init, connected, large, leave, account, leave) + play
    seeds["name_beyond_a_block"] = (steps(init, connected, *[wide] * 5, account) +
                                    packet(text("phone-name", LONG_TEXT)) + play)
    seeds["name_beyond_a_block_in_the_rest"] = steps(init, connected) + packet(text("phone-name", LONG_TEXT)) + play
    return seeds


def log_configs():
    """Only what is too long to be written by hand."""
    def pair(key, length, end=""):
        return f"[{key}{length}]\n{key} = {'v' * (length - len(end))}{end}\n".encode()

    many = b"".join(b"[logger %d]\n# a comment\npath = D:\\logs\\%d\nname = %s\nlevel = info\nlimitsize = %d\n" %
                    (index % 22, index, b"n" * (index * 7 % 300), index) for index in range(60))
    return {"names_of_8191_and_8192": b"\0" + pair("name", 8191) + pair("name", 8192),
            "paths_of_8190_and_8191": b"\0" + pair("path", 8190) + pair("path", 8191),
            "path_of_8191_with_its_slash": b"\0" + pair("path", 8191, "/") + pair("path", 8192, "/"),
            "file_of_several_pieces": b"\1" + many + b"\xff" + many[:4097]}


def log_folders():
    current, name_of_another, as_stored, packs = 0x40, 0xC0, 0x80, 0x41

    def folder(flags, version, *files, many=False):
        form = (4 if version is None else len(version) >> 8) | (31 << 3 if many else 0)
        return bytes([flags, len(version or b"") & 255, form]) + (version or b"") + b"".join(files)

    def file(kind, name, content=b""):
        return kind + content + name.encode() + b"\n"

    def log(kind, day, ending="", content=b""):
        return file(kind, f"sonvia_Test_2026-03-{day}-08-00-00.log{ending}", content)

    def another(day, content):
        return log(b"3", day) + log(b"B", day, ".zip", content)

    def marked(before, after):
        """Bytes, an archive's end mark, more bytes; as `takeBytes` reads them."""
        return bytes([128 + len(before) + (64 if len(before) > 10 else 0)]) + before + bytes([len(after)]) + after

    used = [file(b"M", f"sonvia_Test_2026-03-09-08-00-0{second}.log") for second in range(3)]
    used += [file(b"3", f"sonvia_Test_2026-03-09-08-00-0{second}.log.zip") for second in (3, 4)]
    old = (log(b"3", "07") + file(b"4", "2026_02/sonvia_Test_2026-02-07-08-00-00.log.zip") + file(b"5", "other.log") +
           file(b"6", "sonvia_Test.log") + file(b"7", "a/b/sonvia_Test_2026-01-01-00-00-00.log") +
           file(b"1", "sonvia_Test_2026010100.log"))
    others = (log(b"3", "07") + file(b"4", "x/sonvia_Other.log.zip") + file(b"5", "host.log") +
              file(b"6", "sonvia_notes.txt"))
    large = [file(b"M", f"2026_0{month}/sonvia_Test_2026-0{month}-{day}-08-00-00.log")
             for month, day in ((1, "09"), (2, "09"), (3, "01"))]
    return {
        "names_in_use": folder(packs, b"2.1", *used),
        "old_files": folder(current, b"2.1", old),
        "new_version": folder(current, b"2.0", others),
        "no_version_file": folder(current, None, others),
        "version_file_among_the_files": folder(current, None, others, file(b"B", "sonvia_version", b"\x032.1")),
        "version_of_white_space": folder(0, b" \t\r\n\v\f", old),
        "version_ends_in_white_space": folder(as_stored, b"2.1 \t\r\n\v\f", old),
        "version_with_zeros_and_control_bytes": folder(as_stored, b"\0\1\x7f\xff 2\0.\n1\0", old),
        "version_that_goes_on_behind_a_zero": folder(current, b"2.1\0 or so", old),
        "version_of_254_bytes": folder(name_of_another, b"v" * 254, old),
        "version_of_253_bytes": folder(name_of_another, b"v" * 253, old),
        "version_with_white_space_at_its_end_of_254": folder(as_stored, b"v" * 250 + b" \n" * 5 + b"w" * 600, old),
        "over_five_hundred": folder(0x60, b"2.1 \r\n", log(b"3", "07"), many=True),
        "too_large_and_too_old": folder(0x5A, b"2.1 \r\n", *large, log(b"M", "02")),
        "torn_and_whole_archives": folder(packs, b"2.1", log(b"3", "07") + log(b"2", "07", ".zip") + log(b"3", "08") +
                                          log(b"Z", "08", ".zip")),
        "archives_that_end_in_any_bytes": folder(
            current, b"2.1", another("01", marked(b"", bytes(range(18)))), another("02", marked(b"PK", b"x" * 17)),
            another("03", marked(b"PK", b"x" * 19)), another("04", b"\x04PK\5\6"),
            another("05", marked(b"a" * 14, b"PK\5\6" + b"y" * 14)), another("06", marked(b"a" * 14, b"PK\5\6"))),
    }


def main():
    for target, seeds in {"packet_stream": packet_streams(), "key_value": key_values(), "session": sessions(),
                          "log_config": log_configs(), "log_folder": log_folders()}.items():
        folder = FUZZ / "corpus" / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, data in seeds.items():
            (folder / name).write_bytes(data)


if __name__ == "__main__":
    main()
