"""The pictures of docs/proof.md: how long things took in a run, as tests note it (tests/support/effort.h)."""
import re
import sys
from pathlib import Path

import summary

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "bench"))
import plots  # noqa: E402

MILLISECOND = 1000  # in microseconds


def durations(folder):
    """What the test programs that ran below the folder have noted: picture -> curve -> milliseconds."""
    found = {}
    for result in sorted(folder.glob("*/result.xml")):
        for case in summary.cases_in(result):
            for name, value in summary.notes_of(case):
                if match := re.fullmatch(r"durations: (.*?): (.*)", name):
                    values = [int(word) / MILLISECOND for word in value.split()]
                    found.setdefault(match[1], {}).setdefault(match[2], []).extend(values)
    return found


def draw(builds, folder):
    """Draws the share of what took up to a time, a curve for each build (name -> its testrun). Returns the pictures."""
    curves = {}
    for build, testrun in builds.items():
        for picture, by_curve in durations(testrun).items():
            for curve, values in by_curve.items():
                curves.setdefault(picture, {})[f"{build}: {curve}"] = plots.quantiles(values)
    names = {picture: picture.replace(" ", "_") for picture in sorted(curves)}
    for picture, name in names.items():
        settings = (f'set title "{picture.capitalize()}"\nset key inside bottom right\nset logscale x\nset xlabel "milliseconds"\n'
                    'set ylabel "share of them"\nset yrange [0:1]\n')
        plots.plot(folder, name, settings, curves[picture])
    return list(names.values())
