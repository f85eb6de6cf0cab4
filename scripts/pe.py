"""What stands in a Windows module's headers, as GNU objdump prints it."""
import re
import struct
import subprocess


class Module:
    """A DLL: its exports, its imports by DLL, and its flags."""

    def __init__(self, path):
        self.path = path
        self.text = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", path],
                                   check=True, capture_output=True, text=True).stdout

    def exports(self):
        table = self.text.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
        return set(re.findall(r"\]\s+(?:\+base\[\s*\d+\]\s+\w+\s+)?(\S+)$", table, re.M))

    def imports(self):
        """The imported functions by the name of their DLL, in small letters; one without a name is "#" and its number."""
        found = {}
        for line in self.text.splitlines():
            if match := re.search(r"DLL Name: (\S+)", line):
                functions = found.setdefault(match[1].lower(), set())
            elif match := re.fullmatch(r"\t[0-9a-f]+\s+(\d+)\s+(\S+)", line):
                functions.add(match[2] if match[2] != "<none>" else f"#{match[1]}")
            elif "Export Tables" in line:
                break
        return found

    def timestamp(self):
        return re.search(r"^Time/Date\s+(.*)$", self.text, re.M)[1]

    def flags(self):
        """What the loader learns about the address space and the module's memory."""
        block = self.text.partition("DllCharacteristics")[2].partition("SizeOfStackReserve")[0]
        return sorted(re.findall(r"^\s+([A-Z_]+)$", block, re.M))

    def pdb(self):
        """The GUID and the file name of the PDB that belongs to the module, or None."""
        match = re.search(r"\(format RSDS signature ([0-9a-f]{32}) age \d+ pdb (.*)\)", self.text)
        return match and match.groups()

    def version_texts(self):
        """The version resource's texts, by their name."""
        text = self.path.read_bytes().decode("utf-16-le", errors="replace")
        start = text.find("StringFileInfo")
        block = text[start:text.find("VarFileInfo", start)] if start >= 0 else ""
        # Each is a length, a length, a type, the name with its NUL, padding, the value with its NUL.
        return dict(re.findall(r"\x01([A-Za-z]+)\0+([^\0]+)\0", block))

    def version_number(self):
        data = self.path.read_bytes()
        at = data.find(struct.pack("<I", 0xFEEF04BD))
        high, low = struct.unpack_from("<2I", data, at + 8) if at >= 0 else (0, 0)
        return high >> 16, high & 0xFFFF, low >> 16, low & 0xFFFF
