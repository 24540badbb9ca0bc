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
KNOWN = ("IPaddr2", "vyrvip", "vyrvip, stop confirmed", "vyrvip defaults")
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


def own_wait(variant, base, action):
    """What the settings that tell VARIANT from BASE cost the action itself:
    the difference of the medians of its exec-time (ms), or None."""
    if (variant, action) in samples and (base, action) in samples:
        return median(variant, action) - median(base, action)
    return None


def extra(what, variant, base, metric, wait, why):
    if (variant, metric) in samples and (base, metric) in samples and wait is not None:
        ms = median(variant, metric) - median(base, metric)
        verdicts.append((what, "<= %d ms (%s)" % (wait, why), "%d ms" % ms, ms <= wait))


# The defaults add the probes to start (ping and ARP probe side by side, 1 s
# each); the confirming ping adds its 1 s wait to stop. Their own cost is
# what they add to the action that runs them, as Pacemaker timed it.
probe_wait = own_wait("vyrvip defaults", "vyrvip, stop confirmed", "start action")
confirm_wait = own_wait("vyrvip, stop confirmed", "vyrvip", "stop action")
for how in ("standby", "kill"):
    metric = how + ": client answered from its MAC"
    if ("vyrvip", metric) in samples and ("IPaddr2", metric) in samples:
        ratio = median("vyrvip", metric) / max(median("IPaddr2", metric), 1)
        verdicts.append(("%s, client-visible: vyrvip / IPaddr2 (medians)" % how, "<= 1.0",
                         "%.2f" % ratio, ratio <= 1.0))
    extra("%s, client-visible: vyrvip defaults - vyrvip, stop confirmed (medians)" % how,
          "vyrvip defaults", "vyrvip, stop confirmed", metric, probe_wait,
          "what the probes add to the start action")

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
          "restarts and rejoins. The node killed is never the cluster's designated controller "
          "(when it holds the address, the address first moves away, untimed), so the survivor "
          "never has to win an election first and every kill costs the same. Times run from "
          "just before the `crm` command or the kill to "
          "(a) the address's appearance on the other node, as that node's kernel reports it "
          "(`ip monitor`), and (b) the first echo reply from the other node's MAC among the "
          "client's pings every 50 ms; the client's neighbour entries are made to last an hour, "
          "so only the gratuitous ARP can turn them. Start and stop are the `exec-time` "
          "Pacemaker records for each operation.")
md.append("")
md.append("\"vyrvip\" is compared with IPaddr2 like for like: what IPaddr2 does not do is "
          "switched off, that is the duplicate probes before start (`ping_timeout=0`, "
          "`arpprobe_timeout=0`) and the ping that confirms the removal at stop "
          "(`check_ping_execute=0`; it waits 1 s for an answer that should not come), and both "
          "send one gratuitous ARP frame (`arp_count=1`, `arp_retry=1`). \"vyrvip, stop "
          "confirmed\" turns the confirming ping back on; \"vyrvip defaults\" is the agent as "
          "installed, which adds the two probes (1 s each, side by side). vyrvip's start sleeps "
          "one second after each ARP frame, the last one included, after the address is up "
          "and announced, so its start action lasts a second longer than the move the client "
          "sees.")
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
standby = "standby: client answered from its MAC"
if confirm_wait is not None and ("vyrvip, stop confirmed", standby) in samples \
        and ("vyrvip", standby) in samples:
    md.append("")
    md.append("The confirming ping, which IPaddr2 does not have, adds %d ms to what the client "
              "sees at standby (medians); it adds %d ms to the stop action." % (
                  median("vyrvip, stop confirmed", standby) - median("vyrvip", standby),
                  confirm_wait))
md.append("")
md.append("Kill failover falls into two groups about a second apart for every agent (compare the "
          "min-max ranges of the kill rows), also with the controller surviving every kill; which "
          "group a round falls into looks like chance, so with few rounds the kill medians, and "
          "the kill targets with them, can move by a second from one run to the next. Standby "
          "moves do not spread this way.")
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
