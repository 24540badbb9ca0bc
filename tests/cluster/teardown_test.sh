#!/usr/bin/env bash
# The cluster harness cleans up after itself: a child run brings both nodes
# up, then fails a check (or gets SIGTERM), and nothing of it may be left.
# Usage: teardown_test.sh (root; exit 77 = skipped)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../../scripts/cluster/lib.sh"
cl_require

out=$(mktemp -d /tmp/vyrcl-teardown.XXXXXX)
trap 'rm -rf "$out"' EXIT

# The child: both nodes with every daemon, watchers and the client's ping
# running, its names written down, then the failure (with the cluster's
# traffic cut, after node 2's daemons died) or a wait for SIGTERM.
child() {
  local how=$1
  bash -c '
    set -euo pipefail
    source "$1/../../scripts/cluster/lib.sh"
    cl_setup td
    cl_cluster_up
    cl_watch_addrs 1
    cl_client_ping 192.0.2.1
    { echo "pid $$"; echo "work $CL_WORK"; echo "br $CL_BR"; printf "ns %s\n" "${CL_NSALL[@]}"; } >"$2/names"
    if [ "$3" = fail ]; then
      cl_partition
      # Node 2 loses its daemons first: the diagnosis must not stop the
      # teardown when crm_mon cannot reach a node.
      for p in $(cl_node_procs 2); do
        if [ "$p" != "${CL_PIDS[2]}" ]; then kill -KILL "$p" || true; fi
      done
      cl_die "a check fails on purpose"
    fi
    touch "$2/ready"
    sleep 600 &
    wait $!' _ "$here" "$out" "$how" >"$out/child.out" 2>&1
}

leftovers() {
  local work br p ns left=""
  work=$(awk '$1 == "work" { print $2 }' "$out/names")
  br=$(awk '$1 == "br" { print $2 }' "$out/names")
  [ -n "$work" ] && [ -n "$br" ] || { echo "the child wrote no names"; return; }
  [ -e "$work" ] && left+="work folder; "
  ip netns list 2>/dev/null | grep -w "$br" >/dev/null && left+="namespace $br; "
  grep -F "$work" /proc/self/mountinfo >/dev/null && left+="mounts; "
  for p in /proc/[0-9]*; do
    ns=$(readlink "$p/ns/net" 2>/dev/null) || continue
    awk -v ns="$ns" '$1 == "ns" && $2 == ns { found = 1 } END { exit !found }' "$out/names" &&
      left+="process ${p#/proc/} ($(tr '\0' ' ' <"$p/cmdline" | cut -c1-40)); "
  done
  echo "$left"
}

die() {
  echo "FAIL: $*"
  cat "$out/child.out"
  exit 1
}
clean_after() {
  local left
  left=$(leftovers)
  [ -z "$left" ] || die "after $1, left behind: $left"
  echo "ok - $1 leaves no namespace, process, mount or folder"
}

rc=0
child fail || rc=$?
[ "$rc" -eq 1 ] || die "the child exited $rc, expected 1"
grep -F 'a check fails on purpose' "$out/child.out" >/dev/null || die "the child did not reach its failing check"
grep -F 'partition healed on node1 node2' "$out/child.out" >/dev/null ||
  die "the partition was not healed on both nodes before the teardown"
clean_after "a failed check during a partition"

rm -f "$out/names" "$out/ready"
child term &
pid=$!
cl_wait 120 test -e "$out/ready" || die "the child never got its cluster up"
kill -TERM "$(awk '$1 == "pid" { print $2 }' "$out/names")"
rc=0
wait "$pid" || rc=$?
[ "$rc" -ne 0 ] || die "the child ended with 0 after SIGTERM"
clean_after "SIGTERM while the cluster runs"
