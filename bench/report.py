#!/usr/bin/env python3
"""report.py RESULTS.json PAGE.html [ROWS.md]: prints the Markdown tables of a run of veldra_bench, the rows of
ROWS.md (of rebuild_floor.py) at their end, and writes a page with its plots. Standard library only."""

import html
import json
import math
import sys

TITLES = {
    "fetchone_by_key/1000": "fetchone by key, among 1,000 rows",
    "fetchone_by_key/100000": "fetchone by key, among 100,000 rows",
    "fetchone_by_name/1000": "fetchone by name, among 1,000 rows",
    "fetchone_by_name/100000": "fetchone by name, among 100,000 rows",
    "fetchall/1000": "fetchall, 1,000 rows (per row)",
    "fetchall/100000": "fetchall, 100,000 rows (per row)",
    "fetcheach/100000": "fetcheach, 100,000 rows (per row)",
    "snapshot_queries": "1,000 queries by key in one snapshot, to bare ones in a read transaction each (per query)",
    "hour_of_patience": "fetchone by key with a timeout of an hour, to one without (per query)",
    "full_text_search": "full-text search",
    "executemany/100000": "executemany of 100,000 rows in a transaction (per row)",
    "autocommit_write": "single write, committed by itself",
    "queries_beside_a_writer/1": "query beside a busy writer, 1 thread, 99th percentile",
    "queries_beside_a_writer/2": "query beside a busy writer, 2 threads, 99th percentile",
    "swap_index/vouched": "swap of 250,000 symbols and 750,000 edges, vouched for",
    "swap_index/checked": "the same, checked first",
    "swap_index/stripped": "the same, vouched for, from a file without indexes and full text",
    "export_index": "export of a file of 100 MiB, to a copy of it with sync",
    "compaction": "compaction that releases 10,000 pages",
}
COLOURS = {"bare": "#2a6fdb", "sqlitecpp": "#d2691e", "idle": "#2a6fdb", "beside": "#d2691e"}


def load(path):
    """The counters of each benchmark by its name, and the machine that ran them."""
    with open(path, encoding="utf-8") as file:
        results = json.load(file)
    runs = {}
    for run in results["benchmarks"]:
        runs[run["name"].split("/iterations:")[0]] = run
    # The benchmark of concurrent queries is judged by its 99th percentile.
    for run in runs.values():
        if "veldra_p99" in run:
            run.update({way: run[way + "_p99"] for way in ("bare", "veldra", "sqlitecpp")})
            run.update({"ratio" + end: run["ratio_p99" + end] for end in ("", "_low", "_high")})
    return runs, results["context"]


def duration(seconds):
    for unit, size in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= size:
            return f"{seconds / size:.3g} {unit}"
    return f"{seconds / 1e-9:.3g} ns"


def spread(run, name):
    if name not in run:
        return ""
    return f"{run[name]:.2f} ({run[name + '_low']:.2f} to {run[name + '_high']:.2f})"


def compared(runs):
    return [(title, runs[name]) for name, title in TITLES.items() if name in runs]


def tables(runs):
    lines = [
        "| Work | bare SQLite | veldra | veldra / bare | limit | SQLiteCpp | SQLiteCpp / veldra |",
        "|---|---|---|---|---|---|---|",
    ]
    for title, run in compared(runs):
        other = duration(run["sqlitecpp"]) if "sqlitecpp" in run else ""
        gain = spread(run, "gain")
        if not gain and other:
            gain = f"{run['sqlitecpp'] / run['veldra']:.2f}"
        cells = [title, duration(run["bare"]), duration(run["veldra"]), spread(run, "ratio"),
                 f"{run['limit']:.2f}", other, gain]
        lines.append("| " + " | ".join(cells) + " |")

    lines += ["", "| Figure | Value | limit |", "|---|---|---|"]
    for name in ("fetchall/1000", "fetchall/100000"):
        if name in runs:
            lines.append(f"| bytes held per row of six columns, {TITLES[name].split(' (')[0]} | "
                         f"{runs[name]['bytes_per_row']:.0f} | 260 |")
    for name in ("swap_index/vouched", "swap_index/checked", "swap_index/stripped"):
        if name in runs:
            run = runs[name]
            lines.append(f"| {TITLES[name]}: processor time, to bare SQLite's | "
                         f"{spread(run, 'ratio_cpu')} | {run['limit']:.2f} |")
            lines.append(f"| longest wait of another connection's writer beside it, to that beside bare SQLite | "
                         f"{spread(run, 'ratio_wait')}, {duration(run['wait_veldra'])} | 0.09 |")
    if "swap_index/vouched" in runs:
        run = runs["swap_index/vouched"]
        lines.append(f"| memory of the swap beyond the idle process, file of "
                     f"{run['file_mib']:.0f} MiB | {run['peak_mib']:.0f} MiB | 100 MiB |")
    if "fetcheach/100000" in runs:
        lines.append(f"| memory that grows while fetcheach shows 100,000 rows | "
                     f"{runs['fetcheach/100000']['grown_bytes']:.0f} bytes | 0 |")
    if "runaway_query" in runs:
        run = runs["runaway_query"]
        lines.append(f"| how long after its limit a query that never ends has ended, median and latest of 100 | "
                     f"{duration(run['late'])}, {duration(run['latest'])} | 10 ms, 50 ms |")
    if "more_threads_than_readers" in runs:
        run = runs["more_threads_than_readers"]
        lines.append(f"| longest wait for a read connection, 12 threads on 6 of them beside a long "
                     f"transaction | {duration(run['longest_wait'])} | {duration(run['limit'])} |")
    if "queries_beside_a_swap" in runs:
        run = runs["queries_beside_a_swap"]
        lines.append(f"| 99th percentile of queries beside a swap of 1,000,000 symbols / on an idle "
                     f"file | {spread(run, 'ratio_p99')} | {run['limit']:.2f} |")
    if "compaction" in runs:
        run = runs["compaction"]
        lines.append(f"| longest wait of a writer beside a compaction | "
                     f"{duration(run['longest_wait'])} | one step "
                     f"({duration(run['longest_step'])}) and its own write |")
    return "\n".join(lines)


# Plots ------------------------------------------------------------------------------------------


def text(x, y, content, anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{html.escape(content)}</text>'


def line(x1, y1, x2, y2, style="axis"):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{style}"/>'


def figure(caption, width, height, shapes):
    return (f'<figure><svg viewBox="0 0 {width} {height}" role="img" '
            f'aria-label="{html.escape(caption)}">{"".join(shapes)}</svg>'
            f"<figcaption>{html.escape(caption)}</figcaption></figure>")


def ratio_plot(runs):
    """Each workload's time over that of the other ways, with its quartiles; 1 is as fast."""
    rows = compared(runs)
    left, right, step, height = 400, 860, 30, 60 + 30 * len(rows)

    def x(ratio):
        low, high = math.log(0.1), math.log(2)
        return left + (math.log(min(max(ratio, 0.1), 2)) - low) / (high - low) * (right - left)

    shapes = []
    for tick in (0.1, 0.2, 0.5, 1, 2):
        shapes.append(line(x(tick), 10, x(tick), height - 40, "strong" if tick == 1 else "axis"))
        shapes.append(text(x(tick), height - 22, f"{tick:g}", "middle"))
    for index, (title, run) in enumerate(rows):
        y = 25 + step * index
        shapes.append(text(left - 12, y + 4, title, "end"))
        others = [("bare", run["ratio"], run["ratio_low"], run["ratio_high"])]
        if "gain" in run:
            others.append(("sqlitecpp", 1 / run["gain"], 1 / run["gain_high"], 1 / run["gain_low"]))
        elif "sqlitecpp" in run:
            others.append(("sqlitecpp",) + (run["veldra"] / run["sqlitecpp"],) * 3)
        for way, middle, low, high in others:
            colour = COLOURS[way]
            shapes.append(f'<g style="stroke:{colour};fill:{colour}">'
                          f"<title>{html.escape(title)}: {middle:.2f} of {way} "
                          f"({low:.2f} to {high:.2f})</title>"
                          + line(x(low), y, x(high), y, "spread")
                          + f'<circle cx="{x(middle):.1f}" cy="{y}" r="4"/></g>')
        limit = x(run["limit"])
        shapes.append(line(limit, y - 8, limit, y + 8, "limit"))
    shapes.append(text(20, height - 4, "time of veldra / time of bare SQLite (blue), of SQLiteCpp "
                       "(orange), logarithmic; the bar is the limit against bare SQLite"))
    return figure("Ratios, medians with quartiles", 900, height, shapes)


def percentile_plot(run):
    names = [("p50", "50 %"), ("p90", "90 %"), ("p99", "99 %"), ("p999", "99.9 %"), ("max", "longest")]
    values = [run[f"{way}_{name}"] for way in ("idle", "beside") for name, _ in names]
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))

    def y(seconds):
        return 260 - (math.log10(seconds) - low) / (high - low) * 240

    shapes = []
    for power in range(low, high + 1):
        shapes.append(line(90, y(10**power), 700, y(10**power)))
        shapes.append(text(82, y(10**power) + 4, duration(10**power), "end"))
    for index, (_, label) in enumerate(names):
        shapes.append(text(140 + 130 * index, 282, label, "middle"))
    for way, label in (("idle", "idle file"), ("beside", "while 1,000,000 symbols are swapped")):
        points = [(140 + 130 * index, run[f"{way}_{name}"]) for index, (name, _) in enumerate(names)]
        path = " ".join(f"{x:.1f},{y(value):.1f}" for x, value in points)
        shapes.append(f'<polyline points="{path}" style="stroke:{COLOURS[way]}"/>')
        for x, value in points:
            shapes.append(f'<circle cx="{x}" cy="{y(value):.1f}" r="4" style="fill:{COLOURS[way]}">'
                          f"<title>{label}: {duration(value)}</title></circle>")
    shapes.append(text(90, 302, "latency of fetchone by key, 1 thread: idle file (blue), "
                       "during the swap (orange)"))
    return figure("Queries beside a swap", 900, 310, shapes)


def compaction_plot(run):
    samples = [[float(part) for part in point.split()]
               for point in run["label"].split(";") if point]
    end = max(sample[0] for sample in samples)
    largest = max(sample[1] for sample in samples)
    longest = max(sample[2] for sample in samples)

    def x(seconds):
        return 90 + seconds / end * 760

    shapes = [line(90, 130, 850, 130), line(90, 270, 850, 270)]
    path = " ".join(f"{x(t):.1f},{130 - size / largest * 110:.1f}" for t, size, _ in samples)
    shapes.append(f'<polyline points="{path}" style="stroke:{COLOURS["idle"]}"/>')
    for t, _, wait in samples:
        shapes.append(f'<line x1="{x(t):.1f}" y1="270" x2="{x(t):.1f}" '
                      f'y2="{270 - wait / longest * 110:.1f}" style="stroke:{COLOURS["beside"]}">'
                      f"<title>{duration(wait)}</title></line>")
    shapes += [text(82, 26, f"{largest:.0f} MiB", "end"), text(82, 134, "0", "end"),
               text(82, 166, duration(longest), "end"), text(82, 274, "0", "end"),
               text(90, 290, "0 s"), text(850, 290, duration(end), "end"),
               text(90, 308, "size of the file (blue); how long a write that ended then had waited "
                    "for the lock and run (orange)")]
    return figure("File size and waits during a compaction", 900, 315, shapes)


STYLE = """
:root { color-scheme: light dark; }
body { font: 15px/1.5 system-ui, sans-serif; max-width: 960px; margin: 2em auto; padding: 0 1em; }
svg { width: 100%; height: auto; } text { font-size: 12px; fill: currentColor; }
line.axis { stroke: #8886; } line.strong { stroke: currentColor; } line.spread { stroke-width: 2; }
line.limit { stroke: currentColor; stroke-width: 2; opacity: .5; }
polyline { fill: none; stroke-width: 2; }
figure { margin: 2em 0; } figcaption { font-weight: 600; }
table { border-collapse: collapse; font-size: 13px; }
th, td { border-bottom: 1px solid #8886; padding: .25em .6em; text-align: left; }
"""


def page(runs, context, markdown):
    plots = []
    if compared(runs):
        plots.append(ratio_plot(runs))
    if "queries_beside_a_swap" in runs:
        plots.append(percentile_plot(runs["queries_beside_a_swap"]))
    if "compaction" in runs:
        plots.append(compaction_plot(runs["compaction"]))
    rows = []
    for row in markdown.splitlines():
        if row.startswith("|---"):
            continue
        if not row:
            rows.append("</table><table>")
            continue
        cells = "".join(f"<td>{html.escape(cell.strip())}</td>" for cell in row.strip("|").split("|"))
        rows.append(f"<tr>{cells}</tr>")
    machine = (f"{context['num_cpus']} processors of {context['mhz_per_cpu']} MHz, "
               f"{context['date'][:10]}, load {context['load_avg'][0]:.1f} at the start")
    return ('<!DOCTYPE html><html lang="en"><head><meta charset="utf-8">'
            '<meta name="viewport" content="width=device-width">'
            f"<title>Veldra storage: benchmarks</title><style>{STYLE}</style></head><body>"
            f"<h1>Veldra storage: benchmarks</h1><p>{html.escape(machine)}</p>"
            f"{''.join(plots)}<table>{''.join(rows)}</table></body></html>\n")


def main():
    if not 3 <= len(sys.argv) <= 4:
        sys.exit(__doc__)
    runs, context = load(sys.argv[1])
    markdown = tables(runs)
    if len(sys.argv) > 3:
        with open(sys.argv[3], encoding="utf-8") as rows:
            markdown += "\n" + rows.read().rstrip("\n")
    with open(sys.argv[2], "w", encoding="utf-8") as file:
        file.write(page(runs, context, markdown))
    print(markdown)


if __name__ == "__main__":
    main()
