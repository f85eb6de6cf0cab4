"""Draws what the benchmark programs measured, with gnuplot."""
import json
import statistics
import subprocess

STYLE = """set terminal svg size 760,420 font "sans-serif,13" background "white"
set grid
set key outside right
"""


def quantiles(values):
    values = sorted(values)
    return [(values[int((len(values) - 1) * part / 1000)], part / 1000) for part in range(1001)]


def medians(out, groups):
    """The medians of all benchmarks of the groups: name -> figure -> value."""
    found = {}
    for group in groups:
        for file in sorted(out.glob(f"{group}_*.json")):
            for run in json.loads(file.read_text())["benchmarks"]:
                if run["run_type"] != "iteration" or run.get("error_occurred"):
                    continue
                figures = found.setdefault(run["run_name"].split("/iterations:")[0], {})
                for name, value in run.items():
                    if isinstance(value, (int, float)):
                        figures.setdefault(name, []).append(value)
    return {name: {figure: statistics.median(values) for figure, values in figures.items()}
            for name, figures in found.items()}


def plot(folder, name, settings, curves):
    """Curves: title -> points. Nothing is drawn without one."""
    curves = {title: points for title, points in curves.items() if points}
    if not curves:
        return
    script = STYLE + f'set output "{name}.svg"\n' + settings
    for number, points in enumerate(curves.values()):
        script += f"$curve{number} << EOD\n" + "".join(f"{x} {y}\n" for x, y in points) + "EOD\n"
    style = "linespoints" if min(map(len, curves.values())) < 50 else "lines"
    script += "plot " + ", ".join(f'$curve{number} with {style} lw 2 title "{title}"' for number, title in enumerate(curves))
    folder.mkdir(exist_ok=True)
    subprocess.run(["gnuplot"], input=script + "\n", text=True, check=True, cwd=folder)


def distribution(out, folder, name, settings, prefix, scale, shown=1.0):
    """Shares of the samples up to `shown`: the slowest few would make all others one vertical line."""
    curves = {}
    for file in sorted((out / "samples").glob(f"{prefix}*.txt")):
        samples = map(float, file.read_text().split())
        curves[file.stem.removeprefix(prefix)] = [(value * scale, part) for value, part in quantiles(samples) if part <= shown]
    plot(folder, name, settings, curves)


def by_number(found, pattern, figure, scale=1):
    """Points (number, figure) of the benchmarks that are named like the pattern with a number for '#'."""
    before, after = pattern.split("#")
    points = []
    for name, figures in found.items():
        number = name.removeprefix(before).removesuffix(after)
        if name == before + number + after and number.isdigit():
            points.append((int(number), figures[figure] * scale))
    return sorted(points)


def draw(out, folder):
    distribution(out, folder, "event_latency",
                 'set title "One event over the pipe, both ends on one processor"\n'
                 'set xlabel "write to callback, microseconds"\nset ylabel "share of events"\nset xrange [0:*]\n',
                 "latency_", 1e6, 0.99)
    distribution(out, folder, "caller_cost",
                 'set title "Logging one short line, four threads at once"\nset logscale x\n'
                 'set xlabel "caller\'s nanoseconds"\nset ylabel "share of lines"\n', "caller_", 1e9)
    logging = medians(out, ["logging"])
    plot(folder, "lines_by_producers",
         'set title "Short lines, until the last is in its file"\nset xlabel "producers"\n'
         'set ylabel "million lines a second"\nset yrange [0:*]\nset xtics (1,2,4,8)\n',
         {who: by_number(logging, f"sustained/short/#/{who}", "lines_per_s", 1e-6)
          for who in ("ours", "spdlog_async", "spdlog_sync", "glog")})
    sizes = medians(out, ["codec", "framing"])
    plot(folder, "cost_by_size",
         'set title "Cost by payload size"\nset logscale xy\nset xlabel "bytes"\nset ylabel "nanoseconds"\n',
         {title: by_number(sizes, pattern, figure) for title, pattern, figure in (
             ("cut in 64 KB reads", "cut_by_size/#/ours", "cpu_ns_per_packet"),
             ("encode one text", "encode_by_size/#/ours", "cpu_time"),
             ("index and read it", "read_by_size/#/ours", "cpu_time"),
             ("copy of it", "copy_by_size/#/string", "cpu_time"))})
