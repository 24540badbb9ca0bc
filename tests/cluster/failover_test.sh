#!/usr/bin/env bash
# A vyrvip address under a real two-node Pacemaker + Corosync cluster, step
# by step below. Usage: failover_test.sh BUILD_DIR (root; exit 77 = skipped)
set -euo pipefail
source "$(dirname "$0")/../../scripts/cluster/lib.sh"

build=${1:?usage: failover_test.sh BUILD_DIR}
cl_require
cl_setup test
cl_install "$build"

VIP=192.0.2.100
WAIT=60 # seconds any one cluster step may take on a loaded machine
# Action time limits that cover what the meta-data advises.
OPS="op monitor interval=5s timeout=20s op start timeout=200s op stop timeout=450s"

ok() { printf 'ok - %s\n' "$*"; }
holder() { cl_holders "$VIP" | tr '\n' ' ' | sed 's/ $//'; }
held_by_one() { [ "$(cl_holders "$VIP" | wc -l)" -eq 1 ]; }
held_by() { cl_holds "$VIP" "node$1"; }
settled() { cl_crm "$1" crm_resource --wait --timeout=${WAIT}s >/dev/null 2>&1; }
located() { cl_crm "$1" crm_resource --resource vip --locate 2>/dev/null; }

# On node N only, four times over two seconds.
stays_on() {
  local n=$1 i
  for i in 1 2 3 4; do
    held_by "$n" || cl_die "$VIP is on [$(holder)], expected node$n only"
    sleep 0.5
  done
}

# Moves the address from node M by ACTION (standby, kill) to node N: the
# client follows N's MAC, announced by a gratuitous ARP before N's first
# answer. Sets addr_ms and reply_ms, the milliseconds to each.
move() {
  local action=$1 m=$2 n=$3 t0 mac added garp reply neigh
  t0=$(cl_now)
  if [ "$action" = standby ]; then cl_standby 1 "$m" on; else cl_kill "$m"; fi
  cl_wait "$WAIT" held_by "$n" || cl_die "$action of node$m did not move $VIP to node$n"
  mac=$(cl_node_mac "$n")
  added=$(cl_added_at "$VIP" "$t0" "$n")
  [ -n "$added" ] || cl_die "no address change on node$n recorded after the move"
  cl_wait "$WAIT" test_reply "$t0" "$mac" || cl_die "the client got no answer from $mac"
  reply=$(cl_client_saw "$VIP" "$t0" "$mac" reply)
  garp=$(cl_client_saw "$VIP" "$t0" "$mac" garp)
  [ -n "$garp" ] || cl_die "the client saw no gratuitous ARP from node$n ($mac)"
  awk -v g="$garp" -v r="$reply" 'BEGIN { exit !(g <= r) }' ||
    cl_die "the first answer from $mac ($reply) came before its gratuitous ARP ($garp)"
  neigh=$(cl_client_neigh "$VIP")
  [ "${neigh%% *}" = "$mac" ] || cl_die "client's neighbour entry is '$neigh', expected $mac"
  addr_ms=$(cl_ms "$t0" "$added") reply_ms=$(cl_ms "$t0" "$reply")
}
test_reply() { [ -n "$(cl_client_saw "$VIP" "$1" "$2" reply)" ]; }

# --- two nodes ---------------------------------------------------------
t0=$(cl_now)
cl_cluster_up
ok "both nodes online after $(cl_ms "$t0" "$(cl_now)") ms"
cl_watch_addrs 1
cl_watch_addrs 2

# --- start: exactly one node -------------------------------------------
t0=$(cl_now)
# shellcheck disable=SC2086 # OPS is crm's word list
cl_configure 1 vip ocf:vyrcluster:vyrvip params ip="$VIP/24" nic=eth0 $OPS
cl_wait "$WAIT" held_by_one || cl_die "$VIP did not come up within ${WAIT} s"
up_ms=$(cl_ms "$t0" "$(cl_now)")
settled 1 || cl_die "the cluster did not settle after the start"
first=$(holder)
[ "$first" = node1 ] || [ "$first" = node2 ] || cl_die "$VIP is on [$first]"
a=${first#node}
b=$(cl_other "$a")
stays_on "$a"
located 1 | grep "is running on: node$a" >/dev/null || cl_die "Pacemaker places vip elsewhere: $(located 1)"
ok "started on node$a only, $up_ms ms after the primitive was added"

cl_client_ping "$VIP"
cl_wait "$WAIT" test_reply 0 "$(cl_node_mac "$a")" || cl_die "the client cannot reach $VIP on node$a"
ok "the client reaches $VIP at node$a's MAC"

# --- standby moves it, then killing the node moves it back -------------
move standby "$a" "$b"
standby_addr=$addr_ms standby_reply=$reply_ms
ok "standby of node$a: address on node$b after $standby_addr ms, client answered from its MAC after $standby_reply ms"
settled 1 || cl_die "the cluster did not settle after standby"
cl_standby 1 "$a" off
settled 1 || cl_die "the cluster did not settle after bringing node$a back"
stays_on "$b"
ok "node$a back online, $VIP stays on node$b"
move kill "$b" "$a"
kill_addr=$addr_ms kill_reply=$reply_ms
ok "SIGKILL of every process of node$b: address on node$a after $kill_addr ms, client answered from its MAC after $kill_reply ms"

# --- the killed node rejoins; the address stays ------------------------
t0=$(cl_now)
cl_restart "$b"
cl_watch_addrs "$b"
cl_wait 90 cl_both_online || cl_die "node$b did not rejoin within 90 s"
ok "node$b rejoined after $(cl_ms "$t0" "$(cl_now)") ms"
settled "$a" || cl_die "the cluster did not settle after the rejoin"
stays_on "$a"
if cl_crm "$a" crm_mon -1 | grep 'Failed Resource Actions' >/dev/null; then
  cl_die "actions failed on the way: $(cl_crm "$a" crm_mon -1)"
fi
ok "$VIP stays on node$a, no failed actions"

# --- a partition of the cluster's own traffic, the LAN up --------------
# Each side declares the other dead. Node b, which does not hold the
# address, starts it: that start must see node a answer and fail with the
# duplicate's reason, and the address stays on node a alone.
sees_offline() {
  cl_crm "$1" crm_mon -1 --output-as=xml 2>/dev/null | grep "<node name=\"node$2\".* online=\"false\"" >/dev/null
}
split() { sees_offline "$a" "$b" && sees_offline "$b" "$a"; }
# start_failed RSC N [CRM_MON]: a start of RSC on node N failed with the
# duplicate's reason, in CRM_MON or else in node N's crm_mon -1.
start_failed() {
  grep -F "$1 start on node$2" <<<"${3:-$(cl_crm "$2" crm_mon -1 2>/dev/null)}" |
    grep -F 'IP address was already used.' >/dev/null
}
t0=$(cl_now)
cl_partition
cl_wait "$WAIT" split || cl_die "the nodes still see each other with UDP 5405 dropped"
ok "cluster traffic dropped in both nodes: each node sees the other offline after $(cl_ms "$t0" "$(cl_now)") ms"
# Ends early, and plainly, when node b takes the address after all.
stale_start_done() { start_failed vip "$b" || [ "$(cl_holders "$VIP" | wc -l)" -gt 1 ]; }
cl_wait "$WAIT" stale_start_done || true
held_by "$a" || cl_die "$VIP is on [$(holder)] during the partition, expected node$a only"
start_failed vip "$b" ||
  cl_die "node$b has no failed start of vip with the duplicate's reason: $(cl_crm "$b" crm_mon -1)"
settled "$b" || cl_die "node$b's side did not settle after its failed start"
stays_on "$a"
ok "node$b's start of $VIP failed on the duplicate, $VIP stays on node$a only; node$b's crm_mon shows:"
cl_crm "$b" crm_mon -1 | grep -F "vip start on node$b" | sed 's/^/    /'
t0=$(cl_now)
cl_heal || cl_die "the partition rules could not be removed"
cl_wait 90 cl_both_online || cl_die "the nodes did not join again within 90 s of the heal"
settled "$a" || cl_die "the cluster did not settle after the heal"
stays_on "$a"
located "$a" | grep "is running on: node$a" >/dev/null || cl_die "after the heal Pacemaker places vip elsewhere: $(located "$a")"
ok "healed: one cluster again after $(cl_ms "$t0" "$(cl_now)") ms, $VIP still on node$a only"

problems=$(cl_check_never_both "$VIP") || cl_die "$VIP was on both nodes: $problems"
ok "$VIP was never on both nodes at once ($(cl_addr_events "$VIP" | wc -l) changes seen)"

# --- a duplicate on the network fails the start everywhere -------------
# A second address, one the nodes have never used: a neighbour entry left
# from the moves above would send the probe to the old holder's MAC for a
# few seconds instead of asking the network.
DUP=192.0.2.101
failed_on_both() {
  local out
  out=$(cl_crm "$a" crm_mon -1 2>/dev/null) && start_failed vipdup 1 "$out" && start_failed vipdup 2 "$out"
}
cl_client ip addr add "$DUP/24" dev br0
cl_configure "$a" vipdup ocf:vyrcluster:vyrvip params ip="$DUP/24" nic=eth0 $OPS
cl_wait "$WAIT" failed_on_both ||
  cl_die "no failed start with the reason on both nodes: $(cl_crm "$a" crm_mon -1)"
settled "$a" || cl_die "the cluster did not settle after the failed starts"
[ -z "$(cl_holders "$DUP")" ] || cl_die "$DUP is on [$(cl_holders "$DUP")] although the client holds it"
cl_crm "$a" crm_resource --resource vipdup --locate 2>&1 | grep 'NOT running' >/dev/null ||
  cl_die "crm_resource does not report vipdup stopped"
held_by "$a" || cl_die "$VIP left node$a while vipdup failed"
ok "a duplicate held by the client fails the start on both nodes; crm_mon shows:"
cl_crm "$a" crm_mon -1 | grep -F 'vipdup start' | sed 's/^/    /'

# --- teardown ----------------------------------------------------------
trap - EXIT INT TERM
cl_teardown 0
cl_check_clean || cl_die "teardown left things behind"
ok "teardown left no namespace, process, mount or folder"
printf 'failover times: standby %s ms to the address, %s ms to the client; kill %s ms to the address, %s ms to the client\n' \
  "$standby_addr" "$standby_reply" "$kill_addr" "$kill_reply"
