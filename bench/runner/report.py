"""Tables, JSON and plots of what was measured."""

import json
import subprocess

from .results import is_rate


def format_number(value):
    if value == 0:
        return "0"
    if abs(value) >= 1000:
        return f"{value:,.0f}".replace(",", " ")
    digits = 2 if abs(value) < 10 else 1 if abs(value) < 100 else 0
    return f"{value:.{digits}f}" if abs(value) >= 0.1 else f"{value:.2g}"


def describe(measurement):
    if measurement is None:
        return ""
    if not measurement.is_complete:
        return "failed"
    text = f"{format_number(measurement.median)} {measurement.unit}".strip()
    least, most = min(measurement.values), max(measurement.values)
    return f"{text} ({format_number(least)}..{format_number(most)})" if least != most else text


def make_rows(group):
    yield ["Figure", "Ours", "Reference", "Compared", "Goal", ""]
    for figure in group.figures:
        reference = describe(figure.reference)
        if figure.reference is not None:
            reference = f"{figure.reference.name}: {reference}"
        goal = figure.goal.describe() if figure.goal else ""
        yield [figure.title, describe(figure.ours), reference, figure.describe_comparison(), goal,
               figure.verdict]


def make_terminal_text(groups):
    lines = []
    for group in groups:
        rows = list(make_rows(group))
        widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
        lines += ["", group.title, "=" * len(group.title)]
        lines += ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()
                  for row in rows]
        lines += [f"! {m.name}: {m.failure or 'not measured'}" for m in group.failures]
    return "\n".join(lines) + "\n"


def make_markdown(groups, machine, remarks):
    lines = ["# Performance", "", *remarks, "", "## The machine", "",
             *[f"- {name}: {value}" for name, value in machine.items()]]
    for group in groups:
        rows = [[cell.replace("|", "\\|") for cell in row] for row in make_rows(group)]
        lines += ["", f"## {group.title}", ""]
        if group.note:
            lines += [group.note, ""]
        lines += ["| " + " | ".join(rows[0]) + " |", "|" + "---|" * len(rows[0])]
        lines += ["| " + " | ".join(row) + " |" for row in rows[1:]]
        if group.failures:
            lines += ["", "Failed:", ""]
            lines += [f"- {m.name}: {m.failure or 'not measured'}" for m in group.failures]
    return "\n".join(lines) + "\n"


def write(folder, groups, machine, remarks):
    folder.mkdir(parents=True, exist_ok=True)
    contents = {"machine": machine, "remarks": remarks,
                "groups": [group.to_json() for group in groups]}
    (folder / "performance.json").write_text(json.dumps(contents, indent=4) + "\n")
    (folder / "performance.md").write_text(make_markdown(groups, machine, remarks))
    for group in json.loads((folder / "performance.json").read_text())["groups"]:
        plot(folder, group)


def plot(folder, group):
    """Draws medians, from least to most: the measurements where all have one unit, otherwise how
    the figures compare."""
    measured = [m for m in group["measurements"] if "median" in m]
    units = {m["unit"] for m in measured}
    if len(units) == 1:
        ours = {figure["ours"] for figure in group["figures"]}
        unit = units.pop()
        label = unit + (", more is better" if is_rate(unit) else ", less is better")
        bars = [(m["name"], m["median"], m["least"], m["most"], m["name"] in ours)
                for m in measured]
    else:
        label = "cost in units of the reference, less is better"
        bars = [(f["title"], f["cost"], f["cost"], f["cost"], True)
                for f in group["figures"] if "cost" in f]
    if bars:
        draw(folder / f"{group['name']}.svg", group["title"], label, bars)


def draw(file, title, label, bars):
    rows = "\n".join(f'{i} "{name}" {median} {least} {most} {0x2F6DB5 if is_ours else 0xB0B0B0}'
                     for i, (name, median, least, most, is_ours) in enumerate(bars))
    longest = max(len(bar[0]) for bar in bars)
    script = f"""
set terminal svg size {600 + 8 * longest},{120 + 28 * len(bars)} font 'sans-serif,12' background '#ffffff'
set output '{file}'
set title "{title}"
set xlabel "{label}"
set xrange [0:*]
set yrange [{len(bars) - 0.4}:-0.6]
set lmargin {longest + 2}
set rmargin 4
set style fill solid
set grid xtics
set border 3
set tics nomirror
unset key
$bars << END
{rows}
END
plot $bars using 3:1:(0):3:($1-0.35):($1+0.35):6:ytic(2) with boxxyerror lc rgb variable, \\
    $bars using 3:1:4:5 with xerrorbars lc rgb '#202020' pt 0
"""
    subprocess.run(["gnuplot"], input=script.encode(), check=True)
