#!/usr/bin/python3
"""What hosts were compiled against: the manifest src/api/abi.json, made from the built DLL and the public header.

usage: tests/gates/abi.py            writes the manifest
       tests/gates/abi.py --check    names what differs from it, and exits with 1 when something does
"""
import difflib
import json
import re
import subprocess
import sys
from pathlib import Path

import pefile

ROOT = Path(__file__).resolve().parents[2]
DLL = ROOT / "build" / "windows" / "bin" / "SonviaPCAudioDll.dll"
HEADER = "include/SonviaPCAudioDll.h"
MANIFEST = "src/api/abi.json"
CLANG = ["clang-14", "--target=x86_64-w64-mingw32", "-x", "c", "-std=c11", "-fsyntax-only"]


def exports(dll):
    return {symbol.name.decode() for symbol in dll.DIRECTORY_ENTRY_EXPORT.symbols}


def imports(dll):
    """The imported functions by the name of their DLL, in small letters; one without a name is "#" and its number."""
    return {module.dll.decode().lower(): {one.name.decode() if one.name else f"#{one.ordinal}" for one in module.imports}
            for module in getattr(dll, "DIRECTORY_ENTRY_IMPORT", [])}


def clang(header, *options):
    return subprocess.run([*CLANG, *options, header], check=True, capture_output=True, text=True).stdout


def declarations(header):
    """clang's tree of the header alone, without what that includes."""
    own = False
    for node in json.loads(clang(header, "-Xclang", "-ast-dump=json"))["inner"]:
        place = node.get("loc", {})
        if "file" in place:  # left out where it is that of the node before
            own = Path(place["file"]) == Path(header)
        if own:
            yield node


def plain(kind):
    return kind.strip().replace("_Bool", "bool")


def functions(nodes):
    return {node["name"]: {
        "returns": plain(node["type"]["qualType"].partition("(")[0]),
        "arguments": [{"name": one["name"], "type": plain(one["type"]["qualType"])}
                      for one in node.get("inner", []) if one["kind"] == "ParmVarDecl"],
    } for node in nodes if node["kind"] == "FunctionDecl"}


def constants(nodes):
    def value(node):
        return node["value"] if "value" in node else value(node["inner"][0])
    return {one["name"]: int(value(one)) for node in nodes if node["kind"] == "EnumDecl"
            for one in node["inner"] if one["kind"] == "EnumConstantDecl"}


def records(header, nodes):
    """The layout that the compiler gives each record: offsets and sizes in bytes."""
    shown, found = clang(header, "-Xclang", "-fdump-record-layouts-complete"), {}
    for name in (one["name"] for one in nodes if one["kind"] == "RecordDecl" and one.get("completeDefinition")):
        block = re.search(rf"^ +0 \| struct {name}\n((?: +\d+ \|   .*\n)+) +\| \[sizeof=(\d+), align=(\d+)\]", shown,
                          re.M)
        fields = [(int(offset), kind, field)
                  for offset, kind, field in re.findall(r"^ +(\d+) \|   (.*) (\w+)$", block[1], re.M)]
        ends = [offset for offset, _, _ in fields[1:]] + [int(block[2])]
        found[name] = {"size": int(block[2]), "align": int(block[3]), "fields": [
            {"name": field, "type": kind, "offset": offset, "size": end - offset}
            for (offset, kind, field), end in zip(fields, ends)]}
    return found


def manifest(root=ROOT, path=DLL):
    header, dll = root / HEADER, pefile.PE(path)
    nodes = list(declarations(header))
    declared = functions(nodes)
    if set(declared) != exports(dll):
        raise ValueError(f"declared and exported differ: {sorted(set(declared) ^ exports(dll))}")
    macros = subprocess.run([*CLANG, "-dM", "-E", header], check=True, capture_output=True, text=True).stdout
    flags = pefile.retrieve_flags(pefile.DLL_CHARACTERISTICS, "IMAGE_DLLCHARACTERISTICS_")
    return {
        "library": path.name,
        "version": re.search(r'^#define SONVIA_VERSION_STRING "(.*)"$', macros, re.M)[1],
        "machine": "x64",
        "flags": sorted(name.removeprefix("IMAGE_DLLCHARACTERISTICS_") for name, bit in flags
                        if dll.OPTIONAL_HEADER.DllCharacteristics & bit),
        "exports": {name: declared[name] for name in sorted(declared)},
        "records": records(header, nodes),
        "constants": constants(nodes),
        "imports": {name: sorted(names) for name, names in sorted(imports(dll).items())},
    }


def text_of(found):
    return json.dumps(found, indent=2) + "\n"


def differences(root=ROOT, dll=DLL):
    kept = (root / MANIFEST).read_text().splitlines() if (root / MANIFEST).is_file() else []
    return [line for line in difflib.unified_diff(kept, text_of(manifest(root, dll)).splitlines(), MANIFEST,
                                                  "the DLL and the header", lineterm="", n=1)]


if __name__ == "__main__":
    if sys.argv[1:] == ["--check"]:
        print(*(found := differences()), sep="\n", end="\n" if found else "")
        sys.exit(1 if found else 0)
    (ROOT / MANIFEST).write_text(text_of(manifest()))
