"""How the gates and their canaries are run: a check is a function that returns what it found, nothing when all is well.
"""
import subprocess
import traceback
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path


def findings(check):
    """What the check found. One that raises is no end of the run: it has found what it raised."""
    try:
        return list(check())
    except Exception as error:
        return raised(error)


def raised(error):
    """The exception, what the command said whose exit code it tells of, and where in the scripts it came up."""
    here = Path(__file__).parent
    lines = "".join(traceback.format_exception_only(error)).splitlines()
    if isinstance(error, subprocess.CalledProcessError):
        said = error.stderr or ""
        lines += (said if isinstance(said, str) else said.decode(errors="replace")).strip().splitlines()[-10:]
    return lines + [f"in {frame.name} ({Path(frame.filename).name}:{frame.lineno})"
                    for frame in traceback.extract_tb(error.__traceback__)
                    if Path(frame.filename).parent == here and frame.filename != __file__]


def run(checks, jobs):
    """checks: pairs of a name and a check. Yields each name with what was found, in their order."""
    checks = list(checks)
    with ThreadPoolExecutor(jobs) as pool:
        for (name, _), found in zip(checks, pool.map(lambda check: findings(check[1]), checks)):
            yield name, found
