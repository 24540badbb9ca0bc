#!/usr/bin/env python3
"""Turns the measurements of bench/run into bench/RESULTS.md and results.png.

usage: report.py <work folder of bench/run> <output folder>
"""
import json
import os
import platform
import statistics
import subprocess
import sys
import time

from benchlib import quantile, sh, steal_percent

work, out = sys.argv[1], sys.argv[2]


def summary(times_ms):
    # Keep ratios finite when a timer rounds a very short run to zero.
    times_ms = [max(t, 1e-3) for t in times_ms]
    return {
        "median": statistics.median(times_ms),
        "p25": quantile(times_ms, 0.25),
        "p75": quantile(times_ms, 0.75),
        "min": min(times_ms),
        "max": max(times_ms),
        "n": len(times_ms),
    }


def hyperfine(run_id):
    with open(os.path.join(work, "json", run_id + ".json")) as f:
        data = json.load(f)["results"]
    return [summary([t * 1000 for t in r["times"]]) for r in data]


commands = {}
with open(os.path.join(work, "commands.txt")) as f:
    for line in f:
        key, cmd = line.rstrip("\n").split("\t", 1)
        commands[key] = cmd

peaks = {}
with open(os.path.join(work, "peak.txt")) as f:
    for line in f:
        key, value = line.rstrip("\n").split("\t", 1)
        peaks[key] = value


def fmt(s):
    return "%.1f ms (IQR %.1f–%.1f, min %.1f, max %.1f, n=%d)" % (
        s["median"], s["p25"], s["p75"], s["min"], s["max"], s["n"])


rows = []      # markdown rows of the whole-run table
chart = []     # (label, agent median, baseline median)
verdicts = []  # (what, met)


def verdict(met):
    return "met" if met else "**missed**"


def record(what, agent, base, met, chart_label=None):
    chart.append((chart_label or what, agent["median"], base["median"]))
    verdicts.append((what, met))


def ratio_row(run_id, what, base_what, limit):
    agent, base = hyperfine(run_id)
    ratio = agent["median"] / base["median"]
    met = ratio <= limit
    rows.append("| %s | %s | %s: %s | %.2f | ≤ %.1f× | %s | `%s` |" % (
        what, fmt(agent), base_what, fmt(base), ratio, limit, verdict(met), run_id))
    record(what, agent, base, met)


def wait_row(run_id, what, base_what, wait_ms, slack_ms):
    agent, base = hyperfine(run_id)
    ratio = agent["median"] / base["median"]
    met = agent["median"] <= wait_ms + slack_ms
    rows.append("| %s | %s | %s: %s | %.2f | ≤ %d ms (wait %d + %d) | %s | `%s` |" % (
        what, fmt(agent), base_what, fmt(base), ratio, wait_ms + slack_ms, wait_ms, slack_ms,
        verdict(met), run_id))
    record(what, agent, base, met)


def extra_row(runs, what, agent, base, base_what, limit_ms, target, chart_label):
    # A target on the milliseconds the agent adds to its baseline.
    extra = agent["median"] - base["median"]
    met = extra <= limit_ms
    rows.append("| %s | %s | %s: %s | %.2f | %s: %+.1f ms | %s | %s |" % (
        what, fmt(agent), base_what, fmt(base), agent["median"] / base["median"], target, extra,
        verdict(met), runs))
    record(what, agent, base, met, chart_label)


ratio_row("overhead_fast", "activation, probes off", "ip addr add", 1.5)
ratio_row("overhead_probe", "activation, tool probe on", "ip addr add", 4.0)
ratio_row("overhead_deact", "deactivation, confirmations off", "ip addr del", 4.0)
wait_row("waits_act", "activation, defaults", "vyrping -c 1 + sleep 1", 2000, 50)
wait_row("waits_deact", "deactivation, ping confirmation", "vyrping -c 1", 1000, 50)
ratio_row("fanout", "probe of 64 addresses (allip)", "probe of 1 address", 1.2)

floor64, floor1 = hyperfine("fanout_floor")
rows.append("| (for reference) 64 bare vyrping processes at once, started by a shell | %s | one vyrping: %s | %.2f | – | – | `fanout_floor` |" % (
    fmt(floor64), fmt(floor1), floor64["median"] / floor1["median"]))

tool_agent, tool_base = hyperfine("tool_path")
extra_row("`tool_path`", "activation through the interface tool", tool_agent, tool_base,
          "the tool's own 3 calls", 50,
          "≤ 50 ms above the tool's calls (no 100 ms polling step)", "activation via interface tool")

s10, ip10 = hyperfine("scale_10")
s10k, ip10k = hyperfine("scale_10000")
extra_row("`scale_10000`, `scale_10`", "activation beside 10,000 addresses", s10k, s10,
          "same beside 10 addresses", 100, "≤ +100 ms", "activation beside 10,000 addresses")
rows.append("| (for reference) ip addr add beside 10 / 10,000 addresses | %s | %s | %.2f | – | – | "
            "`scale_10`, `scale_10000` |" % (fmt(ip10k), fmt(ip10), ip10k["median"] / ip10["median"]))

# Google Benchmark: median over the repetitions, real and CPU time.
with open(os.path.join(work, "json", "gbench.json")) as f:
    gb = json.load(f)
reps = {}
for b in gb["benchmarks"]:
    if b.get("run_type") != "iteration":
        continue
    unit = {"ms": 1.0, "us": 1e-3, "ns": 1e-6}[b["time_unit"]]
    reps.setdefault(b["run_name"], []).append((b["real_time"] * unit, b["cpu_time"] * unit))


def gb_summary(name):
    real = [r for r, _ in reps[name]]
    cpu = [c for _, c in reps[name]]
    return summary(real), summary(cpu)


gb_rows = []


def gb_row(name, base, what, limit_ms):
    real, cpu = gb_summary(name)
    breal, bcpu = gb_summary(base)
    if limit_ms is None:
        shown, target = "–", "(part of the +100 ms budget above)"
    else:
        met = real["median"] <= limit_ms
        shown = verdict(met)
        target = "≤ %d ms" % limit_ms
        verdicts.append((what, met))
    gb_rows.append("| %s | %s | CPU %.3f ms | %s: %.3f ms | %.0f | %s | %s | `%s` |" % (
        what, fmt(real), cpu["median"], base.split("/")[-1] + " as baseline", breal["median"],
        real["median"] / breal["median"], target, shown, name))


gb_row("BM_ParseOlderListing/10000", "BM_ParseOlderListing/10",
       "parse a 10,000-block listing (older layout)", 50)
gb_row("BM_LoadAndFillConfig/1000", "BM_LoadAndFillConfig/1",
       "load 1,000 resources × 8 servers and fill the settings", 20)
gb_row("BM_ChooseAlias/9999", "BM_ChooseAlias/10", "choose an alias with 9,999 in use", None)

peak_rows = []
for key, value in peaks.items():
    if key == "scale_label":
        continue
    kib = int(value)
    met = kib < 16 * 1024
    verdicts.append(("peak memory, " + key, met))
    peak_rows.append("| %s | %.1f MiB | < 16 MiB | %s |" % (key, kib / 1024.0, verdict(met)))


cpu_model = sh("grep -m1 'model name' /proc/cpuinfo | cut -d: -f2-")


machine = "%s, %s cores, %s, kernel %s; CPU time stolen by the host during the run: %.1f%%; load average at the end: %s" % (
    cpu_model or platform.processor(), os.cpu_count(), sh("free -h | awk '/Mem:/ {print $2}'") + " RAM",
    platform.release(), steal_percent(os.path.join(work, "cpu-start.txt"), os.path.join(work, "cpu-end.txt")), sh("cut -d' ' -f1-3 /proc/loadavg"))

missed = [w for w, m in verdicts if not m]
md = []
md.append("# Benchmark results\n")
md.append("Measured by `bench/run` on %s (%s). Machine: %s.\n" % (
    time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()), "release build", machine))
md.append("The machine is shared: other builds and tests ran at the same time, so wall-clock "
          "figures carry their noise; the spread columns show how much. Each whole-run figure is "
          "hyperfine's run time of the command inside the benchmark's own network namespace "
          "(veth va0, 192.0.2.1/24; peer 192.0.2.2). Agent and baseline are timed in the same "
          "hyperfine calls: the runs are split into four rounds that alternate which of the two "
          "goes first, and the figures pool the rounds.\n")
md.append("**Summary:** %d of %d targets met.%s\n" % (
    len(verdicts) - len(missed), len(verdicts),
    (" Missed: " + "; ".join(missed) + ".") if missed else ""))
md.append("![agent runs against their baselines](results.png)\n")
md.append("## Whole runs (hyperfine)\n")
md.append("| what | agent: median (spread) | baseline | ratio | target | verdict | run |")
md.append("|---|---|---|---|---|---|---|")
md.extend(rows)
md.append("\nThe scale runs chose alias `%s` for the new address (aliases 0 to 9998 in use).\n" %
          peaks.get("scale_label", "?"))
md.append("## In-process code (Google Benchmark)\n")
md.append("Median over the repetitions of the real time per call (CPU time beside it).\n")
md.append("| what | median real time (spread) | CPU | baseline | ratio | target | verdict | benchmark |")
md.append("|---|---|---|---|---|---|---|---|")
md.extend(gb_rows)
md.append("\n## Peak memory of an activation (maximum resident set, most of five runs)\n")
md.append("| run | peak | target | verdict |")
md.append("|---|---|---|---|")
md.extend(peak_rows)
notes = os.path.join(os.path.dirname(os.path.abspath(__file__)), "NOTES.md")
if os.path.exists(notes):
    with open(notes) as f:
        md.append("\n" + f.read())
md.append("\n## Commands\n")
md.append("Reproduce everything with `sudo bench/run`. Each figure came from:\n")
md.append("```")
for key, cmd in commands.items():
    md.append("%s: %s" % (key, cmd))
md.append("peak memory: ip netns exec <ns> /usr/bin/time -f %M <prefix>/bin/vyrvip --active -r <resource> -g grp1")
md.append("```")
# Sections other scripts wrote (bench/defence) stay as they are.
results = os.path.join(out, "RESULTS.md")
if os.path.exists(results):
    kept = open(results).read()
    begin = kept.find("<!-- BEGIN ")
    if begin >= 0:
        md.append("\n" + kept[begin:].rstrip("\n"))
with open(results, "w") as f:
    f.write("\n".join(md) + "\n")

# The chart: agent against baseline medians, log scale.
dat = os.path.join(work, "chart.dat")
with open(dat, "w") as f:
    for label, a, b in chart:
        f.write('"%s" %.3f %.3f\n' % (label.replace('"', ""), a, b))
script = """
set terminal pngcairo size 1200,650 font ',10'
set output '%s'
set title 'vyrvip whole runs: agent against its baseline (median, ms, log scale)'
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.8 border -1
set logscale y
set yrange [1:*]
set ylabel 'ms'
set xtics rotate by -25 scale 0
set key top left
set rmargin 14
set grid ytics
plot '%s' using 2:xtic(1) title 'agent' lc rgb '#2a6fb0', '' using 3 title 'baseline' lc rgb '#c0c0c0'
""" % (os.path.join(out, "results.png"), dat)
subprocess.run(["gnuplot"], input=script, text=True, check=True)
