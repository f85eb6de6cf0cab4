"""What hosts were compiled against: the manifest src/api/abi.json, made from the built DLL and the public header.

usage: scripts/abi            writes the manifest
       scripts/abi --check    names what differs from it, and exits with 1 when something does
"""
import difflib
import json
import re
import subprocess
import sys
from pathlib import Path

import pe

ROOT = Path(__file__).resolve().parent.parent
DLL = ROOT / "build" / "windows" / "bin" / "SonviaPCAudioDll.dll"
HEADER = "include/SonviaPCAudioDll.h"
MANIFEST = "src/api/abi.json"
CLANG = ["clang-14", "--target=x86_64-w64-mingw32", "-x", "c", "-std=c11", "-fsyntax-only"]


def clang(header, *options):
    return subprocess.run([*CLANG, *options, header], check=True, capture_output=True, text=True).stdout


def declarations(header):
    """clang's tree of the header alone, without what that includes."""
    tree = json.loads(clang(header, "-Xclang", "-ast-dump=json"))
    own = False
    for node in tree["inner"]:
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
    names = [node["name"] for node in nodes if node["kind"] == "RecordDecl" and node.get("completeDefinition")]
    shown = clang(header, "-Xclang", "-fdump-record-layouts-complete")
    found = {}
    for name in names:
        block = re.search(rf"^ +0 \| struct {name}\n((?: +\d+ \|   .*\n)+) +\| \[sizeof=(\d+), align=(\d+)\]", shown,
                          re.M)
        fields = [(int(offset), kind, field)
                  for offset, kind, field in re.findall(r"^ +(\d+) \|   (.*) (\w+)$", block[1], re.M)]
        ends = [offset for offset, _, _ in fields[1:]] + [int(block[2])]
        found[name] = {"size": int(block[2]), "align": int(block[3]), "fields": [
            {"name": field, "type": kind, "offset": offset, "size": end - offset}
            for (offset, kind, field), end in zip(fields, ends)]}
    return found


def manifest(root=ROOT, dll=DLL):
    header = root / HEADER
    nodes, module = list(declarations(header)), pe.Module(dll)
    declared = functions(nodes)
    if set(declared) != module.exports():
        raise ValueError(f"declared and exported differ: {sorted(set(declared) ^ module.exports())}")
    macros = subprocess.run([*CLANG, "-dM", "-E", header], check=True, capture_output=True, text=True).stdout
    return {
        "library": dll.name,
        "version": re.search(r'^#define SONVIA_VERSION_STRING "(.*)"$', macros, re.M)[1],
        "machine": "x64",
        "flags": module.flags(),
        "exports": {name: declared[name] for name in sorted(declared)},
        "records": records(header, nodes),
        "constants": constants(nodes),
        "imports": {name: sorted(names) for name, names in sorted(module.imports().items())},
    }


def text_of(found):
    return json.dumps(found, indent=2) + "\n"


def differences(root=ROOT, dll=DLL):
    kept = (root / MANIFEST).read_text().splitlines() if (root / MANIFEST).is_file() else []
    return [line for line in difflib.unified_diff(kept, text_of(manifest(root, dll)).splitlines(), MANIFEST,
                                                  "the DLL and the header", lineterm="", n=1)]


def main(options):
    if options == ["--check"]:
        found = differences()
        print("\n".join(found), end="\n" if found else "")
        return 1 if found else 0
    if options:
        sys.exit(__doc__)
    (ROOT / MANIFEST).write_text(text_of(manifest()))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
