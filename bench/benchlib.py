"""Helpers the benchmark reports share: spread figures, shell output and the
CPU time the host took during a run."""

import subprocess


def quantile(xs, q):
    """The q-quantile of xs, interpolated between neighbouring samples."""
    xs = sorted(xs)
    pos = (len(xs) - 1) * q
    lo = int(pos)
    hi = min(lo + 1, len(xs) - 1)
    return xs[lo] + (xs[hi] - xs[lo]) * (pos - lo)


def sh(cmd):
    """A shell command's standard output, stripped."""
    return subprocess.run(cmd, shell=True, capture_output=True, text=True).stdout.strip()


def steal_percent(start_file, end_file):
    """Share of CPU time stolen by the host between two copies of the "cpu"
    line of /proc/stat (user nice system idle iowait irq softirq steal ...)."""
    def read(path):
        with open(path) as f:
            return [int(x) for x in f.read().split()[1:9]]
    delta = [b - a for a, b in zip(read(start_file), read(end_file))]
    return 100.0 * delta[7] / max(sum(delta), 1)
