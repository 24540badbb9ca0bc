#!/usr/bin/env bash
# The OCF agent, installed from the build into a private prefix, run in two
# namespaces made here: the node (vo0 to the peer; the pair vo2/vo3 carries
# overlapping routes) and the peer, the other holder of an address.
# Usage: ocf_agent_test.sh BUILD_DIR SOURCE_DIR (exit 77: skipped).
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
	! ip -n "$node" link add vo2 type veth peer name vo3; then
	skip "cannot make network namespaces"
fi
for link in "$node lo" "$node vo0" "$node vo2" "$node vo3" "$peer lo" "$peer vo1"; do
	ip -n "${link% *}" link set "${link#* }" up
done
ip -n "$node" addr add 2001:db8::1/64 dev vo0 nodad
ip -n "$node" addr add 198.51.100.1/24 dev vo0
ip -n "$node" addr add 203.0.113.1/24 dev vo2
ip -n "$node" addr add 203.0.113.129/25 dev vo3
ip -n "$node" addr add 192.0.2.1/24 dev vo2
ip -n "$node" addr add 192.0.2.2/24 dev vo3
ip -n "$node" addr add 198.51.100.30/24 dev vo0 label vo0:7
peer_mac=$(ip -n "$peer" -o link show vo1 | grep -o 'link/ether [0-9a-f:]*' | cut -d' ' -f2)

failures=0
fail() {
	echo "FAIL: $*"
	failures=$((failures + 1))
}
# expect NAME WANTED GOT
expect() {
	[ "$2" = "$3" ] || fail "$1: expected [$2], got [$3]"
}

# ocf RESOURCE ACTION [name=value...] (depth=N sets OCF_CHECK_LEVEL) sets rc,
# out and err (the log and exit reason); run in the node's namespace, or in
# the peer's when network_namespace puts the address into the node's.
ocf() {
	local rsc=$1 action=$2 netns=$node
	shift 2
	local env=(OCF_RESOURCE_INSTANCE="$rsc" OCF_RESKEY_CRM_meta_interval="${interval:-0}")
	[ -z "${timeout_ms:-}" ] || env+=(OCF_RESKEY_CRM_meta_timeout="$timeout_ms")
	local kv
	for kv; do
		case $kv in
		depth=*) env+=("OCF_CHECK_LEVEL=${kv#depth=}") ;;
		network_namespace=*) netns=$peer env+=("OCF_RESKEY_$kv") ;;
		*) env+=("OCF_RESKEY_$kv") ;;
		esac
	done
	out=$(ip netns exec "$netns" env "${env[@]}" "${agent_under_test:-$agent}" "$action" 2>"$work/stderr")
	rc=$?
	err=$(cat "$work/stderr")
}
reason() { sed -n 's/^ocf-exit-reason://p' <<<"$err"; }
# Where an address is in the node: "ADDR/PREFIX@LABEL" (the label is the
# interface's name when there is none), "-" when it is on no interface.
where() {
	ip -n "$node" -o addr show to "${1%%/*}" |
		awk '{ sub(/\\.*/, ""); print $4 "@" ($3 == "inet" ? $NF : $2) } END { if (NR == 0) print "-" }'
}

# --- meta-data and its documentation -----------------------------------------

meta=$("$agent" meta-data)
expect "meta-data status" 0 $?
expect "meta-data as nobody" "$meta" "$(su nobody -s /bin/sh -c "'$agent' meta-data" 2>&1)"
expect "deep monitor listed" 1 "$(xmllint --xpath "count(//action[@name='monitor'][@depth='10'])" - <<<"$meta")"
# docs/pacemaker.md's parameter table: "| `name` | default | IPaddr2 | meaning |".
names=$(xmllint --xpath '//parameter/@name' - <<<"$meta" | sed 's/ name="\([^"]*\)"/\1\n/g' | sed '/^$/d')
meta_rows=$(for n in $names; do
	d=$(xmllint --xpath "string(//parameter[@name='$n']/content/@default)" - <<<"$meta")
	[ "$n" != ip ] || d=required
	echo "$n ${d:--}"
done | sort)
# shellcheck disable=SC2016
doc_rows=$(sed -n 's/^| `\([a-z0-9_]*\)` | \([^|]*\) |.*/\1 \2/p' "$source/docs/pacemaker.md" | sed 's/ *$//' | sort)
expect "docs/pacemaker.md parameter table = meta-data" "$meta_rows" "$doc_rows"
# docs/pacemaker.md's exit-code table ("| 4, 9, 31 | 6 `OCF_ERR_CONFIGURED` |",
# "every other status" for the rest) says what the status table says.
table_codes=$(awk -F'|' '/^[0-9]/ && $3 != "OCF_ERR_GENERIC" {print $1, $3}' \
	"$source/src/vip/base/statuses.txt" | sort)
# shellcheck disable=SC2016
doc_codes=$(sed -n 's/^| \([0-9][0-9, ]*\) | [0-9] `\(OCF_[A-Z_]*\)` |.*/\1|\2/p' "$source/docs/pacemaker.md" |
	while IFS='|' read -r list code; do
		for n in ${list//,/ }; do echo "$n $code"; done
	done | sort)
expect "docs/pacemaker.md exit codes = statuses.txt" "$table_codes" "$doc_codes"

# --- ocf-tester, with the address alone: interface and prefix from the route -

if ! out=$(ip netns exec "$node" ocf-tester -n vip1 -o ip=198.51.100.10 "$agent" 2>&1); then
	fail "ocf-tester: $out"
fi
echo "$out" | tail -1
expect "ocf-tester leaves the address off" - "$(where 198.51.100.10)"

# --- the actions -------------------------------------------------------------

# Rows: OCF code, where the address is afterwards (a pattern of what `where`
# prints; "*" not checked), optionally +peer=ADDR/PREFIX (the peer takes
# that address first), resource, action, parameters; after " | " a text the
# log or the exit reason must hold ("!text": must not hold). The peer holds
# 198.51.100.20 throughout.
ns=network_namespace=$node
ip -n "$peer" addr add 198.51.100.20/24 dev vo1
while IFS= read -r row; do
	case $row in '' | '#'*) continue ;; esac
	params=${row%% | *}
	want_text=
	[ "$params" = "$row" ] || want_text=${row#* | }
	read -ra words <<<"$params"
	wanted=${words[0]} state=${words[1]}
	if [[ ${words[2]} == +peer=* ]]; then
		ip -n "$peer" addr add "${words[2]#+peer=}" dev vo1
		words=("${words[@]:0:2}" "${words[@]:3}")
	fi
	timeout_ms=20000 ocf "${words[@]:2}"
	expect "$params: code" "$wanted" "$rc"
	if [ "$state" != '*' ]; then
		got=$(where "${words[4]#ip=}" | tr '\n' ' ' | sed 's/ $//')
		# shellcheck disable=SC2053
		[[ $got == $state ]] || fail "$params: address: expected [$state], got [$got]"
	fi
	case $want_text in
	'') ;;
	!*) grep -qF -e "${want_text#!}" <<<"$err" && fail "$params: says [${want_text#!}]: $err" ;;
	*) grep -qF -e "$want_text" <<<"$err" || fail "$params: does not say [$want_text]: $err" ;;
	esac
done <<END
# The defaults: explicit prefix from the connected route, never /0; one info
# line each; the defaults fit 20 s.
0 198.51.100.10/24@vo0 v4 start ip=198.51.100.10 nic=vo0 | start: added 198.51.100.10/24 on vo0 with no label
0 198.51.100.10/24@vo0 v4 monitor ip=198.51.100.10 nic=vo0 | !timeout
0 - v4 stop ip=198.51.100.10 nic=vo0 | stop: removed 198.51.100.10/24 on vo0
0 2001:db8::10/64@vo0 v6 start ip=2001:db8::10 nic=vo0 | Neighbor Solicitation probe of 200 ms
0 - v6 stop ip=2001:db8::10
# nic from the most specific connected route; cidr_netmask, dotted too.
0 203.0.113.200/25@vo3 auto start ip=203.0.113.200 | !timeout
0 - auto stop ip=203.0.113.200
0 203.0.113.10/28@vo2 mask start ip=203.0.113.10 cidr_netmask=255.255.255.240
0 - mask stop ip=203.0.113.10 cidr_netmask=255.255.255.240
# vo3 answers for vo2's addresses (one node, one link): not a second holder.
0 203.0.113.10/24@vo2 flux start ip=203.0.113.10/24 nic=vo2
0 * flux monitor ip=203.0.113.10/24 nic=vo2 depth=10 | from this node's own interface vo3
0 - flux stop ip=203.0.113.10/24 nic=vo2
0 198.51.100.12/24@vo0:web lbl start ip=198.51.100.12 nic=vo0 iflabel=web
0 - lbl stop ip=198.51.100.12 nic=vo0 iflabel=web
0 198.51.100.13/24@vo0:3 alias start ip=198.51.100.13 nic=vo0:3 | as vo0:3
0 - alias stop ip=198.51.100.13 nic=vo0:3
# What depends on this node is not OCF_ERR_CONFIGURED.
5 - tie start ip=192.0.2.10 | Connected routes /24 on vo2 vo3 all cover 192.0.2.10: set nic
5 * none validate-all ip=2001:db8:ff::10 | No connected route on this node covers 2001:db8:ff::10: set nic
5 * nomask validate-all ip=203.0.113.10 nic=vo0 | set cidr_netmask (or ip=203.0.113.10/PREFIX)
5 * long validate-all ip=198.51.100.14 nic=vo0 iflabel=abcdefghijkl | The label vo0:abcdefghijkl is longer than 15
5 * nons validate-all ip=198.51.100.14 network_namespace=vyrocf-none
1 - taken start ip=198.51.100.31/24 nic=vo0:7 | exit status 28)
# A holder on the LAN: the 200 ms ARP probe refuses.
1 - dup start ip=198.51.100.20 nic=vo0 | IP address was already used.
# Any Pacemaker id; into a named namespace; the deep monitor (and one that
# re-announces) finds a second holder that appears later.
0 198.51.100.14/24@vo0 ip-198.51.100.14-webshop-production start ip=198.51.100.14 | is ip-198.51.100.14-websh-
0 - ip-198.51.100.14-webshop-production stop ip=198.51.100.14
0 198.51.100.15/24@vo0 nsvip start ip=198.51.100.15 $ns | in network namespace $node
0 198.51.100.15/24@vo0 nsvip monitor ip=198.51.100.15 $ns depth=10
1 * +peer=198.51.100.15/24 nsvip monitor ip=198.51.100.15 $ns depth=10 | $peer_mac
1 * nsvip monitor ip=198.51.100.15 $ns arp_count_refresh=2 | $peer_mac
0 198.51.100.15/24@vo0 nsvip monitor ip=198.51.100.15 $ns
0 - nsvip stop ip=198.51.100.15 $ns
# Refused before anything runs: OCF_ERR_CONFIGURED (6).
0 * bad validate-all ip=2001:db8::1:0:0:40 nic=vo0 ping_retry=007
0 * bad validate-all ip=::ffff:198.51.100.40/128 nic=vo0
6 * bad validate-all ip=198.51.100.256 nic=vo0
6 * bad validate-all ip=198.51.100.40/0 nic=vo0
6 * bad validate-all ip=198.51.100.40/24 nic=vo0 cidr_netmask=25
6 * bad validate-all ip=2001:db8::40 nic=vo0 cidr_netmask=255.255.255.0
6 * bad validate-all ip=2001:db8::40::1 nic=vo0
6 * bad validate-all ip=2001:db8::40 nic=vo0:1
6 * bad validate-all ip=198.51.100.40 nic=averyveryverylong0
6 * bad validate-all ip=198.51.100.40 nic=vo0 arp_count=-1
6 * bad validate-all ip=198.51.100.40 nic=vo0 arp_bg=maybe
6 * bad validate-all ip=198.51.100.40 nic=vo0 preferred_lft=later
6 * bad validate-all ip=198.51.100.40 nic=vo0 broadcast=2001:db8::ff
6 * bad validate-all ip=198.51.100.40 nic=vo0 iflabel=a:b
6 * bad validate-all nic=vo0
5 * bad validate-all ip=198.51.100.40 nic=vo9
# Values that are not legal reach no command line (checked below); a
# resource name that is not a legal word runs under a mapped one. A probe
# without the interface finds the address stopped; a stop with settings that
# could never start is done.
6 * vipbad start ip=198.51.100.41 nic=vo0;:>$work/injected
6 * vipbad start ip=198.51.100.41\$(:>$work/injected) nic=vo0
0 198.51.100.41/24@vo0 vip\$(:>$work/injected) start ip=198.51.100.41 nic=vo0 ping_timeout=0
0 - vip\$(:>$work/injected) stop ip=198.51.100.41 nic=vo0
7 * vipbad monitor ip=198.51.100.42 nic=vo9
0 * vipbad stop ip=198.51.100.256 nic=vo0
# IPaddr2's parameters that vyrvip does not serve; settings that cannot fit.
0 * warn validate-all ip=198.51.100.16 lvs_support=true flush_routes=false | lvs_support=true is ignored
0 * warn validate-all ip=198.51.100.16 flush_routes=false | !ignored
0 198.51.100.16/24@vo0 slow start ip=198.51.100.16 ifconfig_use=0 ifconfig_timeout=30 run_arping=0 | start timeout of 20s is shorter than the 60s
0 - slow stop ip=198.51.100.16 check_ping_execute=1 | stop timeout of 20s is shorter than the 22s
END
ip -n "$peer" addr flush dev vo1
[ ! -e "$work/injected" ] || fail "a parameter reached a shell"

# What the configuration file hands the program, as the program's trace log
# shows it read; the file goes with the stop.
conf=$HA_RSCTMP/vyrvip/v4.xml
log=$VYR_LOG_DIR/vip.log
from=$(($(wc -l <"$log") + 1))
ocf v4 start ip=198.51.100.10 nic=vo0 arp_retry=2 run_arping=no nodad=1 preferred_lft=0 broadcast=-
expect "start with settings" 0 "$rc"
expect "configuration file mode and owner" "600 root" "$(stat -c '%a %U' "$conf" 2>&1)"
expect "address and interface handed over" "198.51.100.10/24 vo0" \
	"$(xmllint --xpath 'concat(//server/parameters/ip, " ", //server/parameters/ifname)' "$conf")"
ocf v4 stop ip=198.51.100.10 nic=vo0
expect "stop" 0 "$rc"
[ ! -e "$conf" ] || fail "configuration file left after stop"
trace=$(tail -n "+$from" "$log")
for line in 'arp        = cmd:arp,num:2,' 'defence    = na:2,dad:2000,arpprobe:0,dadprobe:200' \
	'announce   = itv:200,bg:1' 'lock       = short:1' 'ifconfig   = cmd:ifconfig,to:2' 'chk arp    = to:200,bg:1' \
	'ipaddr     = netlink:1,nodad:0,noprefixroute:0,preferred_lft:0,nolabel:1,label:,broadcast:none' \
	'ping       = cmd:bin/vyrping,to:0,' 'chk ping   = exec:0,'; do
	grep -qF -e "$line" <<<"$trace" || fail "not in the trace log: $line"
done
expect "stored description" "$(printf 'pacemaker\tvip\tv4\tSuccess.')" "$("$prefix/bin/vyrctl" status | grep -P '\tv4\t')"
expect "a long id's row" 1 "$("$prefix/bin/vyrctl" status | grep -cP '\tip-198\.51\.100\.14-websh-[0-9a-f]{8}\t')"

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
sed -e "s|^VYR_PROGRAM=.*|VYR_PROGRAM='$fake/bin/vyrvip'|" -e "s|^VYR_CTL=.*|VYR_CTL='$fake/bin/vyrctl'|" "$agent" >"$fake/agent"
chmod 755 "$fake/agent"
echo "Stored text." >"$fake/description"
declare -A code
for s in $(seq 1 40) 99; do code[$s]=1; done
for s in 4 9 31 32 35; do code[$s]=6; done
for s in 6 7 8 12 13 30; do code[$s]=5; done
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
