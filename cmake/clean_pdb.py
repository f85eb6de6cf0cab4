"""Makes a PDB of GNU ld the same wherever and whenever it was linked, and free of the build machine's folders.

usage: python3 cmake/clean_pdb.py FILE.pdb

ld writes the time, the folder it ran in, its own command line and the whole path of each object file. None of it helps
to resolve an address: debuggers match a PDB to its DLL by the GUID, which ld derives from what the DLL holds.
"""
import struct
import sys
from pathlib import Path

MAGIC = b"Microsoft C/C++ MSF 7.00\r\n\x1aDS\0\0\0"
INFO, DBI = 1, 3  # numbers of fixed streams
NO_STREAM = 0xFFFF
ENVIRONMENT = 0x113D  # the record of the linker's folder and command line


def split(data, size):
    return [data[at:at + size] for at in range(0, len(data), size)]


def streams_of(data):
    """The streams of an MSF file, and its block size. None stands for a stream that is not there."""
    if not data.startswith(MAGIC):
        raise ValueError("this is no PDB")
    block, _, _, directory_size, _, block_map = struct.unpack_from("<6I", data, 32)

    def gather(numbers, size):
        return b"".join(data[number * block:(number + 1) * block] for number in numbers)[:size]

    def numbers(source, at, size):
        return struct.unpack_from(f"<{-(-size // block)}I", source, at)

    directory = gather(numbers(data, block_map * block, directory_size), directory_size)
    count, = struct.unpack_from("<I", directory)
    at = 4 + 4 * count
    streams = []
    for size in struct.unpack_from(f"<{count}I", directory, 4):
        if size == 0xFFFFFFFF:
            streams.append(None)
            continue
        own = numbers(directory, at, size)
        at += 4 * len(own)
        streams.append(gather(own, size))
    return streams, block


def file_of(streams, block):
    """The MSF file of the streams: one after another, after the header and the two free maps of each interval."""
    blocks = [b""] * 3  # the header and the first free maps

    def place(data):
        own = []
        for piece in split(data, block):
            while len(blocks) % block in (1, 2):
                blocks.append(b"")
            own.append(len(blocks))
            blocks.append(piece)
        return own

    placed = [place(stream or b"") for stream in streams]
    directory = struct.pack("<I", len(streams))
    directory += b"".join(struct.pack("<I", 0xFFFFFFFF if stream is None else len(stream)) for stream in streams)
    directory += b"".join(struct.pack(f"<{len(own)}I", *own) for own in placed)
    block_map = place(b"".join(struct.pack("<I", number) for number in place(directory)))
    if len(block_map) != 1:
        raise ValueError("the directory does not fit")
    total = len(blocks)
    blocks[0] = MAGIC + struct.pack("<6I", block, 1, total, len(directory), 0, block_map[0])
    for number in range(1, total, block):  # bits of 1 stand for free blocks, and none is
        first = (number // block) * block * 8
        bits = [1 if at >= total else 0 for at in range(first, first + block * 8)]
        blocks[number] = bytes(sum(bit << place for place, bit in enumerate(eight)) for eight in split(bits, 8))
    return b"".join(piece.ljust(block, b"\0") for piece in blocks)


def padded(data):
    return data + b"\0" * (-len(data) % 4)


def without_environment(symbols):
    """A module's symbol records without those that tell of the build machine."""
    kept, at = symbols[:4], 4
    while at + 4 <= len(symbols):
        length, kind = struct.unpack_from("<2H", symbols, at)
        if kind != ENVIRONMENT:
            kept += symbols[at:at + 2 + length]
        at += 2 + length
    return kept


def clean_modules(dbi, streams):
    """The list of modules with file names alone; removes what the modules' streams tell of the build machine."""
    cleaned, at, end = b"", 64, 64 + struct.unpack_from("<I", dbi, 24)[0]
    while at < end:
        fixed = bytearray(dbi[at:at + 64])
        names = dbi[at + 64:end].split(b"\0", 2)[:2]
        at += 64 + len(padded(b"\0".join(names) + b"\0"))
        number, symbols_size = struct.unpack_from("<HI", fixed, 34)
        if number != NO_STREAM and symbols_size:
            stream = streams[number]
            symbols = without_environment(stream[:symbols_size])
            streams[number] = symbols + stream[symbols_size:]
            struct.pack_into("<I", fixed, 36, len(symbols))
        cleaned += fixed + padded(b"\0".join(name.rsplit(b"/", 1)[-1] for name in names) + b"\0")
    return dbi[:24] + struct.pack("<I", len(cleaned)) + dbi[28:64] + cleaned + dbi[end:]


def clean(data):
    streams, block = streams_of(data)
    streams[INFO] = streams[INFO][:4] + b"\0\0\0\0" + streams[INFO][8:]  # the time
    streams[0] = b""  # the old directory
    streams[DBI] = clean_modules(streams[DBI], streams)
    return file_of(streams, block)


def main(path):
    file = Path(path)
    file.write_bytes(clean(file.read_bytes()))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
