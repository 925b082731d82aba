#!/usr/bin/python3
"""Writes bench/RESULTS.md and its chart from one run of scripts/bench.sh.

Reads the workload table (bench/workloads.txt) and, per run named there, the JSON report
(<results>/<run>.json) and console output (<results>/<run>.log) that scripts/bench.sh saved, plus
the load averages it noted (<results>/load.txt). Every figure is the median over the repetitions of
the run. Standard library only; the chart is drawn by gnuplot.
"""
import argparse
import datetime
import glob
import json
import os
import platform
import re
import statistics
import subprocess
import sys

TABLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "workloads.txt")
# Why a target is missed, measured and written down by hand: "## <section>: <workload>" headings,
# each followed by its explanation. The report quotes the ones whose target this run missed.
MISSES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "misses.md")
TIME_UNITS_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
# Lines of bench_array's peak-memory report: library, input, megabytes, then three figures in MiB
# (input and output only, with the sort, difference).
PEAK_LINE = re.compile(r"^\s*(\S+)\s+(\S+)\s+(\d+) MB:\s+(\S+)\s+(\S+)\s+(\S+)\s*$")


class Row:
    def __init__(self, fields):
        self.section, self.workload, self.run, self.measure, self.ours, peers, target = fields
        self.peers = []
        if peers != "-":
            for item in peers.split(","):
                label, name = item.split("=", 1)
                self.peers.append((label.strip(), name.strip()))
        self.target_peer, self.target_limit = None, None
        if target != "-":
            label, limit = target.split("<=", 1)
            self.target_peer = label.strip() or None
            self.target_limit = float(limit)
            if self.target_peer and self.target_peer not in dict(self.peers):
                raise ValueError("target names no peer of its row: " + target)


def read_table(path):
    rows = []
    with open(path, encoding="utf-8") as table:
        for number, line in enumerate(table, 1):
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            fields = [field.strip() for field in line.split("|")]
            if len(fields) != 7:
                sys.exit(f"{path}:{number}: expected 7 columns, found {len(fields)}")
            try:
                rows.append(Row(fields))
            except ValueError as error:
                sys.exit(f"{path}:{number}: {error}")
    return rows


def higher_is_better(measure):
    return measure.endswith("_per_second") or measure.endswith("_per_s")


class Results:
    """The cases of every run: name -> list of result entries (one per repetition)."""

    def __init__(self, directory):
        self.directory = directory
        self.runs = {}
        self.contexts = {}

    def cases(self, run):
        if run not in self.runs:
            self.runs[run] = self._load(run)
        return self.runs[run]

    def _load(self, run):
        cases = {}
        path = os.path.join(self.directory, run + ".json")
        if os.path.exists(path):
            with open(path, encoding="utf-8") as report:
                data = json.load(report)
            self.contexts[run] = data.get("context", {})
            entries = data.get("benchmarks", [])
            iterations = [e for e in entries if e.get("run_type") != "aggregate"]
            medians = [e for e in entries if e.get("aggregate_name") == "median"]
            for entry in iterations or medians:
                cases.setdefault(entry.get("run_name", entry["name"]), []).append(entry)
        log = os.path.join(self.directory, run + ".log")
        if os.path.exists(log):
            with open(log, encoding="utf-8", errors="replace") as console:
                for line in console:
                    match = PEAK_LINE.match(line)
                    if match:
                        library, kind, megabytes, _, _, extra = match.groups()
                        name = f"peak_memory/{library}/{kind}/{megabytes}"
                        cases.setdefault(name, []).append({"peak_mib": float(extra)})
        return cases

    def figure(self, run, name, measure):
        """(value, None) as the median of the repetitions, or (None, why there is none)."""
        entries = self.cases(run).get(name)
        if not entries:
            return None, "not run"
        errors = [e.get("error_message", "error") for e in entries if e.get("error_occurred")]
        if errors:
            return None, "check failed: " + errors[0]
        values = []
        for entry in entries:
            if measure in ("cpu", "real"):
                key = "cpu_time" if measure == "cpu" else "real_time"
                values.append(entry[key] * TIME_UNITS_NS[entry.get("time_unit", "ns")])
            elif measure in entry:
                values.append(float(entry[measure]))
        if not values:
            return None, "no " + measure
        return statistics.median(values), None


def si(value, unit, base=1000.0, prefixes=("", "k", "M", "G")):
    index = 0
    while abs(value) >= 1000 and index + 1 < len(prefixes):
        value /= base
        index += 1
    return f"{value:.3g} {prefixes[index]}{unit}"


def show(value, measure):
    if measure in ("cpu", "real") or measure.endswith("_ns") or measure.endswith("ns_per_line"):
        for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
            if value >= scale:
                return f"{value / scale:.3g} {unit}"
        return f"{value:.3g} ns"
    if measure == "bytes_per_second":
        return si(value, "iB/s", 1024.0, ("", "K", "M", "G")).replace(" iB/s", " B/s")
    if measure.endswith("_per_s"):
        return si(value, "lines/s")
    if measure.endswith("_ms"):
        return f"{value:.3g} ms"
    if measure.endswith("_pct"):
        return f"{value:.3g} %"
    if measure.endswith("_mib"):
        return f"{value:.4g} MiB"
    return f"{value:.4g}"


MEASURE_NAMES = {
    "cpu": "CPU time",
    "real": "wall time",
    "bytes_per_second": "throughput",
    "cpu_ns_per_line": "producer CPU per line",
    "ns_per_line": "producer wall per line",
    "file_lines_per_s": "lines/s in the file",
    "dropped_pct": "dropped",
    "late_p50_ms": "lateness p50",
    "late_p99_ms": "lateness p99",
    "peak_mib": "peak memory",
}


def ratio(ours, peer, measure):
    if ours is None or peer is None or ours == 0 or peer == 0:
        return None
    return peer / ours if higher_is_better(measure) else ours / peer


def show_ratio(value):
    if value is None:
        return "—"
    return f"{value:,.0f}" if value >= 1000 else f"{value:.3g}"


class Outcome:
    def __init__(self, row, results):
        self.row = row
        self.ours, self.why = results.figure(row.run, row.ours, row.measure)
        self.peers = []
        for label, name in row.peers:
            value, why = results.figure(row.run, name, row.measure)
            self.peers.append((label, value, why, ratio(self.ours, value, row.measure)))
        self.checked = None  # the ratio or figure the target is judged on
        self.status = "—"
        if row.target_limit is None:
            return
        if row.target_peer:
            peer = [p for p in self.peers if p[0] == row.target_peer][0]
            self.checked = peer[3]
            missing = self.why or peer[2]
        else:
            self.checked = self.ours
            missing = self.why
        if self.checked is None:
            self.status = "no figure (" + (missing or "no ratio") + ")"
        else:
            self.status = "met" if self.checked <= row.target_limit else "**missed**"

    def target_text(self):
        row = self.row
        if row.target_limit is None:
            return "—"
        if row.target_peer:
            return f"≤ {row.target_limit:g} × {row.target_peer}"
        return "≤ " + show(row.target_limit, row.measure)

    def chart_peer(self):
        """The peer whose ratio the chart shows: the target's, else the first one with a ratio."""
        for label, _, _, value in self.peers:
            if value is not None and (self.row.target_peer in (None, label)):
                return label, value
        return None


def read_misses(path):
    explained, key = {}, None
    with open(path, encoding="utf-8") as text:
        for line in text:
            if line.startswith("## "):
                key = line[3:].strip()
                explained[key] = []
            elif key is not None:
                explained[key].append(line.rstrip("\n"))
    return {key: " ".join(body).strip() for key, body in explained.items()}


def machine(tree):
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        for line in cpuinfo:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    compiler = "unknown compiler"
    for path in glob.glob(os.path.join(tree, "CMakeFiles", "*", "CMakeCXXCompiler.cmake")):
        with open(path, encoding="utf-8") as cmake:
            text = cmake.read()
        ident = re.search(r'set\(CMAKE_CXX_COMPILER_ID "([^"]*)"\)', text)
        version = re.search(r'set\(CMAKE_CXX_COMPILER_VERSION "([^"]*)"\)', text)
        if ident and version:
            compiler = f"{ident.group(1)} {version.group(1)}"
    return f"{model}, {os.cpu_count()} cores, Linux {platform.release()}, {compiler}, Release build"


def load_line(directory):
    path = os.path.join(directory, "load.txt")
    if not os.path.exists(path):
        return "not recorded"
    samples = []
    with open(path, encoding="utf-8") as load:
        for line in load:
            parts = line.split()
            if len(parts) >= 2:
                samples.append((parts[0], float(parts[1])))
    if not samples:
        return "not recorded"
    values = [value for _, value in samples]
    return (f"{values[0]:.2f} at the start, {values[-1]:.2f} at the end, {min(values):.2f} to "
            f"{max(values):.2f} over the {len(values)} samples taken before each binary "
            f"(1-minute average, {os.cpu_count()} cores)")


def run_date(results):
    dates = sorted(c["date"] for c in results.contexts.values() if "date" in c)
    if dates:
        return dates[0]
    return datetime.datetime.now().astimezone().isoformat(timespec="seconds")


# Figures that are not speeds stay out of the chart (a memory ratio to a near-zero peer would
# dwarf every bar).
UNCHARTED = ("peak_mib", "dropped_pct")


def chart(outcomes, path, subtitle):
    bars = []
    for outcome in outcomes:
        shown = outcome.chart_peer()
        if shown is None or outcome.row.measure in UNCHARTED:
            continue
        label, value = shown
        color = {"met": 0x2E7D32, "**missed**": 0xC62828}.get(outcome.status, 0x78909C)
        target = outcome.row.target_limit if outcome.row.target_peer == label else None
        bars.append((f"{outcome.row.section}: {outcome.row.workload} (vs {label})", value, color, target))
    if not bars:
        return False
    data = path + ".dat"
    with open(data, "w", encoding="utf-8") as out:
        for index, (label, value, color, target) in enumerate(bars):
            low, high = min(value, 1.0), max(value, 1.0)
            label = label.replace('"', "'")
            text_at = max(high, target or 0.0)  # right of the bar and of its target mark
            out.write(f'{index} {value} {low} {high} {color} {target if target else "NaN"} "{label}" {text_at}\n')
    values = [b[1] for b in bars] + [b[3] for b in bars if b[3]] + [1.0]
    low, high = min(values) / 1.6, max(values) * 1.6
    ticks = [m * 10.0 ** e for e in range(-4, 5) for m in (1, 2, 5) if low <= m * 10.0 ** e <= high]
    script = f"""
set terminal pngcairo noenhanced size 1400,{180 + 22 * len(bars)} font "DejaVu Sans,10"
set output "{path}"
set title "Our time ÷ the peer's time, log scale (left of 1: we are faster)\\n{subtitle}"
set logscale x 10
set xrange [{low}:{high}]
set xtics ({", ".join(f"{t:g}" for t in ticks)})
set yrange [{len(bars) - 0.5}:-0.5]
set grid xtics
set key outside bottom center horizontal
set arrow from 1, graph 0 to 1, graph 1 nohead lw 2 lc rgb "black"
set ytics nomirror
plot "{data}" using ((($3)+($4))/2):1:3:4:($1-0.36):($1+0.36):5:ytic(7) with boxxyerror fs solid 0.85 noborder lc rgb variable notitle, \\
     "" using 6:1 with points pt 3 ps 1.4 lc rgb "black" title "target", \\
     "" using 8:1:(sprintf(" %.2g", $2)) with labels left offset 0.6,0 font ",9" notitle, \\
     NaN with boxes fs solid 0.85 lc rgb "#2E7D32" title "target met", \\
     NaN with boxes fs solid 0.85 lc rgb "#C62828" title "target missed", \\
     NaN with boxes fs solid 0.85 lc rgb "#78909C" title "no target"
"""
    try:
        subprocess.run(["gnuplot"], input=script, text=True, check=True)
    except (OSError, subprocess.CalledProcessError) as error:
        print(f"chart not drawn: {error}", file=sys.stderr)
        return False
    finally:
        os.remove(data)
    return True


def write_report(outcomes, results, args):
    out_dir = os.path.dirname(os.path.abspath(args.out))
    chart_name = "results.png"
    date = run_date(results)
    machine_line = machine(args.tree)
    drawn = chart(outcomes, os.path.join(out_dir, chart_name), f"{machine_line}; {date}")
    lines = [
        "# Benchmark results",
        "",
        "Generated by `bash scripts/bench.sh` from one run; do not edit by hand. What each case measures",
        "and why the figures are what they are: [README.md](README.md). Workloads, peers and targets:",
        "[workloads.txt](workloads.txt).",
        "",
        f"- **Date:** {date}",
        f"- **Machine:** {machine_line}",
        f"- **Load average during the run:** {load_line(args.results)}",
        "- **Figures:** medians over the repetitions of the run. **Ratio** = our time ÷ the peer's time"
        " (for rates, the peer's rate ÷ ours): below 1 we are faster. Targets are ratios, except"
        " where a figure of ours has a bound of its own.",
        "",
    ]
    if drawn:
        lines += [f"![Ratios of our time to the peers'](results.png)", ""]
    lines += ["## Targets", "", "| Workload | Target | Ratio or figure | Result |", "|---|---|---:|---|"]
    for outcome in outcomes:
        if outcome.row.target_limit is None:
            continue
        checked = outcome.checked
        shown = "—" if checked is None else (
            show_ratio(checked) if outcome.row.target_peer else show(checked, outcome.row.measure))
        lines.append(f"| {outcome.row.section}: {outcome.row.workload} | {outcome.target_text()} | {shown} |"
                     f" {outcome.status} |")
    missed = [o for o in outcomes if o.status == "**missed**"]
    if missed:
        explained = read_misses(MISSES)
        lines += ["", "### Why targets are missed", "",
                  "Measured when the miss was analysed ([misses.md](misses.md)); the figures in the table"
                  " above are this run's."]
        for outcome in missed:
            key = f"{outcome.row.section}: {outcome.row.workload}"
            lines += ["", f"**{key}.** " + explained.get(key, "Not analysed yet.")]
    section = None
    for outcome in outcomes:
        row = outcome.row
        if row.section != section:
            section = row.section
            lines += ["", f"## {section}", "",
                      "| Workload | Measure | Ours | Peer | Peer's figure | Ratio | Target | Result |",
                      "|---|---|---:|---|---:|---:|---|---|"]
        ours = show(outcome.ours, row.measure) if outcome.ours is not None else outcome.why
        measure = MEASURE_NAMES.get(row.measure, row.measure)
        first = f"| {row.workload} | {measure} | {ours} |"
        tail = f" {outcome.target_text()} | {outcome.status} |"
        if not outcome.peers:
            lines.append(first + " — | — | — |" + tail)
        for index, (label, value, why, rel) in enumerate(outcome.peers):
            figure = show(value, row.measure) if value is not None else why
            lead = first if index == 0 else "| | | |"
            lines.append(f"{lead} {label} | {figure} | {show_ratio(rel)} |" + (tail if index == 0 else " | |"))
    with open(args.out, "w", encoding="utf-8") as report:
        report.write("\n".join(lines) + "\n")
    print(f"wrote {args.out}" + (f" and {os.path.join(out_dir, chart_name)}" if drawn else ""))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--results", required=True, help="directory of one run's JSON, logs and load.txt")
    parser.add_argument("--tree", required=True, help="the benchmarks' build tree (for the compiler)")
    parser.add_argument("--out", required=True, help="the report to write; the chart goes beside it")
    args = parser.parse_args()
    results = Results(args.results)
    outcomes = [Outcome(row, results) for row in read_table(TABLE)]
    write_report(outcomes, results, args)


if __name__ == "__main__":
    main()
