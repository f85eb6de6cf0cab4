"""Where the tree and its builds are, for what is written in Python."""
import json
import os
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build"
JOBS = int(os.environ.get("SONVIA_JOBS") or os.cpu_count() or 1)


def compile_commands(preset):
    """Of a build; empty when it is not configured."""
    path = BUILD / preset / "compile_commands.json"
    return json.loads(path.read_text()) if path.is_file() else []
