#!/usr/bin/env python3
"""Pools the hyperfine rounds of one benchmark into <stem>.json.

usage: pool_rounds.py <stem> <rounds> <first name> <second name>

Each round's <stem>.r<k>.json holds both commands; the pooled file lists the
first and the second command with all their run times, and prints the
medians of the pool.
"""
import json
import statistics
import sys

stem, rounds, names = sys.argv[1], int(sys.argv[2]), sys.argv[3:5]
times = {name: [] for name in names}
for k in range(1, rounds + 1):
    with open("%s.r%d.json" % (stem, k)) as f:
        for result in json.load(f)["results"]:
            times[result["command"]].extend(result["times"])
with open(stem + ".json", "w") as f:
    json.dump({"results": [{"command": n, "times": times[n]} for n in names]}, f)
for name in names:
    print("   %-8s median %.1f ms over %d runs" % (name, statistics.median(times[name]) * 1000,
                                                 len(times[name])))
