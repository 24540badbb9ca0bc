#!/usr/bin/env python3
"""Turns the measurements of bench/failover into its section of bench/RESULTS.md.

Arguments: results.tsv rounds started work_dir RESULTS.md token_ms run_ms.
The work folder holds cpu-start, cpu-end, load.txt (the load average
sampled during the run), primitives.txt (the crm commands of each variant)
and what bench/arp_catch wrote. The section sits between the BEGIN and END
markers below; the rest of the file is left as it is (bench/run carries
the section over when it rewrites the file).
"""
import os
import platform
import re
import statistics
import sys
import time

from benchlib import sh, steal_percent

BEGIN = "<!-- BEGIN failover: written by bench/failover -->"
END = "<!-- END failover -->"
results, rounds, started, work, out, token_ms, run_ms = sys.argv[1:8]

samples = {}
with open(results) as f:
    for line in f:
        variant, metric, ms = line.rstrip("\n").split("\t")
        samples.setdefault((variant, metric), []).append(int(ms))

ONE_V4 = ("IPaddr2", "vyrvip", "vyrvip, stop confirmed", "IPaddr2 defaults", "vyrvip defaults")
ONE_V6 = ("IPaddr2 defaults, IPv6", "vyrvip defaults, IPv6")
MANY = ("IPaddr2 defaults, 16 addresses", "vyrvip defaults, 16 addresses")
SB_ADDR = "standby: address on the other node"
SB_CLIENT = "standby: client answered from its MAC"
KILL_ADDR = "kill: address on the other node"
KILL_CLIENT = "kill: client answered from its MAC"
LAST = "standby: last address on the other node"
SETTLED = "standby: cluster settled"
FIRST_GONE = "standby: first address gone from the old node"
LAST_GONE = "standby: last address gone from the old node"
FIRST_UP = "standby: first address on the other node"
START = "start action"
STOP = "stop action"


def median(variant, metric):
    v = samples.get((variant, metric))
    return statistics.median(v) if v else None


def cell(variant, metric):
    v = samples.get((variant, metric))
    if not v:
        return "-"
    return "%d ms (%d-%d, n=%d)" % (statistics.median(v), min(v), max(v), len(v))


def rows_table(header, rows):
    """A markdown table: the header's cells, then each row's."""
    lines = ["| %s |" % " | ".join(header), "|" + "---|" * len(header)]
    return lines + ["| %s |" % " | ".join(str(c) for c in row) for row in rows]


def table(columns, metrics, header="what: median (min-max, runs)"):
    columns = [c for c in columns if any((c, m) in samples for m in metrics)]
    return rows_table([header] + columns,
                      [[m] + [cell(c, m) for c in columns] for m in metrics
                       if any((c, m) in samples for c in columns)])


# The targets: each a ratio of the medians of this run, vyrvip over IPaddr2,
# both at their defaults.
targets = []


def ratio_target(what, metric, ours, theirs, limit):
    a, b = median(ours, metric), median(theirs, metric)
    if a is None or b is None:
        targets.append((what, "-", "-", "-", "<= %.1fx" % limit, "not measured"))
        return
    r = a / max(b, 1)
    targets.append((what, "%d ms" % b, "%d ms" % a, "%.2fx" % r, "<= %.1fx" % limit,
                    "met" if r <= limit else "missed by %.2fx (%d ms)" % (r - limit, a - b * limit)))


ratio_target("16 addresses, standby: last address up on the other node", LAST, MANY[1], MANY[0], 1.5)
ratio_target("16 addresses, standby: cluster settled", SETTLED, MANY[1], MANY[0], 1.5)
ratio_target("one IPv6 address, standby: client answered from the new node", SB_CLIENT, ONE_V6[1], ONE_V6[0], 1.0)
ratio_target("one IPv6 address, standby: address usable on the new node", SB_ADDR, ONE_V6[1], ONE_V6[0], 1.0)
ratio_target("one IPv4 address, standby: client answered from the new node", SB_CLIENT, "vyrvip defaults",
             "IPaddr2 defaults", 1.5)
ratio_target("one IPv4 address, holder SIGKILLed: client answered from the survivor", KILL_CLIENT,
             "vyrvip defaults", "IPaddr2 defaults", 1.1)



def own_time(variant, n_starts=1, n_stops=1):
    """What the agent's own actions of one move take: the medians of its
    start and stop exec-times, or None."""
    a, b = median(variant, START), median(variant, STOP)
    if a is None or b is None:
        return None
    return a * n_starts + b * n_stops


# Where the time of each target goes: the gap between the medians beside
# the gap between the agents' own action times (Pacemaker's exec-time of
# start and stop). What the actions do not explain lies outside the agent:
# Pacemaker's and corosync's own steps, the load, the spread of the runs.
gaps = []


def gap(what, metric, ours, theirs, own_ours, own_theirs, own_what):
    a, b = median(ours, metric), median(theirs, metric)
    if a is None or b is None or own_ours is None or own_theirs is None:
        return
    gaps.append("%s: vyrvip's median is %+d ms from IPaddr2's; %s differ by %+d ms (vyrvip %d ms, "
                "IPaddr2 %d ms)." % (what, a - b, own_what, own_ours - own_theirs, own_ours, own_theirs))


gap("One IPv4 address by standby (client answered)", SB_CLIENT, "vyrvip defaults", "IPaddr2 defaults",
    own_time("vyrvip defaults"), own_time("IPaddr2 defaults"), "the medians of stop + start")
gap("One IPv4 address by kill (client answered)", KILL_CLIENT, "vyrvip defaults", "IPaddr2 defaults",
    median("vyrvip defaults", START), median("IPaddr2 defaults", START), "the start medians")
gap("One IPv6 address by standby (client answered)", SB_CLIENT, ONE_V6[1], ONE_V6[0],
    own_time(ONE_V6[1]), own_time(ONE_V6[0]), "the medians of stop + start")
a, b = median(MANY[1], LAST), median(MANY[0], LAST)
if None not in (a, b, median(MANY[1], STOP), median(MANY[0], STOP), median(MANY[1], START),
                median(MANY[0], START)):
    gaps.append("16 addresses by standby (last address up): vyrvip's median is %+d ms from IPaddr2's; "
                "vyrvip's stops differ from IPaddr2's by %+d ms each and its starts by %+d ms "
                "(medians); the 16 stops on the old node and the 16 starts on the new one run a few "
                "at a time (see the throttle table below), so these add up over several rounds of "
                "actions." % (a - b, median(MANY[1], STOP) - median(MANY[0], STOP),
                              median(MANY[1], START) - median(MANY[0], START)))



def pacemaker_log(work):
    """(epoch, node, text) of every line of both nodes' pacemaker logs."""
    year = time.localtime().tm_year
    lines = []
    for n in (1, 2):
        path = os.path.join(work, "node%d" % n, "log-pacemaker", "pacemaker.log")
        if not os.path.exists(path):
            continue
        with open(path, errors="replace") as f:
            for line in f:
                m = re.match(r"(\w{3} +\d+ \d\d:\d\d:\d\d)\.(\d{3}) ", line)
                if not m:
                    continue
                t = time.mktime(time.strptime("%d %s" % (year, m.group(1)), "%Y %b %d %H:%M:%S"))
                lines.append((t + int(m.group(2)) / 1000.0, n, line))
    lines.sort(key=lambda x: x[0])
    return lines


INITIATING = re.compile(r"Initiating (?:start|stop) operation (\S+_(?:start|stop)_0) (?:locally )?on (node\d)")
CONFIRMED = re.compile(r"\((\S+_(?:start|stop)_0) on (node\d)\) confirmed")
THROTTLE = re.compile(r"New throttle mode: (.*?) \(was")


def move_figures(log, prefix, t0, t1):
    """The most start and stop actions of resources PREFIX* that Pacemaker
    had running at once between T0 and T1, and the throttle mode of each
    node over that time."""
    running, most = set(), 0
    modes = {1: [], 2: []}
    for t, n, line in log:
        if t > t1:
            break
        m = THROTTLE.search(line)
        if m:
            if t <= t0:
                modes[n] = [m.group(1)]
            else:
                modes[n].append(m.group(1))
            continue
        if t < t0:
            continue
        m = INITIATING.search(line)
        if m and m.group(1).startswith(prefix):
            running.add(m.groups())
            most = max(most, len(running))
            continue
        m = CONFIRMED.search(line)
        if m and m.group(1).startswith(prefix):
            running.discard(m.groups())
    throttle = "; ".join("node%d %s" % (n, " then ".join(modes[n]) or "none logged") for n in (1, 2))
    return most, throttle


moves = []
path = os.path.join(work, "moves.tsv")
if os.path.exists(path):
    log = pacemaker_log(work)
    with open(path) as f:
        for line in f:
            variant, prefix, t0, t1 = line.rstrip("\n").split("\t")
            most, throttle = move_figures(log, prefix, float(t0), float(t1))
            moves.append((variant, most, throttle))

# The ARP probe against a holder that answers after a delay.
catch = {"holder": [], "free": []}
path = os.path.join(work, "arpcatch.tsv")
if os.path.exists(path):
    with open(path) as f:
        for line in f:
            kind, rc, ms = line.split()
            catch[kind].append((int(rc), float(ms)))
delays = []
path = os.path.join(work, "holder.log")
if os.path.exists(path):
    with open(path) as f:
        delays = [float(x) for x in f if x.strip()]
refused = [ms for rc, ms in catch["holder"] if rc == 15]
free_ok = sum(1 for rc, _ in catch["free"] if rc == 0)
if catch["holder"]:
    met = len(refused) == len(catch["holder"]) == 100 and free_ok == len(catch["free"])
    targets.append(("ARP probe, 200 ms window: a holder answering ARP after 50 ms refused", "-", "-",
                    "%d of %d" % (len(refused), len(catch["holder"])), "100 of 100", "met" if met else "missed"))

# Earlier targets, like for like (probes and stop confirmation off).
earlier = []
for how in ("standby", "kill"):
    metric = how + ": client answered from its MAC"
    a, b = median("vyrvip", metric), median("IPaddr2", metric)
    if a is not None and b is not None:
        r = a / max(b, 1)
        earlier.append(("%s, client-visible: vyrvip / IPaddr2, like for like (medians)" % how, "<= 1.0",
                        "%.2f" % r, "met" if r <= 1.0 else "missed"))


def load_figures():
    vals = []
    path = os.path.join(work, "load.txt")
    if os.path.exists(path):
        with open(path) as f:
            vals = [float(line.split()[1]) for line in f if len(line.split()) == 2]
    if not vals:
        return "not sampled"
    return "%.2f at the start, median %.2f, highest %.2f, %.2f at the end (1-minute load average " \
           "sampled every 5 s, n=%d)" % (vals[0], statistics.median(vals), max(vals), vals[-1], len(vals))


cpu = sh("grep -m1 'model name' /proc/cpuinfo | cut -d: -f2-").strip() or platform.processor()
md = [BEGIN, "## Failover under Pacemaker (`bench/failover`)", ""]
md.append("Measured by `bench/failover %s` on %s: %s rounds on a two-node Pacemaker 2.1.5 + "
          "Corosync 3.1.7 cluster on this machine (each node in its own namespaces, corosync "
          "token %s ms, resource-stickiness 100, monitor every 10 s); the run took %.1f min. "
          "Machine: %s, %d cores, kernel %s; CPU time stolen by the host during the run: %.1f%%. "
          "Load during the run: %s. Other work on the machine (builds, tests) runs beside the "
          "bench and counts in these figures for both agents alike."
          % (rounds, started, rounds, token_ms, int(run_ms) / 60000.0, cpu, os.cpu_count(),
             platform.release(),
             steal_percent(os.path.join(work, "cpu-start"), os.path.join(work, "cpu-end")),
             load_figures()))
md.append("")
md.append("### Targets: vyrvip at its OCF defaults against IPaddr2 at its defaults")
md.append("")
md.append("Each ratio is of the medians of this run.")
md.append("")
md.extend(rows_table(["target", "IPaddr2", "vyrvip", "ratio", "limit", "verdict"], targets))
md.append("")
if gaps:
    md.append("Where the time goes. A move by standby stops the address on the old node, then "
              "starts it on the new one. vyrvip's stop at its defaults sends the question of its "
              "ARP confirmation after the removal and leaves the listening for "
              "`check_arp_timeout` to a background process (`check_arp_background`), so it does "
              "not wait; its start waits out the window of its ARP probe before the address goes "
              "up (`arpprobe_timeout`; for IPv6 its own duplicate detection, `dad_probe`), which "
              "lies on the path of every standby move and every kill. IPaddr2 at its defaults has "
              "neither check. Beside each target, the gap of the medians and the gap of the "
              "agents' own action times:")
    md.append("")
    for g in gaps:
        md.append("- " + g)
    md.append("")
md.append("### One IPv4 address")
md.append("")
md.append("Each round moves each resource in turn (the order rotates from round to round; only "
          "the resource under test runs): `crm node standby` of the node holding it, back "
          "online, then SIGKILL of every process of the node now holding it, which then "
          "restarts and rejoins. The node killed is never the cluster's designated controller "
          "(when it holds the address, the address first moves away, untimed), so the survivor "
          "never has to win an election first and every kill costs the same. Times run from "
          "just before the `crm node standby` command or the kill to "
          "(a) the address's appearance on the other node, as that node's kernel reports it "
          "(`ip monitor`; for IPv6 the report without the tentative flag), and (b) the first "
          "echo reply from the other node's MAC among the client's pings every 50 ms; the "
          "client's neighbour entries are made to last an hour, so only the gratuitous ARP (or "
          "unsolicited Neighbor Advertisement) can turn them. Start and stop are the "
          "`exec-time` Pacemaker records for each operation.")
md.append("")
md.append("\"IPaddr2 defaults\" and \"vyrvip defaults\" are both agents as installed. \"vyrvip\" "
          "is compared with \"IPaddr2\" like for like: what IPaddr2 does not do is switched off "
          "in vyrvip, that is the duplicate probes before start (`ping_timeout=0`, "
          "`arpprobe_timeout=0`) and the check that confirms the removal at stop "
          "(`check_ping_execute=0`, with `check_arp_timeout=0` where the agent has that "
          "setting), and both send one gratuitous ARP frame (`arp_count=1` for both). "
          "\"vyrvip, stop confirmed\" turns the stop confirmation back on, as the defaults "
          "have it (the listing at once, the ARP check's listening in the background). The "
          "exact parameters are under Commands below.")
md.append("")
md += table(ONE_V4, (SB_ADDR, SB_CLIENT, KILL_ADDR, KILL_CLIENT, START, STOP))
md.append("")
md.append("### One IPv6 address (2001:db8::/64), moved by standby")
md.append("")
md += table(ONE_V6, (SB_ADDR, SB_CLIENT, START, STOP))
md.append("")
md.append("### 16 addresses on one node, moved by standby")
md.append("")
md.append("The 16 resources start on one node (the other stands by meanwhile), then that node "
          "is put on standby. Timed to the last of the 16 addresses on the other node (its "
          "kernel's report) and to the settled cluster: once the controller is idle "
          "(`crmadmin -S`) and the scheduler run on the live CIB (`crm_simulate -Ls`) plans no "
          "action, the time of the controller's last move to S_IDLE in its pacemaker log. Start and stop are each resource's own action, so 16 a round; "
          "Pacemaker runs up to 4 actions at a time on a two-core node.")
md.append("")
md += table(MANY, (FIRST_GONE, LAST_GONE, FIRST_UP, LAST, SETTLED, START, STOP))
if moves:
    md.append("")
    md.append("Pacemaker runs fewer actions at once when the load average is high (its throttle: "
              "`node-action-limit` actions a node with none, down to one at \"medium\" load and "
              "above). The load average is the machine's, so the other work on it counts. Each move, "
              "from the nodes' pacemaker logs (the throttle mode logged last before the move, then "
              "any change during it):")
    md.append("")
    md.extend(rows_table(["move", "actions running at once, at most", "throttle"], moves))
md.append("")
md.append("### The ARP probe against a slow holder (`bench/arp_catch`)")
md.append("")
if catch["holder"]:
    md.append("Outside the cluster, in a pair of namespaces: a holder that answers each ARP "
              "request for the address (the probes included) only 50 ms after it came "
              "(`bench/arp_holder.py`; its kernel does not hold the address), and `vyrvip --active` "
              "with the ARP probe alone and a 200 ms window, %d times in a row, each run waiting "
              "out the holder's late answers to the run before; then %d control runs with the "
              "holder stopped." % (len(catch["holder"]), len(catch["free"])))
    md.append("")
    md.append("| what | measured |")
    md.append("|---|---|")
    md.append("| runs refused with status 15 (holder answering after 50 ms) | %d of %d |"
              % (len(refused), len(catch["holder"])))
    if refused:
        md.append("| run time of a refused run: median (min-max) | %.0f ms (%.0f-%.0f) |"
                  % (statistics.median(refused), min(refused), max(refused)))
    if delays:
        md.append("| the holder's delay from request to answer: median (min-max, answers) | "
                  "%.1f ms (%.1f-%.1f, n=%d) |" % (statistics.median(delays), min(delays), max(delays),
                                                  len(delays)))
    md.append("| control runs with the holder stopped that added the address | %d of %d |"
              % (free_ok, len(catch["free"])))
    cmd = os.path.join(work, "arpcatch.cmd")
    if os.path.exists(cmd):
        md.append("")
        md.append("The agent's command: `%s`." % open(cmd).read().strip())
else:
    md.append("Not run.")
if earlier:
    md.append("")
    md.append("### Earlier targets (like for like)")
    md.append("")
    md.extend(rows_table(["target", "limit", "measured", "verdict"], earlier))
md.append("")
md.append("Kill failover falls into two groups about a second apart for every agent (compare the "
          "min-max ranges of the kill rows), also with the controller surviving every kill. The "
          "survivor's pacemaker log shows where: from the node's loss to the scheduler's run "
          "takes either a few milliseconds or one second more, with nothing logged between. That "
          "fits Pacemaker's controller, which sleeps one second and asks again when other CIB "
          "updates are still pending as it is about to run the scheduler (its message for it, "
          "\"Re-asking for the CIB\", is at debug level, so these logs do not show it). Which group "
          "a kill falls into is chance, so with few rounds the kill medians, and the kill target "
          "with them, can move by a second from one run to the next. Standby moves do not spread "
          "this way.")
md.append("")
md.append("### Commands")
md.append("")
md.append("Reproduce with `sudo bench/failover %s` (it runs `bench/arp_catch BUILD WORK 100 50 200` "
          "first). The resources, one line a variant (the 16-address variants have one such "
          "primitive per address, all loaded at once with `crm configure load update`):" % rounds)
md.append("")
md.append("```")
path = os.path.join(work, "primitives.txt")
if os.path.exists(path):
    with open(path) as f:
        for line in f:
            name, cmd = line.rstrip("\n").split("\t", 1)
            md.append("# %s" % name)
            md.append(cmd)
md.append("```")
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
