# A real two-node Pacemaker + Corosync cluster on this machine, for the
# cluster test, the failover benchmark and the cluster demo. Source it from
# bash as root.
#
# Each node runs in its own network, mount, UTS and PID namespace, made by
# unshare with scripts/cluster/node-init as PID 1; the node's private paths
# (corosync and pacemaker state, logs, /run, /dev/shm, /etc/hosts) are bind
# mounts of folders under the run's work folder. A bridge in a named network
# namespace joins the nodes' veths; that namespace is also the client that
# pings the floating addresses. Only 192.0.2.0/24 and 2001:db8::/64 are used.
#
#   cl_setup TAG            work folder, names, EXIT trap
#   cl_install BUILD        stages BUILD's install; the nodes see it at the
#                           prefix and OCF folder it was built for
#   cl_boot N / cl_start N  make node N / start corosync and pacemaker on it
#   cl_cluster_up           both nodes, bridge and client, waits for a DC
#   cl_kill N               SIGKILL every process of node N (the node dies)
#   cl_partition / cl_heal  drop / let through the cluster's own traffic
#                           (corosync, UDP 5405) inside both nodes, LAN up
#   cl_teardown             removes everything; cl_check_clean verifies it
#
# Results are checked against what the nodes really show (addresses, CIB,
# crm_mon), never against a tool's exit status alone: crm exits 0 having
# done nothing. Callers run with pipefail, so no pipeline here ends in
# grep -q: its early exit would turn the writer's SIGPIPE into a failure.

CL_LIB_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
CL_NET=192.0.2
CL_CLIENT_IP=$CL_NET.254
CL_NET6=2001:db8:
CL_CLIENT_IP6=$CL_NET6:fe
CL_TOKEN_MS=${CL_TOKEN_MS:-1000}

cl_log() { printf '%s [%s] %s\n' "$(date +%T.%3N)" "$CL_TAG" "$*" >&2; }
cl_die() {
  cl_log "FAIL: $*"
  exit 1
}
cl_now() { printf '%s\n' "$EPOCHREALTIME"; }
# Milliseconds from one cl_now value to another.
cl_ms() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%d\n", (b - a) * 1000 + 0.5 }'; }

# Exit 77 (ctest's skip) with a reason when this machine cannot host the
# cluster.
cl_require() {
  local why=""
  if [ "$(id -u)" -ne 0 ]; then
    why="needs root"
  elif ! command -v corosync >/dev/null || ! command -v pacemakerd >/dev/null ||
    ! command -v crm >/dev/null; then
    why="corosync, pacemaker or crmsh is not installed"
  elif ! unshare --net --mount --uts --pid --fork --mount-proc \
    sh -c 'ip link add b0 type bridge && ip link add v0 type veth peer name v1' 2>/dev/null; then
    why="cannot create namespaces, bridges or veths here"
  fi
  [ -z "$why" ] && return 0
  echo "SKIP: $why" >&2
  exit 77
}

# What runs that were killed outright (a test time-out, SIGKILL) left
# behind: the nodes die with their shell, but the bridge namespace with the
# client's tcpdump and ping in it, and the work folder, stay. Only runs
# whose shell is gone; a folder kept on purpose (CL_KEEP) stays.
cl__reap_stale() {
  local ns pid p dir
  for ns in $(ip netns list 2>/dev/null | grep -o '^vyrcl-[A-Za-z0-9_]*-[0-9]*'); do
    pid=${ns##*-}
    kill -0 "$pid" 2>/dev/null && continue
    for p in $(ip netns pids "$ns" 2>/dev/null); do kill -KILL "$p" 2>/dev/null; done
    ip netns del "$ns" 2>/dev/null
  done
  for dir in /tmp/vyrcl-*-[0-9]*.*; do
    [ -d "$dir" ] && [ ! -e "$dir/.kept" ] || continue
    p=${dir##*-}
    kill -0 "${p%%.*}" 2>/dev/null && continue
    rm -rf "$dir"
  done
  return 0
}

cl_setup() {
  CL_TAG=$1
  cl__reap_stale
  CL_PLACES=()
  CL_WORK=$(mktemp -d "/tmp/vyrcl-$CL_TAG-$$.XXXXXX")
  chmod 0755 "$CL_WORK"
  CL_BR="vyrcl-$CL_TAG-$$"
  CL_PIDS=()
  CL_PIDNS=()
  CL_NSALL=()
  CL_BG=()
  CL_PARTITIONED=
  trap cl__on_exit EXIT
  trap 'cl_log "interrupted (SIGINT)"; exit 130' INT
  trap 'cl_log "interrupted (SIGTERM)"; exit 143' TERM
}

# Installs the build tree BUILD into a staging folder of the run; each node
# then sees the install prefix and the OCF folder at the paths the build was
# configured for, and only those nodes do: the host is left as it is.
cl_install() {
  local build=$1 stage=$CL_WORK/stage prefix ocfdir
  prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
  ocfdir=$(sed -n 's/^VYR_OCF_DIR:[A-Z]*=//p' "$build/CMakeCache.txt")
  [ -n "$prefix" ] && [ -n "$ocfdir" ] || cl_die "$build: no install prefix or VYR_OCF_DIR"
  DESTDIR=$stage cmake --install "$build" >"$CL_WORK/install.out" ||
    cl_die "cmake --install $build failed: $(cat "$CL_WORK/install.out")"
  [ -x "$stage$ocfdir/vyrvip" ] || cl_die "no OCF agent in $stage$ocfdir"
  CL_PLACES=("$stage$prefix=$prefix" "$stage$ocfdir=$ocfdir")
  CL_PREFIX=$prefix
}

cl_node_dir() { printf '%s/node%s\n' "$CL_WORK" "$1"; }
cl_node_ip() { printf '%s.%s\n' "$CL_NET" "$1"; }
cl_node_mac() { printf '02:00:00:00:00:0%s\n' "$1"; }
cl_other() { echo $((3 - $1)); }

# Runs a command inside node N (all of its namespaces).
cl_in() {
  local n=$1
  shift
  nsenter -t "${CL_PIDS[$n]}" -n -m -u -p -- "$@"
}
# Runs a command in the client (the bridge namespace).
cl_client() { ip netns exec "$CL_BR" "$@"; }

# The environment every command inside a node gets, pacemakerd and through
# it every agent included: crmsh writes to $HOME and $TMPDIR; the agent's
# trace log goes to the node's own folder (/run, where its tables live, is
# already the node's own).
cl_env() {
  local d
  d=$(cl_node_dir "$1")
  printf '%s\n' env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME="$d/home" TMPDIR="$d/tmp" \
    LANG=C.UTF-8 PCMK_logfacility=none VYR_LOG_DIR="$d/vyr/log"
}
cl_run() {
  local n=$1 envv
  shift
  mapfile -t envv < <(cl_env "$n")
  cl_in "$n" "${envv[@]}" "$@"
}
# crm, crm_mon, ... run on node N. None may outlive two minutes: a node
# whose daemons are half gone can leave a client waiting forever, and a
# harness must end with a verdict (crm_resource --wait takes at most 60 s).
cl_crm() {
  local n=$1
  shift
  cl_run "$n" timeout -k 5 120 "$@"
}

cl_write_corosync_conf() {
  local d=$1
  cat >"$d/etc-corosync/corosync.conf" <<EOF
totem {
  version: 2
  cluster_name: vyrcl
  transport: knet
  token: $CL_TOKEN_MS
  crypto_cipher: none
  crypto_hash: none
}
nodelist {
  node {
    ring0_addr: $(cl_node_ip 1)
    name: node1
    nodeid: 1
  }
  node {
    ring0_addr: $(cl_node_ip 2)
    name: node2
    nodeid: 2
  }
}
quorum {
  provider: corosync_votequorum
  two_node: 1
}
logging {
  to_logfile: yes
  logfile: /var/log/corosync/corosync.log
  to_syslog: no
  to_stderr: no
  timestamp: on
}
EOF
}

# The node's CIB, seeded before the first start: the first DC election
# otherwise waits dc-deadtime (20 s).
cl_seed_cib() {
  local cib=$1/lib-pacemaker/cib/cib.xml
  cibadmin --empty >"$cib"
  local -a props=(dc-deadtime=3s stonith-enabled=false no-quorum-policy=ignore)
  local p
  for p in "${props[@]}"; do
    CIB_file=$cib crm_attribute --type crm_config --name "${p%%=*}" --update "${p#*=}"
  done
  CIB_file=$cib cibadmin -C -o configuration -X '<rsc_defaults><meta_attributes id="rsc-options">
    <nvpair id="rsc-options-resource-stickiness" name="resource-stickiness" value="100"/>
    </meta_attributes></rsc_defaults>'
  chown hacluster:haclient "$cib"
  chmod 0600 "$cib"
}

cl_prepare_node() {
  local n=$1 d sub
  d=$(cl_node_dir "$n")
  mkdir -p "$d"/{etc-corosync,lib-corosync,log-corosync,log-crmsh,home,tmp,vyr/log}
  for sub in blackbox cib cores pengine; do
    mkdir -p "$d/lib-pacemaker/$sub"
  done
  mkdir -p "$d/log-pacemaker/bundles"
  chown -R hacluster:haclient "$d/lib-pacemaker" "$d/log-pacemaker"
  chmod 0750 "$d/lib-pacemaker" "$d/lib-pacemaker"/*
  chmod 0770 "$d/log-pacemaker" "$d/log-pacemaker/bundles"
  {
    echo "127.0.0.1 localhost"
    echo "$(cl_node_ip 1) node1"
    echo "$(cl_node_ip 2) node2"
  } >"$d/hosts"
  cl_write_corosync_conf "$d"
  cl_seed_cib "$d"
}

cl_make_bridge() {
  ip netns add "$CL_BR"
  cl_client ip link set lo up
  cl_client ip link add br0 type bridge
  # The client's neighbour entries stay reachable for an hour and are
  # never re-resolved on their own: after a move only a gratuitous ARP (an
  # unsolicited Neighbor Advertisement for IPv6) can point the client at
  # the new node.
  local k v
  for v in ipv4 ipv6; do
    for k in base_reachable_time_ms=3600000 delay_first_probe_time=3600 gc_stale_time=3600; do
      cl_client sysctl -qw "net.$v.neigh.br0.$k"
    done
  done
  cl_client ip link set br0 address 02:00:00:00:00:fe
  cl_client ip addr add "$CL_CLIENT_IP/24" dev br0
  cl_client ip -6 addr add "$CL_CLIENT_IP6/64" dev br0 nodad
  cl_client ip link set br0 up
}

# Makes node N: its namespaces, private paths and its veth on the bridge.
cl_boot() {
  local n=$1 d pid i
  d=$(cl_node_dir "$n")
  rm -f "$d/booted"
  # Should this shell die without its teardown (SIGKILL, a test time-out),
  # the node dies with it: unshare gets SIGKILL when its parent ends, and
  # --kill-child passes it on to the node's init.
  setpriv --pdeathsig KILL unshare --net --mount --uts --pid --fork --mount-proc --kill-child \
    bash "$CL_LIB_DIR/node-init" "$d" "node$n" "${CL_PLACES[@]}" >>"$d/init.out" 2>&1 &
  CL_BG+=($!)
  local ush=$!
  for ((i = 0; i < 200; i++)); do
    [ -e "$d/booted" ] && break
    kill -0 "$ush" 2>/dev/null || cl_die "node$n did not boot: $(cat "$d/init.out")"
    sleep 0.05
  done
  [ -e "$d/booted" ] || cl_die "node$n did not boot in 10 s"
  pid=$(pgrep -P "$ush")
  CL_PIDS[n]=$pid
  CL_NSALL+=("$(readlink "/proc/$pid/ns/net")")
  CL_PIDNS[n]=$(readlink "/proc/$pid/ns/pid")
  cl_client ip link add "n$n" type veth peer name eth0 netns "$pid"
  cl_client ip link set "n$n" master br0 up
  cl_in "$n" ip link set lo up
  cl_in "$n" ip link set eth0 address "$(cl_node_mac "$n")"
  cl_in "$n" ip addr add "$(cl_node_ip "$n")/24" dev eth0
  cl_in "$n" ip link set eth0 up
}

# Starts corosync, then pacemaker, on node N. Both end up children of the
# node's init.
cl_start() {
  local n=$1 d
  d=$(cl_node_dir "$n")
  cl_run "$n" corosync || cl_die "corosync did not start on node$n"
  cl_run "$n" bash -c 'setsid pacemakerd </dev/null >>"$1" 2>&1 &' _ "$d/pacemakerd.out"
}

# Polls COMMAND every 0.2 s until it succeeds or SECONDS pass.
cl_wait() {
  local secs=$1 end
  shift
  end=$(awk -v n="$EPOCHREALTIME" -v s="$secs" 'BEGIN { printf "%.3f\n", n + s }')
  while ! "$@"; do
    if awk -v n="$EPOCHREALTIME" -v e="$end" 'BEGIN { exit !(n > e) }'; then
      return 1
    fi
    sleep 0.2
  done
}

# True when node N's crm_mon shows both nodes online and a DC.
cl_online() {
  local out
  out=$(cl_crm "$1" crm_mon -1 --output-as=xml 2>/dev/null) || return 1
  [ "$(grep -c '<node name="node[12]".* online="true"' <<<"$out")" -eq 2 ] &&
    grep -q '<current_dc present="true"' <<<"$out"
}
cl_both_online() { cl_online 1 && cl_online 2; }

cl_cluster_up() {
  cl_make_bridge
  local n
  for n in 1 2; do
    cl_prepare_node "$n"
    cl_boot "$n"
  done
  for n in 1 2; do cl_start "$n"; done
  cl_wait 90 cl_both_online || cl_die "the nodes did not come online in 90 s"
}

# Every process whose PID namespace is node N's.
cl_node_procs() {
  local want=${CL_PIDNS[$1]:-} p
  [ -n "$want" ] || return 0
  for p in /proc/[0-9]*; do
    [ "$(readlink "$p/ns/pid" 2>/dev/null)" = "$want" ] && echo "${p#/proc/}"
  done
  return 0
}

# SIGKILLs every process of node N, its init last: the node dies with its
# network namespace, addresses and all, as a machine that loses power.
cl_kill() {
  local n=$1 init=${CL_PIDS[$1]} p
  # shellcheck disable=SC2046
  # A process may end between the listing and its kill.
  for p in $(cl_node_procs "$n"); do
    if [ "$p" != "$init" ]; then kill -KILL "$p" 2>/dev/null || true; fi
  done
  kill -KILL "$init" 2>/dev/null || true
  cl_wait 20 cl_dead "$n" || cl_die "node$n still has processes after SIGKILL"
  # The network namespace goes once its last process is gone; its veth
  # end on the bridge goes with it.
  cl_wait 20 cl_veth_gone "$n" || cl_die "node$n's network is still there after SIGKILL"
  echo "$(cl_now) gone" >>"$CL_WORK/marks-$n"
}
cl_veth_gone() { ! cl_client ip link show "n$1" >/dev/null 2>&1; }
cl_dead() { ! kill -0 "${CL_PIDS[$1]}" 2>/dev/null; }
cl_node_empty() { [ -z "$(cl_node_procs "$1")" ]; }

# Boots node N again after cl_kill: a fresh /run and /dev/shm, the node's
# disk (CIB, logs) as it was.
cl_restart() {
  local n=$1
  cl_boot "$n"
  cl_start "$n"
}

# The nodes holding ADDRESS, from their kernels ("node1", "node2", or both).
cl_holders() {
  local ip=$1 n
  for n in 1 2; do
    cl_dead "$n" && continue
    if cl_in "$n" ip -o addr show dev eth0 2>/dev/null | grep -F " $ip/" >/dev/null; then
      echo "node$n"
    fi
  done
}
cl_holds() { [ "$(cl_holders "$1" | tr '\n' ' ')" = "$2 " ]; }

# Records every address change on node N's eth0 as the kernel reports it
# ("ip -ts monitor", so nothing that happens between two polls is missed)
# into $CL_WORK/mon-N.raw, and the addresses it holds now into
# $CL_WORK/marks-N. Runs until the node dies.
cl_watch_addrs() {
  local n=$1
  cl_in "$n" ip -ts -o monitor address dev eth0 >>"$CL_WORK/mon-$n.raw" 2>/dev/null &
  CL_BG+=($!)
  # The monitor subscribes within a few milliseconds; the listing after it
  # covers whatever happened before.
  sleep 0.3
  local now ip
  now=$(cl_now)
  for ip in $(cl_in "$n" ip -o addr show dev eth0 | awk '{ sub("/.*", "", $4); print $4 }'); do
    echo "$now add $ip" >>"$CL_WORK/marks-$n"
  done
}

# Every change of ADDRESS on both nodes, in time order: "<epoch> <node> add|del".
# A node that died counts as having dropped everything.
cl_addr_events() {
  local ip=$1 n line ts kind
  for n in 1 2; do
    if [ -f "$CL_WORK/mon-$n.raw" ]; then
      grep -F " $ip/" "$CL_WORK/mon-$n.raw" | while read -r line; do
        ts=${line%%]*}
        kind=add
        [[ $line == *"] Deleted "* ]] && kind=del
        echo "$(date -d "${ts#[}" +%s.%6N) $n $kind"
      done
    fi
    if [ -f "$CL_WORK/marks-$n" ]; then
      awk -v n="$n" -v ip="$ip" '$2 == "gone" { print $1, n, "del" } $2 == "add" && $3 == ip { print $1, n, "add" }' \
        "$CL_WORK/marks-$n"
    fi
  done | sort -n -k1,1
}

# Fails, naming the moments, when ADDRESS was ever on both nodes at once.
cl_check_never_both() {
  cl_addr_events "$1" | awk '
    { on[$2] = ($3 == "add") }
    on[1] && on[2] { printf "on both nodes at %s\n", $1; bad = 1 }
    END { exit bad }'
}

# First time at or after T that ADDRESS appeared on node N.
cl_added_at() {
  cl_addr_events "$1" | awk -v t="$2" -v n="$3" '$1 >= t && $2 == n && $3 == "add" { print $1; exit }'
}

# First time at or after T that node N's kernel reported ADDRESS usable:
# present and no longer tentative (an IPv6 address under the kernel's
# duplicate address detection is reported twice, tentative first).
cl_usable_at() {
  local ip=$1 t=$2 n=$3 line ts
  [ -f "$CL_WORK/mon-$n.raw" ] || return 0
  grep -F " $ip/" "$CL_WORK/mon-$n.raw" | while read -r line; do
    [[ $line == *"] Deleted "* || $line == *" tentative"* ]] && continue
    ts=${line%%]*}
    ts=$(date -d "${ts#[}" +%s.%6N)
    if awk -v a="$ts" -v t="$t" 'BEGIN { exit !(a >= t) }'; then
      echo "$ts"
      break
    fi
  done
}

# The client pings ADDRESS every 50 ms and logs, with time and source
# MAC, each echo reply from it and each announcement of it: a gratuitous
# ARP frame (a broadcast naming ADDRESS as sender) or, for IPv6, an
# unsolicited Neighbor Advertisement (to all nodes, target ADDRESS):
# "<epoch> <mac> reply|garp" lines in $CL_WORK/client-ADDRESS.log.
cl_client_ping() {
  local ip=$1 log=$CL_WORK/client-$1.log filter garp
  local q=${ip//./[.]}
  if [[ $ip == *:* ]]; then
    filter="icmp6 and ((ip6[40] == 129 and src host $ip) or ip6[40] == 136)"
    garp="33:33:00:00:00:01,.* neighbor advertisement, tgt is $ip,"
  else
    filter="(icmp[icmptype] == icmp-echoreply and src host $ip) or arp"
    garp="ff:ff:ff:ff:ff:ff,.*(who-has $q .*tell $q,|Reply $q is-at )"
  fi
  cl_client tcpdump -l -n -e -tt -i br0 "$filter" 2>"$CL_WORK/tcpdump-$ip.err" |
    awk -v garp="$garp" '
      / echo reply/ { print $1, $2, "reply"; fflush(); next }
      $0 ~ garp { print $1, $2, "garp"; fflush() }' >>"$log" &
  CL_BG+=($!)
  cl_wait 20 grep -q 'listening on' "$CL_WORK/tcpdump-$ip.err" || cl_die "tcpdump did not start"
  cl_client ping -n -q -i 0.05 "$ip" >/dev/null 2>&1 &
  CL_BG+=($!)
}

# First frame of KIND (reply, garp) for ADDRESS from MAC at or after T.
cl_client_saw() {
  awk -v t="$2" -v mac="$3" -v kind="$4" '$1 >= t && $2 == mac && $3 == kind { print $1; exit }' \
    "$CL_WORK/client-$1.log"
}

# The client's neighbour entry for ADDRESS: "<mac> <state>".
cl_client_neigh() {
  cl_client ip neigh show "$1" dev br0 | awk '{ for (i = 1; i <= NF; i++) if ($i == "lladdr") print $(i + 1), $NF }'
}

# Cuts the cluster's own traffic while the LAN stays up: inside each live
# node an nftables table drops corosync's UDP port 5405 on the way in and
# out. Each side then soon declares the other dead. Checked in the rule
# sets.
cl_partition() {
  local n
  CL_PARTITIONED=1
  for n in 1 2; do
    cl_dead "$n" && continue
    cl_in "$n" nft -f - <<'EOF' || cl_die "nft refused the partition rules on node$n"
table inet vyrcl_partition {
  chain in { type filter hook input priority 0; policy accept; udp dport 5405 drop; udp sport 5405 drop; }
  chain out { type filter hook output priority 0; policy accept; udp dport 5405 drop; udp sport 5405 drop; }
}
EOF
    [ "$(cl_in "$n" nft list table inet vyrcl_partition 2>/dev/null | grep -c 'udp dport 5405 drop')" = 2 ] ||
      cl_die "node$n has no partition rules after nft"
  done
}
# Lets the cluster's traffic through again; every live node is checked.
# Safe to call when there is no partition.
cl_heal() {
  local n left="" healed=""
  for n in 1 2; do
    [ -n "${CL_PIDS[n]:-}" ] || continue
    cl_dead "$n" && continue
    cl_in "$n" nft delete table inet vyrcl_partition 2>/dev/null && healed+=" node$n"
    if cl_in "$n" nft list tables 2>/dev/null | grep -w vyrcl_partition >/dev/null; then
      left+=" node$n"
    fi
  done
  CL_PARTITIONED=
  [ -z "$left" ] || {
    cl_log "partition rules still on$left"
    return 1
  }
  [ -z "$healed" ] || cl_log "partition healed on$healed"
}

# Adds a primitive through crm on node N and checks that the CIB has it.
cl_configure() {
  local n=$1 id=$2
  shift 2
  cl_crm "$n" crm configure primitive "$id" "$@" >/dev/null ||
    cl_die "crm configure primitive $id failed"
  cl_crm "$n" cibadmin -Q -o resources | grep -F "<primitive id=\"$id\"" >/dev/null ||
    cl_die "crm configure primitive $id: not in the CIB"
}

# Standby (on|off) of node M, run from node N, checked in the CIB.
cl_standby() {
  local n=$1 m=$2 mode=$3 val
  if [ "$mode" = on ]; then
    cl_crm "$n" crm node standby "node$m" >/dev/null 2>&1
  else
    cl_crm "$n" crm node online "node$m" >/dev/null 2>&1
  fi
  val=$(cl_crm "$n" crm_attribute --node "node$m" --name standby --query --quiet 2>/dev/null)
  if [ "$mode" = on ]; then
    [ "$val" = on ] || cl_die "crm node standby node$m did not set standby (got '$val')"
  else
    [ "$val" != on ] || cl_die "crm node online node$m left standby on"
  fi
}

cl__on_exit() {
  local rc=$?
  trap - EXIT INT TERM
  # Nothing in here may end the run before the teardown: a node that is
  # already gone makes crm_mon fail.
  set +e
  if [ "$rc" -ne 0 ]; then
    cl_log "ending with status $rc"
    cl_diagnose
  fi
  # A partition left by a failed check is healed before the nodes go.
  if [ -n "${CL_PARTITIONED:-}" ]; then cl_heal || rc=1; fi
  cl_teardown "$rc"
  # Teardown must leave nothing behind, also after a failed check.
  cl_check_clean || rc=1
  exit "$rc"
}

# What a failed run shows: the cluster's view from every live node and the
# end of its logs.
cl_diagnose() {
  local n d
  for n in 1 2; do
    [ -n "${CL_PIDS[n]:-}" ] || continue
    cl_dead "$n" && continue
    d=$(cl_node_dir "$n")
    echo "---- node$n: crm_mon -1" >&2
    cl_run "$n" timeout -k 5 20 crm_mon -1 -r >&2 2>&1
    echo "---- node$n: pacemaker.log (end)" >&2
    tail -n 40 "$d/log-pacemaker/pacemaker.log" >&2 2>/dev/null
  done
}

# Every process in one of the nodes' network namespaces, the nodes that
# died before included: besides the nodes' own processes, the nsenter
# parents of the commands run in them, which sit outside the nodes' PID
# namespaces.
cl_netns_procs() {
  local p ns n
  for p in /proc/[0-9]*; do
    ns=$(readlink "$p/ns/net" 2>/dev/null) || continue
    for n in "${CL_NSALL[@]}"; do
      if [ "$ns" = "$n" ]; then
        echo "${p#/proc/}"
        break
      fi
    done
  done
  return 0
}
cl_netns_empty() { [ -z "$(cl_netns_procs)" ]; }

# Removes the nodes, the bridge namespace and the work folder (kept for a
# failed run when CL_KEEP is set, for every run when it is "always").
cl_teardown() {
  local rc=${1:-0} errexit=0
  [[ $- == *e* ]] && errexit=1
  set +e
  local p n
  for n in 1 2; do
    [ -n "${CL_PIDS[n]:-}" ] || continue
    for p in $(cl_node_procs "$n"); do kill -KILL "$p" 2>/dev/null; done
  done
  # SIGKILL is not the end yet: wait until the nodes' processes are gone.
  for n in 1 2; do
    cl_wait 20 cl_node_empty "$n" || cl_log "node$n still has processes: $(cl_node_procs "$n")"
  done
  for p in "${CL_BG[@]}"; do kill "$p" 2>/dev/null; done
  # Whatever is still in a node's network namespace is this harness's own.
  for p in $(cl_netns_procs); do
    cl_log "ending $p ($(tr '\0' ' ' <"/proc/$p/cmdline" 2>/dev/null | cut -c1-60)), left in a node's namespace"
    kill -KILL "$p" 2>/dev/null
  done
  cl_wait 20 cl_netns_empty || cl_log "still in the nodes' namespaces: $(cl_netns_procs)"
  # Background pipelines leave their other members (tcpdump, ping) in the
  # bridge namespace: ip netns pids names them all.
  if [ -n "${CL_BR:-}" ] && ip netns list 2>/dev/null | grep -w "$CL_BR" >/dev/null; then
    for p in $(ip netns pids "$CL_BR"); do kill -KILL "$p" 2>/dev/null; done
    ip netns del "$CL_BR"
  fi
  # Only this harness's own jobs: a caller's background work is its own.
  for p in "${CL_BG[@]}"; do wait "$p" 2>/dev/null; done
  if [ -n "${CL_KEEP:-}" ] && { [ "$rc" -ne 0 ] || [ "$CL_KEEP" = always ]; }; then
    touch "$CL_WORK/.kept"
    cl_log "work folder kept: $CL_WORK"
  else
    [ -n "${CL_WORK:-}" ] && rm -rf "$CL_WORK"
  fi
  if [ "$errexit" = 1 ]; then set -e; fi
  return 0
}

# After cl_teardown: nothing of this run is left. Prints what is left and
# fails when something is.
cl_check_clean() {
  local left="" p
  [ -n "${CL_KEEP:-}" ] || [ ! -e "$CL_WORK" ] || left+="work folder $CL_WORK; "
  ip netns list 2>/dev/null | grep -w "$CL_BR" >/dev/null && left+="namespace $CL_BR; "
  grep -q "vyrcl-$CL_TAG-$$" /proc/self/mountinfo && left+="mounts; "
  for p in $(cl_netns_procs); do
    left+="process $p ($(tr '\0' ' ' <"/proc/$p/cmdline" 2>/dev/null | cut -c1-60)) in a node's namespace; "
  done
  if pgrep -f "vyrcl-$CL_TAG-$$" >/dev/null; then left+="processes naming the work folder; "; fi
  [ -z "$left" ] || {
    echo "left behind: $left" >&2
    return 1
  }
}
