#!/usr/bin/env python3
"""Turns the measurements of bench/failover into its section of bench/RESULTS.md.

Arguments: results.tsv rounds started work_dir RESULTS.md token_ms. The
section sits between the BEGIN and END markers below; the rest of the file
is left as it is (bench/run carries the section over when it rewrites the
file).
"""
import os
import platform
import statistics
import sys

from benchlib import sh, steal_percent

BEGIN = "<!-- BEGIN failover: written by bench/failover -->"
END = "<!-- END failover -->"
PROBE_WAIT_MS = 1000  # ping_timeout's default: the probe waits 1 s for an answer

results, rounds, started, work, out, token_ms = sys.argv[1:7]

samples = {}
variants = []
metrics = []
with open(results) as f:
    for line in f:
        variant, metric, ms = line.rstrip("\n").split("\t")
        samples.setdefault((variant, metric), []).append(int(ms))
        if variant not in variants:
            variants.append(variant)
        if metric not in metrics:
            metrics.append(metric)
KNOWN = ("IPaddr2", "vyrvip", "vyrvip, no stop ping", "vyrvip defaults")
variants = [v for v in KNOWN if v in variants] + [v for v in variants if v not in KNOWN]
order = [m for m in ("standby: address on the other node", "standby: client answered from its MAC",
                     "kill: address on the other node", "kill: client answered from its MAC",
                     "start action", "stop action") if m in metrics]


def median(variant, metric):
    return statistics.median(samples[(variant, metric)])


def cell(variant, metric):
    v = samples.get((variant, metric))
    if not v:
        return "-"
    return "%d ms (%d-%d, n=%d)" % (statistics.median(v), min(v), max(v), len(v))


verdicts = []
for how in ("standby", "kill"):
    metric = how + ": client answered from its MAC"
    if ("vyrvip", metric) in samples and ("IPaddr2", metric) in samples:
        ratio = median("vyrvip", metric) / max(median("IPaddr2", metric), 1)
        verdicts.append(("%s, client-visible: vyrvip / IPaddr2 (medians)" % how, "<= 1.0",
                         "%.2f" % ratio, ratio <= 1.0))
    if ("vyrvip defaults", metric) in samples and ("vyrvip", metric) in samples:
        extra = median("vyrvip defaults", metric) - median("vyrvip", metric)
        verdicts.append(("%s, client-visible: vyrvip defaults - vyrvip (medians)" % how,
                         "<= %d ms (the probe's wait)" % PROBE_WAIT_MS, "%d ms" % extra,
                         extra <= PROBE_WAIT_MS))

cpu = sh("grep -m1 'model name' /proc/cpuinfo | cut -d: -f2-").strip() or platform.processor()
md = [BEGIN, "## Failover under Pacemaker (`bench/failover`)", ""]
md.append("Measured by `bench/failover` on %s: %s rounds on a two-node Pacemaker 2.1.5 + "
          "Corosync 3.1.7 cluster on this machine (each node in its own namespaces, corosync "
          "token %s ms, resource-stickiness 100, monitor every 10 s). Machine: %s, %d cores, "
          "kernel %s; CPU time stolen by the host during the run: %.1f%%; load average at the "
          "end: %s." % (started, rounds, token_ms, cpu, os.cpu_count(), platform.release(),
                        steal_percent(os.path.join(work, "cpu-start"), os.path.join(work, "cpu-end")), sh("cut -d' ' -f1-3 /proc/loadavg")))
md.append("")
md.append("Each round moves each resource in turn (the order rotates from round to round; only "
          "the resource under test runs): `crm node standby` of the node holding it, back "
          "online, then SIGKILL of every process of the node now holding it, which then "
          "restarts and rejoins. Times run from just before the `crm` command or the kill to "
          "(a) the address's appearance on the other node, as that node's kernel reports it "
          "(`ip monitor`), and (b) the first echo reply from the other node's MAC among the "
          "client's pings every 50 ms; the client's neighbour entries are made to last an hour, "
          "so only the gratuitous ARP can turn them. Start and stop are the `exec-time` "
          "Pacemaker records for each operation. IPaddr2 and vyrvip run with comparable "
          "settings: no duplicate probe (IPaddr2 has none; vyrvip `ping_timeout=0`), one "
          "gratuitous ARP frame (`arp_count=1`, `arp_retry=1`). vyrvip's stop confirms the removal "
          "by listing and by ping (its defaults; the ping waits up to 1 s for an answer that "
          "should not come) and IPaddr2's does not: \"vyrvip, no stop ping\" also sets "
          "`check_ping_execute=0`. vyrvip's start sleeps one second after each ARP frame, the "
          "last one included, after the address is up and announced. \"vyrvip defaults\" is "
          "the agent as installed, duplicate probe on (`ping_timeout=1`).")
md.append("")
md.append("| what: median (min-max, runs) | " + " | ".join(variants) + " |")
md.append("|---|" + "---|" * len(variants))
for metric in order:
    md.append("| %s | %s |" % (metric, " | ".join(cell(v, metric) for v in variants)))
md.append("")
md.append("| target | limit | measured | verdict |")
md.append("|---|---|---|---|")
for what, limit, measured, met in verdicts:
    md.append("| %s | %s | %s | %s |" % (what, limit, measured, "met" if met else "missed"))
md.append("")
md.append("Reproduce with `sudo bench/failover %s`." % rounds)
md.append(END)
section = "\n".join(md) + "\n"

text = open(out).read() if os.path.exists(out) else ""
if BEGIN in text and END in text:
    head, rest = text.split(BEGIN, 1)
    tail = rest.split(END, 1)[1].lstrip("\n")
    text = head + section + ("\n" + tail if tail else "")
else:
    text = text.rstrip("\n") + "\n\n" + section
with open(out, "w") as f:
    f.write(text)
print(section)
