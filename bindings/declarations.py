"""The names, codes, texts and layouts that every binding needs, written from src/api/abi.json (the header and the DLL)
and bindings/texts.json (what people read), so that no binding has a list of its own.

usage: python3 bindings/declarations.py            writes the files
       python3 bindings/declarations.py --check    names the files that differ from it, and exits with 1 when one does
"""
import json
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
MANIFEST = "src/api/abi.json"
TEXTS = "bindings/texts.json"
NOTICE = f"Written by bindings/declarations.py from {MANIFEST} and {TEXTS}: change those."
# Prefix of the constants and the name of the enumeration that they become.
GROUPS = {"SONVIA_LOG_": "LogLevel", "SONVIA_EVENT_": "EventKind", "SONVIA_ERROR_": "ErrorKind"}
LONE = {"SONVIA_STATE_UNKNOWN": "stateUnknown", "SONVIA_TEXT_SIZE": "textSize"}


def camel(constant):
    """FIRST_AUDIO is firstAudio."""
    first, *others = constant.lower().split("_")
    return first + "".join(word.capitalize() for word in others)


def pascal(name):
    return name[0].upper() + name[1:]


def screaming(name):
    return re.sub(r"(?<=[a-z])(?=[A-Z])", "_", name).upper()


def snake(name):
    return screaming(name).lower()


class Interface:
    """What the bindings are made of. Raises ValueError for a constant without a text and a text without a constant."""

    def __init__(self, root):
        self.abi = json.loads((root / MANIFEST).read_text())
        texts = json.loads((root / TEXTS).read_text())
        constants, described = self.abi["constants"], texts["constants"]
        if set(constants) != set(described):
            raise ValueError(f"{TEXTS} and {MANIFEST} have different constants: "
                             f"{sorted(set(constants) ^ set(described))}")
        unknown = [name for name in constants if name not in LONE and not name.startswith(tuple(GROUPS))]
        if unknown:
            raise ValueError(f"bindings/declarations.py does not know what {unknown} are")
        self.groups = {group: [(camel(name.removeprefix(prefix)), value, described[name])
                               for name, value in constants.items() if name.startswith(prefix)]
                       for prefix, group in GROUPS.items()}
        self.groups["Failure"] = [(name, number, text)
                                  for number, (name, text) in enumerate(texts["failures"].items(), 1)]
        self.lone = {LONE[name]: value for name, value in constants.items() if name in LONE}
        (self.record_name, self.record), = self.abi["records"].items()
        self.fields = self.record["fields"]
        self.texts = [field["name"] for field in self.fields if field["type"].startswith("char[")]
        self.exports = self.abi["exports"]
        self.version, self.library = self.abi["version"], self.abi["library"]


def mapped(kinds, kind):
    """The binding's type for one of the manifest's; a type that it has not is an error here and not at run time."""
    if kind not in kinds:
        raise ValueError(f"bindings/declarations.py has no type for {kind}")
    return kinds[kind]


def mapped_field(types, field, callback, text):
    """What a field of the record is declared as; `text` is a template for the size of an array of bytes."""
    if "(*)" in field["type"]:
        return callback
    return text.format(field["size"]) if field["type"].startswith("char[") else mapped(types, field["type"])


# --- C++ ---

def cpp(interface):
    out = [f"// {NOTICE}", "#ifndef SONVIA_PC_AUDIO_NAMES_HPP", "#define SONVIA_PC_AUDIO_NAMES_HPP", "",
           "#include \"SonviaPCAudioDll.h\"", "", "#include <string>", "#include <string_view>", "", "namespace sonvia {", ""]
    for group, members in interface.groups.items():
        out += [f"enum class {group} {{"]
        for name, value, text in members:
            out += [f"    /// {text}", f"    {pascal(name)} = {value},"]
        out += ["};", ""]
    out += [f"inline constexpr unsigned kStateUnknown = {interface.lone['stateUnknown']};",
            f"inline constexpr unsigned kTextSize = {interface.lone['textSize']};",
            f"inline constexpr const wchar_t* kLibraryFile = L\"{interface.library}\";", ""]
    out += ["/// All texts are UTF-8 of at most 255 bytes without a NUL.", "struct Identity {",
            *(f"    std::string {name};" for name in interface.texts), "};", "",
            "/// Calls function(name, text) for each text.", "template <typename Function>",
            "void forEachText(Identity& identity, Function function) {",
            *(f'    function("{name}", identity.{name});' for name in interface.texts), "}", "",
            "/// Calls function(text, field) for each text and its field of the record.", "template <typename Function>",
            f"void forEachText(const Identity& from, {interface.record_name}& to, Function function) {{",
            *(f"    function(from.{name}, to.{name});" for name in interface.texts), "}", ""]
    for group, members in interface.groups.items():
        for function, part in (("nameOf", 0), ("textOf", 2)):
            out += [f"constexpr const char* {function}({group} value) {{", "    switch (value) {"]
            for member in members:
                out += [f"    case {group}::{pascal(member[0])}:", f'        return "{member[part]}";']
            out += ["    }", '    return "unknown";', "}", ""]
    levels = [f"LogLevel::{pascal(member[0])}" for member in interface.groups["LogLevel"]]
    out += ["/// Gives the level of that name, and false if no level has it.",
            "constexpr bool findLogLevel(std::string_view name, LogLevel& level) {",
            f"    for (const LogLevel each : {{{', '.join(levels)}}}) {{",
            "        if (name == nameOf(each)) {", "            level = each;", "            return true;", "        }",
            "    }", "    return false;", "}", "", "} // namespace sonvia", "",
            "#endif // SONVIA_PC_AUDIO_NAMES_HPP"]
    return out


# --- Node.js ---

KOFFI = {"bool": "bool", "int": "int", "uint32_t": "uint32_t", "const char *": "const char *",
         "AudioServiceHandle *": "void *", "const AudioServiceParam *": "const AudioServiceParam *",
         "void *": "void *"}


def javascript(interface):
    out = [f"// {NOTICE}", "'use strict';", ""]
    for group, members in interface.groups.items():
        out += [f"exports.{group} = Object.freeze({{"]
        out += [f"    {name}: {value}," for name, value, _ in members]
        out += ["});", ""]
    out += ["exports.texts = Object.freeze({"]
    for group, members in interface.groups.items():
        out += [f"    {group}: Object.freeze({{"]
        out += [f"        {name}: '{text}',".replace("host's", "host\\'s") for name, _, text in members]
        out += ["    }),"]
    out += ["});", ""]
    out += [f"exports.{name} = {value};" for name, value in interface.lone.items()]
    out += [f"exports.version = '{interface.version}';", f"exports.library = '{interface.library}';",
            f"exports.recordSize = {interface.record['size']};",
            "exports.textFields = Object.freeze([" + ", ".join(f"'{name}'" for name in interface.texts) + "]);", "",
            "// Each text is an array of bytes: text marshalling would go through UTF-16 or the code page.",
            "exports.record = (koffi, callback) => koffi.struct('" + interface.record_name + "', {"]
    for field in interface.fields:
        kind = field["type"]
        if "(*)" in kind:
            out += [f"    {field['name']}: koffi.pointer(callback),"]
        elif kind.startswith("char["):
            out += [f"    {field['name']}: koffi.array('uint8_t', {field['size']}, 'Typed'),"]
        else:
            out += [f"    {field['name']}: '{mapped(KOFFI, kind)}',"]
    out += ["});", "", "exports.functions = Object.freeze({"]
    for name, function in interface.exports.items():
        arguments = ", ".join(f"'{mapped(KOFFI, one['type'])}'" for one in function["arguments"])
        out += [f"    {name}: ['{mapped(KOFFI, function['returns'])}', [{arguments}]],"]
    return out + ["});"]


def typescript(interface):
    out = [f"// {NOTICE}", ""]
    for group, members in interface.groups.items():
        out += [f"export type {group}Name =", *(f"    | '{name}'" for name, _, _ in members)]
        out[-1] += ";"
        out += [f"export declare const {group}: {{"]
        for name, value, text in members:
            out += [f"    /** {text} */", f"    readonly {name}: {value};"]
        out += ["};", ""]
    out += ["export declare const texts: {"]
    for group, members in interface.groups.items():
        out += [f"    readonly {group}: {{", *(f"        readonly {name}: string;" for name, _, _ in members), "    };"]
    out += ["};", ""]
    out += ["export interface Identity {", *(f"    {name}?: string;" for name in interface.texts), "}", ""]
    return out + [f"export declare const {name}: {value};" for name, value in interface.lone.items()] + [
        f"export declare const version: '{interface.version}';"]


# --- C# ---

CSHARP = {"bool": "byte", "int": "int", "uint32_t": "uint", "const char *": "byte*",
          "AudioServiceHandle *": "System.IntPtr", "const AudioServiceParam *": "AudioServiceParam*",
          "void *": "System.IntPtr"}


def csharp(interface):
    out = [f"// {NOTICE}", "using System.Runtime.InteropServices;", "", "namespace SonviaPCAudio", "{"]
    for group, members in interface.groups.items():
        out += [f"    public enum {group}", "    {"]
        for name, value, text in members:
            out += [f"        /// <summary>{text}</summary>", f"        {pascal(name)} = {value},"]
        out += ["    }", ""]
    out += ["    internal static class Texts", "    {"]
    for group, members in interface.groups.items():
        out += [f"        public static string Of({group} value)", "        {", "            switch (value)", "            {"]
        out += [f"                case {group}.{pascal(name)}: return \"{text}\";" for name, _, text in members]
        out += ["                default: return \"unknown\";", "            }", "        }", ""]
    out[-1:] = ["    }", "", "    /// <summary>The record for setParam, field for field. Callbacks are pointers, texts are bytes.</summary>",
                f"    [StructLayout(LayoutKind.Explicit, Size = {interface.record['size']})]",
                f"    internal unsafe struct {interface.record_name}", "    {",
                f"        public const int TextSize = {interface.lone['textSize']};"]
    for field in interface.fields:
        kind = field["type"]
        if kind.startswith("char["):
            declared = f"fixed byte {field['name']}[{field['size']}]"
        else:
            declared = f"System.IntPtr {field['name']}"
        out += [f"        [FieldOffset({field['offset']})] public {declared};"]
    out += ["    }", "", "    /// <summary>The exported functions. A bool has one byte, and a borrowed text is a pointer.</summary>",
            "    internal static unsafe class Native", "    {",
            f"        public const string Library = \"{interface.library.removesuffix('.dll')}\";",
            f"        public const string Version = \"{interface.version}\";",
            f"        public const uint StateUnknown = {interface.lone['stateUnknown']};", ""]
    for name, function in interface.exports.items():
        arguments = ", ".join(f"{mapped(CSHARP, one['type'])} {one['name']}" for one in function["arguments"])
        out += ["        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]",
                f"        public static extern {mapped(CSHARP, function['returns'])} {name}({arguments});"]
    return out + ["    }", "}"]


# --- Python ---

CTYPES = {"bool": "ctypes.c_bool", "int": "ctypes.c_int", "uint32_t": "ctypes.c_uint32",
          "const char *": "ctypes.c_char_p", "AudioServiceHandle *": "ctypes.c_void_p",
          "const AudioServiceParam *": "ctypes.POINTER(AudioServiceParam)", "void *": "ctypes.c_void_p"}


def python(interface):
    out = [f"# {NOTICE}", "import ctypes", "import enum", "from typing import Any, Dict, Final, List, Tuple", "", ""]
    for group, members in interface.groups.items():
        out += [f"class {group}(enum.IntEnum):"]
        out += [f"    {screaming(name)} = {value}" for name, value, _ in members]
        out += ["", "    @property", "    def text(self) -> str:",
                f"        return _{screaming(group)}_TEXTS[self.value]", "", "", f"_{screaming(group)}_TEXTS = {{"]
        out += [f"    {value}: \"{text}\"," for _, value, text in members]
        out += ["}", "", ""]
    out += [f"{screaming(name)}: Final = {value}" for name, value in interface.lone.items()]
    out += [f"VERSION: Final = \"{interface.version}\"", f"LIBRARY: Final = \"{interface.library}\"",
            "TEXT_FIELDS: Final = (" + ", ".join(f'"{name}"' for name in interface.texts) + ")", "",
            "# Not PYFUNCTYPE: a callback takes the interpreter's lock itself, on the library's thread.",
            "CALLBACK: Final = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_int)", "", "",
            f"class {interface.record_name}(ctypes.Structure):", "    _fields_ = ["]
    for field in interface.fields:
        declared = mapped_field(CTYPES, field, "CALLBACK", "ctypes.c_ubyte * {}")
        out += [f"        (\"{field['name']}\", {declared}),"]
    out += ["    ]", "", "", f"assert ctypes.sizeof({interface.record_name}) == {interface.record['size']}"]
    out += [f"assert {interface.record_name}.{field['name']}.offset == {field['offset']}" for field in interface.fields]
    out += ["", "# The result and the arguments of each exported function.",
            "FUNCTIONS: Final[Dict[str, Tuple[Any, List[Any]]]] = {"]
    for name, function in interface.exports.items():
        arguments = ", ".join(mapped(CTYPES, one["type"]) for one in function["arguments"])
        out += [f"    \"{name}\": ({mapped(CTYPES, function['returns'])}, [{arguments}]),"]
    return out + ["}"]


# --- Rust ---

RUST = {"bool": "bool", "int": "c_int", "uint32_t": "u32", "const char *": "*const c_char",
        "AudioServiceHandle *": "*mut c_void", "const AudioServiceParam *": "*const AudioServiceParam",
        "void *": "*mut c_void"}


def rust(interface):
    out = [f"// {NOTICE}", "use std::os::raw::{c_char, c_int, c_void};", ""]
    for group, members in interface.groups.items():
        out += ["#[derive(Clone, Copy, Debug, Eq, PartialEq)]", "#[repr(i32)]", f"pub enum {group} {{"]
        for name, value, text in members:
            out += [f"    /// {text}", f"    {pascal(name)} = {value},"]
        out += ["}", "", f"impl {group} {{", "    /// None for a value that this version does not know.",
                "    pub fn of(value: i32) -> Option<Self> {", "        match value {"]
        out += [f"            {value} => Some({group}::{pascal(name)})," for name, value, _ in members]
        out += ["            _ => None,", "        }", "    }", "", "    pub fn name(self) -> &'static str {", "        match self {"]
        out += [f"            {group}::{pascal(name)} => \"{name}\"," for name, _, _ in members]
        out += ["        }", "    }", "", "    pub fn text(self) -> &'static str {", "        match self {"]
        out += [f"            {group}::{pascal(name)} => \"{text}\"," for name, _, text in members]
        out += ["        }", "    }", "}", ""]
    out += [f"pub const STATE_UNKNOWN: u32 = {interface.lone['stateUnknown']};",
            f"pub const TEXT_SIZE: usize = {interface.lone['textSize']};",
            f"pub const VERSION: &str = \"{interface.version}\";", "",
            "pub type Callback = extern \"C\" fn(c_int, c_int);", "", "/// The record for setParam.", "#[repr(C)]",
            "#[derive(Clone, Copy)]", "#[allow(non_snake_case)]", f"pub struct {interface.record_name} {{"]
    for field in interface.fields:
        declared = mapped_field(RUST, field, "Option<Callback>", "[u8; {}]")
        out += [f"    pub {field['name']}: {declared},"]
    out += ["}", "", "// A layout that differs does not compile.",
            f"const _: [(); {interface.record['size']}] = [(); std::mem::size_of::<{interface.record_name}>()];",
            f"const _: [(); {interface.record['align']}] = [(); std::mem::align_of::<{interface.record_name}>()];", ""]
    out += ["#[allow(non_snake_case)]", "#[derive(Clone, Copy)]", "pub struct Functions {"]
    for name, function in interface.exports.items():
        arguments = ", ".join(f"{snake(one['name'])}: {mapped(RUST, one['type'])}" for one in function["arguments"])
        out += [f"    pub {name}: unsafe extern \"C\" fn({arguments}) -> {mapped(RUST, function['returns'])},"]
    out += ["}", "", "impl Functions {", "    /// Looks up each exported function; gives the name of one that is not there.", "    ///",
            "    /// # Safety", "    ///",
            f"    /// `find` has to give the addresses of the functions of {interface.library}.",
            "    pub unsafe fn find(", "        mut find: impl FnMut(&'static str) -> *const c_void,",
            "    ) -> Result<Self, &'static str> {",
            "        let mut address = |name: &'static str| {", "            let found = find(name);",
            "            if found.is_null() {", "                Err(name)", "            } else {",
            "                Ok(found)", "            }", "        };", "        Ok(Functions {"]
    out += [f"            {name}: std::mem::transmute(address(\"{name}\\0\")?)," for name in interface.exports]
    return out + ["        })", "    }", "}"]


FILES = {
    "bindings/csharp/Declarations.cs": csharp,
    "bindings/python/sonvia_pc_audio/_declarations.py": python,
    "bindings/rust/src/declarations.rs": rust,
    "bindings/node/lib/declarations.js": javascript,
    "bindings/node/lib/declarations.d.ts": typescript,
    "include/SonviaPCAudioNames.hpp": cpp,
}


def written(root=ROOT):
    """Each file with the text that it should have."""
    interface = Interface(root)
    return {path: "\n".join(write(interface)) + "\n" for path, write in FILES.items()}


def differences(root=ROOT):
    return [f"{path} differs from {MANIFEST} and {TEXTS}: run bindings/declarations.py"
            for path, text in written(root).items()
            if not (root / path).is_file() or (root / path).read_text() != text]


def main(options):
    if options == ["--check"]:
        found = differences()
        print("\n".join(found), end="\n" if found else "")
        return 1 if found else 0
    if options:
        sys.exit(__doc__)
    for path, text in written().items():
        (ROOT / path).parent.mkdir(parents=True, exist_ok=True)
        (ROOT / path).write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
