"""Where canaries plant their faults: folders below build/ that are gone afterwards."""
import contextlib
import shutil
import subprocess
import tempfile
from pathlib import Path

import gates

SCRATCH = gates.BUILD / "canaries"


@contextlib.contextmanager
def scratch():
    SCRATCH.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=SCRATCH) as folder:
        yield Path(folder)


class Tree:
    """A copy of the tree's files, under version control of its own, to plant faults in."""

    def __init__(self):
        SCRATCH.mkdir(parents=True, exist_ok=True)
        self.root = Path(tempfile.mkdtemp(dir=SCRATCH))
        for path in gates.tracked():
            (self.root / path.parent).mkdir(parents=True, exist_ok=True)
            shutil.copy(gates.ROOT / path, self.root / path)

        for command in (["init", "-q"], ["add", "-A", "-f"]):
            subprocess.run(["git", "-c", "core.autocrlf=false", "-C", self.root, *command], check=True)

    def plant(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.root)
