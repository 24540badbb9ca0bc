#!/usr/bin/env bash
# The OCF agent ocf:vyrcluster:vyrvip, installed from the build into a private
# prefix and a private agent folder, run for real inside two network
# namespaces made here (the node and a neighbour on a veth pair) with
# documentation addresses:
#   - its meta-data: valid against ra-api-1.dtd, readable by nobody, every
#     parameter with the default of docs/pacemaker.md and of the program
#     (docs/configuration.md);
#   - ocf-tester passes;
#   - the parameters reach the program (its trace log shows them), the
#     configuration file is root's only and goes with the stop; IPv6;
#   - failures: the program's exit status as an OCF code with the stored
#     status description as the exit reason, and parameters refused before
#     anything runs.
# Usage: ocf_agent_test.sh BUILD_DIR SOURCE_DIR. Exit 77: skipped (not root,
# or no namespaces).
set -uo pipefail

build=$1
source=$2
skip() {
	echo "SKIP: $*"
	exit 77
}
[ "$(id -u)" = 0 ] || skip "not root"
for tool in ocf-tester xmllint ip su; do
	command -v "$tool" >/dev/null || {
		echo "FAIL: $tool is missing (scripts/install-deps installs it)"
		exit 1
	}
done
export OCF_ROOT=/usr/lib/ocf
[ -r "$OCF_ROOT/lib/heartbeat/ocf-shellfuncs" ] || {
	echo "FAIL: resource-agents' ocf-shellfuncs is missing (scripts/install-deps)"
	exit 1
}
dtd=/usr/share/resource-agents/ra-api-1.dtd

# --- a private installation and two namespaces, gone on every exit ----------

umask 022
work=$(mktemp -d "/tmp/vyrocf.$$.XXXXXX")
chmod 755 "$work" # ocf-tester runs meta-data as nobody
prefix=$work/prefix
agent=$work/ocf/resource.d/vyrcluster/vyrvip
node=vyrocf-$$-a
peer=vyrocf-$$-p
export VYR_RUN_DIR=$work/run VYR_LOG_DIR=$work/log HA_RSCTMP=$work/rsctmp

cleanup() {
	ip netns del "$node" 2>/dev/null
	ip netns del "$peer" 2>/dev/null
	[ -x "$prefix/bin/vyrctl" ] && "$prefix/bin/vyrctl" stop >/dev/null 2>&1
	rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# What runs that were killed left behind: their namespaces, their cluster
# tables (System V objects outlive the folder that keys them) and folder.
for n in $(ip netns list | grep -o '^vyrocf-[0-9]*-[ap]'); do
	p=${n#vyrocf-}
	kill -0 "${p%%-*}" 2>/dev/null || ip netns del "$n"
done
for dir in /tmp/vyrocf.[0-9]*.*; do
	[ -d "$dir" ] || continue
	p=${dir#/tmp/vyrocf.}
	kill -0 "${p%%.*}" 2>/dev/null && continue
	VYR_RUN_DIR=$dir/run "$dir/prefix/bin/vyrctl" stop >/dev/null 2>&1
	rm -rf "$dir"
done

# Naming the component keeps the build's own install_manifest.txt as it is.
if ! out=$(cmake -DCMAKE_INSTALL_PREFIX="$prefix" -DVYR_OCF_DIR="${agent%/*}" \
	-DCMAKE_INSTALL_COMPONENT=Unspecified -P "$build/cmake_install.cmake" 2>&1); then
	echo "FAIL: installing the build: $out"
	exit 1
fi
if ! ip netns add "$node" 2>/dev/null || ! ip netns add "$peer" ||
	! ip -n "$node" link add vo0 type veth peer name vo1 netns "$peer" ||
	! ip -n "$node" link set lo up || ! ip -n "$node" link set vo0 up ||
	! ip -n "$peer" link set lo up || ! ip -n "$peer" link set vo1 up; then
	skip "cannot make network namespaces"
fi
ip -n "$node" addr add 198.51.100.1/24 dev vo0

failures=0
fail() {
	echo "FAIL: $*"
	failures=$((failures + 1))
}
# expect NAME WANTED GOT
expect() {
	[ "$2" = "$3" ] || fail "$1: expected [$2], got [$3]"
}

# Runs an agent action in the node's namespace: ocf RESOURCE ACTION
# [name=value...]; sets rc, out (stdout) and err (stderr).
ocf() {
	local rsc=$1 action=$2
	shift 2
	local env=(OCF_RESOURCE_INSTANCE="$rsc" OCF_RESKEY_CRM_meta_interval="${interval:-0}")
	[ -z "${timeout_ms:-}" ] || env+=(OCF_RESKEY_CRM_meta_timeout="$timeout_ms")
	local kv
	for kv; do env+=("OCF_RESKEY_$kv"); done
	out=$(ip netns exec "$node" env "${env[@]}" "${agent_under_test:-$agent}" "$action" 2>"$work/stderr")
	rc=$?
	err=$(cat "$work/stderr")
}
reason() { sed -n 's/^ocf-exit-reason://p' <<<"$err"; }
on_node() { ip -n "$node" -o addr show dev vo0 to "$1" | wc -l; }

# --- meta-data ------------------------------------------------------------

meta=$("$agent" meta-data)
expect "meta-data status" 0 $?
# From the DTD's folder, as ocf-tester does, so that the document's own
# DOCTYPE resolves as well.
dtd_out=$(cd "${dtd%/*}" && xmllint --noout --valid --dtdvalid "$dtd" - <<<"$meta" 2>&1) ||
	fail "meta-data does not validate against ra-api-1.dtd: $dtd_out"
expect "meta-data as nobody" "$meta" "$(su nobody -s /bin/sh -c "'$agent' meta-data" 2>&1)"

names=$(xmllint --xpath '//parameter/@name' - <<<"$meta" | sed 's/ name="\([^"]*\)"/\1\n/g' | sed '/^$/d')
meta_default() { xmllint --xpath "string(//parameter[@name='$1']/content/@default)" - <<<"$meta"; }
meta_path() {
	xmllint --xpath "string(//parameter[@name='$1']/longdesc)" - <<<"$meta" |
		tr '\n' ' ' | sed -n 's|.*/root/resource/vip@RESOURCE/parameters/\([^ ]*\)\. .*|\1|p'
}
for required in ip nic; do
	expect "$required is required" 1 "$(xmllint --xpath "string(//parameter[@name='$required']/@required)" - <<<"$meta")"
done

# docs/pacemaker.md's parameter table: "| `name` | default | ... |".
# shellcheck disable=SC2016
doc_rows=$(sed -n 's/^| `\([a-z_]*\)` | \([^|]*\) |.*/\1 \2/p' "$source/docs/pacemaker.md" | sed 's/ *$//')
meta_rows=$(for n in $names; do
	d=$(meta_default "$n")
	echo "$n ${d:-required}"
done)
expect "docs/pacemaker.md parameter table = meta-data" "$meta_rows" "$doc_rows"

# The program's own defaults: docs/configuration.md's per-resource table.
# The agent turns the IPv6 announcement settings on where the program has
# them off.
for n in $names; do
	case $n in ip | nic | na_retry | dad_timeout | arpprobe_timeout) continue ;; esac
	path=$(meta_path "$n")
	[ -n "$path" ] || {
		fail "$n: meta-data names no configuration path"
		continue
	}
	program=$(sed -n "s/^| \`${path//\//\\/}\` | \([^ |]*\) |.*/\1/p" "$source/docs/configuration.md")
	expect "$n default = the program's default for $path" "$program" "$(meta_default "$n")"
done
[ "$(wc -w <<<"$names")" -ge 23 ] || fail "meta-data lists only: $names"

# --- ocf-tester -------------------------------------------------------------

if ! out=$(ip netns exec "$node" ocf-tester -n vip1 -o ip=198.51.100.10/24 -o nic=vo0 "$agent" 2>&1); then
	fail "ocf-tester: $out"
fi
echo "$out" | tail -1
expect "ocf-tester leaves the address off" 0 "$(on_node 198.51.100.10)"

# --- settings reach the program; the configuration file ---------------------

conf=$HA_RSCTMP/vyrvip/vip--set.xml
settings=(ip=198.51.100.11/24 nic=vo0 ping_timeout=0 arp_retry=0 arp_opcode=2 ifconfig_use=1
	ifconfig_timeout=30 check_ping_execute=0 check_ifconfig_retry=2 check_ifconfig_interval=0
	check_ifconfig_error=1 defmethod=2)
timeout_ms=20000 ocf vip--set start "${settings[@]}"
expect "start with settings" "0 " "$rc $(reason)"
# Three interface-tool runs of 30 s and the ARP probe's second do not fit a 20 s start.
grep -q 'start timeout of 20s is shorter than the 91s' <<<"$err" || fail "no warning about the start timeout: $err"
expect "address on vo0:0" 1 "$(ip -n "$node" -o addr show label vo0:0 to 198.51.100.11 | wc -l)"
expect "configuration file mode and owner" "600 root" "$(stat -c '%a %U' "$conf" 2>&1)"
log=$VYR_LOG_DIR/vip.log
grep -q 'vip--set.*ping       = cmd:bin/vyrping,to:0,rty:0,itv:1,frc:0,nps:0' "$log" || fail "ping settings not in the trace log"
grep -q 'vip--set.*arp        = cmd:arp,num:0,opcode:2' "$log" || fail "arp settings not in the trace log"
grep -q 'vip--set.*ifconfig   = cmd:ifconfig,to:30' "$log" || fail "ifconfig settings not in the trace log"
grep -q 'vip--set.*defence    = na:3,dad:2000,arpprobe:1000' "$log" || fail "defence settings not in the trace log"
expect "monitor of the started address" 0 "$(interval=10000 ocf vip--set monitor "${settings[@]}"; echo $rc)"
timeout_ms=400000 ocf vip--set stop "${settings[@]}"
expect "stop" 0 "$rc"
grep -q 'timeout' <<<"$err" && fail "warning about a stop timeout that is long enough: $err"
grep -q 'vip--set.*chk ifconf = exec:1,rty:2,itv:0,err:1' "$log" || fail "check settings not in the trace log"
grep -q 'vip--set.*chk ping   = exec:0,' "$log" || fail "check/ping settings not in the trace log"
expect "address gone after stop" 0 "$(on_node 198.51.100.11)"
[ ! -e "$conf" ] || fail "configuration file left after stop"
expect "stored description" "$(printf 'pacemaker\tvip\tvip--set\tSuccess.')" "$("$prefix/bin/vyrctl" status | grep vip--set)"

v6=(ip=2001:db8::10/64 nic=vo0 ping_timeout=0 check_ping_execute=0)
ocf vip6 start "${v6[@]}"
expect "IPv6 start" "0 1" "$rc $(on_node 2001:db8::10/128)"
interval=10000 ocf vip6 monitor "${v6[@]}"
expect "IPv6 monitor" 0 "$rc"
ocf vip6 stop "${v6[@]}"
expect "IPv6 stop" "0 0" "$rc $(on_node 2001:db8::10/128)"

# --- failures: OCF code and exit reason -------------------------------------

# A neighbour already answers at the address: the duplicate probe refuses.
ip -n "$peer" addr add 198.51.100.20/24 dev vo1
timeout_ms=20000 ocf vipdup start ip=198.51.100.20/24 nic=vo0 check_ping_execute=0
expect "duplicate: code" 1 "$rc"
# The defaults' bound that docs/pacemaker.md gives.
grep -q 'start timeout of 20s is shorter than the 183s' <<<"$err" || fail "no warning about the default start bound: $err"
expect "duplicate: reason" "IP address was already used. (vyrvip --active exit status 15)" "$(reason)"
expect "duplicate: address not added" 0 "$(on_node 198.51.100.20)"

# The configured alias already carries an address: a configuration fault.
ip -n "$node" addr add 198.51.100.30/24 dev vo0 label vo0:7
ocf vipalias start ip=198.51.100.31/24 nic=vo0:7 ping_timeout=0
expect "alias taken: code" 6 "$rc"
expect "alias taken: status in reason" 1 "$(reason | grep -c 'exit status 28)$')"
expect "alias taken: address not added" 0 "$(on_node 198.51.100.31)"

# A broken installation: the policy of the program is missing.
policy=$prefix/share/vyrcluster/policy/vip.xml
mv "$policy" "$policy.moved"
ocf vippol start ip=198.51.100.32/24 nic=vo0 ping_timeout=0
mv "$policy.moved" "$policy"
expect "no policy: code and reason" \
	"5 a configuration policy could not be loaded (vyrvip --active exit status 8)" "$rc $(reason)"

# Refused before anything runs: OCF_ERR_CONFIGURED (6) for the settings,
# OCF_ERR_INSTALLED (5) for what this node lacks.
while read -r wanted what; do
	read -ra params <<<"$what"
	ocf vipbad validate-all "${params[@]}"
	expect "validate-all $what" "$wanted" "$rc"
done <<'END'
0 ip=198.51.100.40/24 nic=vo0
0 ip=2001:db8::1:0:0:40 nic=vo0 ping_retry=007
0 ip=::ffff:198.51.100.40/128 nic=vo0
6 ip=198.51.100.256 nic=vo0
6 ip=198.51.100.40/33 nic=vo0
6 ip=198.51.100.40/ nic=vo0
6 ip=2001:db8::40/129 nic=vo0
6 ip=2001:db8::40::1 nic=vo0
6 ip=2001:db8:1:2:3:4:5:6:7 nic=vo0
6 ip=2001:db8::40 nic=vo0:1
6 ip=198.51.100.40 nic=averyveryverylong0
6 ip=198.51.100.40 nic=vo0 ping_timeout=-1
6 ip=198.51.100.40 nic=vo0 arp_opcode=3
6 ip=198.51.100.40 nic=vo0 defmethod=x
6 nic=vo0
6 ip=198.51.100.40
5 ip=198.51.100.40 nic=vo9
END
# Values that are not legal reach no command line.
ocf vipbad start "ip=198.51.100.41" "nic=vo0;touch $work/injected"
expect "shell word in nic" 6 "$rc"
ocf vipbad start "ip=198.51.100.41\$(touch $work/injected)" nic=vo0
expect "shell word in ip" 6 "$rc"
[ ! -e "$work/injected" ] || fail "a parameter reached a shell"
ocf "vip\$(touch $work/injected)" start ip=198.51.100.41 nic=vo0
expect "shell word in the resource name" 6 "$rc"
[ ! -e "$work/injected" ] || fail "the resource name reached a shell"

# A probe on a node without the interface finds the address stopped; a stop
# with settings that could never start is done.
ocf vipbad monitor ip=198.51.100.42 nic=vo9
expect "probe without the interface" 7 "$rc"
ocf vipbad monitor ip=198.51.100.256 nic=vo0
expect "probe with a bad address" 7 "$rc"
ocf vipbad stop ip=198.51.100.256 nic=vo0
expect "stop with a bad address" 0 "$rc"

# Every exit status of the program, through a stand-in program that exits
# with the status asked for and stores a description as the program does.
fake=$work/fake
mkdir -p "$fake/bin"
cat >"$fake/bin/vyrvip" <<'END'
#!/bin/sh
exit "$(cat "${0%/bin/*}/status")"
END
cat >"$fake/bin/vyrctl" <<'END'
#!/bin/sh
[ "$1" = status ] && printf 'pacemaker\tvip\tvipfake\t%s\n' "$(cat "${0%/bin/*}/description")"
exit 0
END
chmod 755 "$fake/bin/vyrvip" "$fake/bin/vyrctl"
sed "s|^VYR_PREFIX=.*|VYR_PREFIX='$fake'|" "$agent" >"$fake/agent"
chmod 755 "$fake/agent"
echo "Stored text." >"$fake/description"
declare -A code
for s in $(seq 1 40) 99; do code[$s]=1; done
for s in 4 9 17 28 30 31 32 35; do code[$s]=6; done
for s in 6 7 8 12 13; do code[$s]=5; done
code[5]=4
for s in "${!code[@]}"; do
	echo "$s" >"$fake/status"
	agent_under_test=$fake/agent ocf vipfake start ip=198.51.100.50 nic=vo0
	expect "program status $s" "${code[$s]}" "$rc"
	case $s in
	5 | 6 | 7 | 8 | 10) ;;
	*) expect "reason for status $s" "Stored text. (vyrvip --active exit status $s)" "$(reason)" ;;
	esac
done
# A failure that writes no description leaves "Success." in the table; a
# killed program leaves the previous run's row.
echo "Success." >"$fake/description"
for s in 33 137; do
	echo "$s" >"$fake/status"
	agent_under_test=$fake/agent ocf vipfake start ip=198.51.100.50 nic=vo0
	reasons+=("$rc $(reason)")
done
expect "reasons when nothing was stored" \
	"1 the host name is not available (vyrvip --active exit status 33)|1 vyrvip was killed by signal 9 (vyrvip --active exit status 137)" \
	"$(IFS='|'; echo "${reasons[*]}")"

if [ "$failures" -gt 0 ]; then
	echo "$failures check(s) failed"
	exit 1
fi
echo "all checks passed"
