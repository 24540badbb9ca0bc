#!/usr/bin/env python3
"""Turns the measurements of bench/defence into the "Defending the address"
section of bench/RESULTS.md, replacing only that section.

usage: defence_report.py <work folder> <RESULTS.md> <runs> <switch runs>
"""
import json
import os
import platform
import statistics
import subprocess
import sys
import time

from benchlib import quantile

work, results = sys.argv[1], sys.argv[2]
BEGIN = "<!-- BEGIN defence: written by bench/defence -->"
END = "<!-- END defence -->"


def fmt(xs):
    if not xs:
        return "–"
    return "%.1f ms (IQR %.1f–%.1f, min %.1f, max %.1f, n=%d)" % (
        statistics.median(xs), quantile(xs, 0.25), quantile(xs, 0.75), min(xs), max(xs), len(xs))


def hyperfine(run_id):
    with open(os.path.join(work, "json", run_id + ".json")) as f:
        return [(r["command"], [t * 1000 for t in r["times"]]) for r in json.load(f)["results"]]


def micros_file(name):
    """Milliseconds from a file of microsecond figures; "never" lines counted apart."""
    values, never = [], 0
    with open(os.path.join(work, name)) as f:
        for line in f:
            line = line.strip()
            if line == "never":
                never += 1
            elif line:
                values.append(int(line) / 1000.0)
    return values, never


def median(xs):
    return statistics.median(xs) if xs else float("nan")


probes = dict(hyperfine("probes"))
dad = dict(hyperfine("dad"))
kernel, _ = micros_file("kernel_dad.txt")
with_na, never_na = micros_file("switch_na.txt")
without_na, never_none = micros_file("switch_none.txt")

base = median(probes["no probe"])
md = [BEGIN, "## Defending the address (bench/defence)", ""]
cpu = subprocess.run(["sh", "-c", "lscpu | sed -n 's/^Model name: *//p'"], capture_output=True,
                     text=True).stdout.strip()
md.append("Measured by `bench/defence` on %s (release build). Machine: %s, %d cores, kernel %s; "
          "load average at the end: %s. Whole runs of `vyrvip --active` inside the script's own "
          "namespace pair (va0 192.0.2.1/24 and 2001:db8::1/64; the peer vb0 .2 and ::2), timed "
          "by hyperfine; every address is free."
          % (time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()), cpu, os.cpu_count(),
             platform.release(), " ".join(open("/proc/loadavg").read().split()[:3])))
md.append("")
md.append("### The probes before an IPv4 activation")
md.append("")
md.append("| run | median (spread) | above no probe |")
md.append("|---|---|---|")
for name, xs in hyperfine("probes"):
    md.append("| %s | %s | %+.1f ms |" % (name, fmt(xs), median(xs) - base))
md.append("")
md.append("The ARP probe sends its three probes at 0, 333 and 667 ms and listens to the end of its "
          "1000 ms; the ping probe is vyrping's one second. Both at once cost the slower of the two.")
md.append("")
md.append("### The DAD wait after an IPv6 activation")
md.append("")
md.append("| run | median (spread) |")
md.append("|---|---|")
for name, xs in hyperfine("dad"):
    md.append("| %s | %s |" % (name, fmt(xs)))
md.append("| the kernel's own DAD: `ip addr add` until `ip monitor` shows the address no longer "
          "tentative | %s |" % fmt(kernel))
md.append("")
md.append("The wait follows the kernel's own time (a random start delay of up to one second, "
          "then one probe and one second to wait for an answer), which varies from run to run: the "
          "wait added %.1f ms to the activation, the kernel's own DAD took %.1f ms, at the median."
          % (median(dad["IPv6 activation, dad/timeout 5000"]) - median(dad["IPv6 activation, no wait"]),
             median(kernel)))
md.append("")
md.append("### The peer's neighbour entry after an IPv6 activation")
md.append("")
md.append("A client on the peer pings 2001:db8::10 every 0.2 s; its neighbour entry still points "
          "at the MAC of the node that held the address before (02:00:00:00:00:99, state stale). "
          "Time from the start of the activation (with dad/timeout 5000) until the entry shows "
          "this node's MAC, polled every 10 ms, at most 60 s.")
md.append("")
md.append("| activation | time until the peer follows | runs that never switched |")
md.append("|---|---|---|")
md.append("| with one Neighbor Advertisement (na/retry 1) | %s | %d |" % (fmt(with_na), never_na))
md.append("| without advertisements (na/retry 0) | %s | %d |" % (fmt(without_na), never_none))
md.append("")
md.append("With advertisements the entry moves as soon as DAD has passed and the first "
          "advertisement is out; without them the peer only learns after its own neighbour "
          "unreachability detection gives up on the old MAC (delay, unicast probes, then a "
          "multicast solicitation this node answers).")
md.append("")
md.append("Commands:")
md.append("")
md.append("```")
with open(os.path.join(work, "commands.txt")) as f:
    md.extend(line.rstrip("\n") for line in f)
md.append("kernel DAD: ip -6 monitor address while ip -6 addr add 2001:db8::10/64 dev va0")
md.append("```")
md.append(END)

text = open(results).read() if os.path.exists(results) else ""
if BEGIN in text and END in text:
    text = text[:text.index(BEGIN)] + "\n".join(md) + text[text.index(END) + len(END):]
else:
    text = text.rstrip("\n") + "\n\n" + "\n".join(md) + "\n"
with open(results, "w") as f:
    f.write(text)
