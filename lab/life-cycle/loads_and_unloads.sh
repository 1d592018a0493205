# The module is loaded and unloaded $LIFE_CYCLE_ROUNDS times, a tenth of them while frames are redirected, dropped and
# admitted and DNS answers fill its cache. Each unload takes less than a second: "./run life-cycle" runs this case by a
# clock that does not leap. Quiet rounds leave no memory behind, though each has had clients on its lists, rules and a
# full pass of its thread; rounds under traffic leave what is kept on purpose, connections that never saw their end. The
# last load works like the first.
#
#   client-1-1 eth0 -- wlan-1-1 \
#         tap device   wlan-1-2 -  br0 -- uplink0 -- upstream

rounds=${LIFE_CYCLE_ROUNDS:-40}
make_frame_bench 1-1
add_tap_port wlan-1-2

frames=$CASE_DIR/frames
cat >"$frames" <<'END_OF_TABLE'
                             | off  | on
tcp/203.0.113.10/80          | same | redirect:10081
tcp/203.0.113.10/80 data=900 | same | redirect:10081
dns/203.0.113.53             | same | same
icmp/203.0.113.10            | same | drop
END_OF_TABLE
answers=$CASE_DIR/answers
{
	echo '| any'
	for number in {1..100}; do
		echo "answer/n$number.example.org/198.18.0.$number/198.18.1.$number to=$(mac_of 1-1) | same"
	done
} >"$answers"
from_client 1-1
record_frames "$frames"

cat >"$CASE_DIR/settings" <<'END_OF_BATCH'
interface set wlan-1-1 mode on
garden replace wlan-1-1 on *.example.org
client add login 02:00:00:01:01:77 wlan-1-1
END_OF_BATCH
set_up() {
	local words
	while read -r words; do
		set -f
		cpctl --wait 5 $words
		set +f
	done <"$CASE_DIR/settings"
}

# The client is taken off its list again: what stays on a list is kept on purpose, and would hide what is lost.
quiet_round() {
	quick_load
	if (($1 % 10 == 0)); then
		set_up
		cpctl client del login 02:00:00:01:01:77 wlan-1-1
	fi
	timed_unload
	[[ ! -e /dev/CP_dev && ! -e /proc/cp_dns_aRecord ]] || fail "round $1: the device or the proc directory is still there"
}

quiet=$((rounds - rounds / 10))
step "$quiet rounds without traffic"
# The first rounds fill the kernel's own caches.
warm=$((quiet / 4))
for ((round = 1; round <= warm; round++)); do quiet_round "$round"; done
memory=$(kernel_memory)
for ((; round <= quiet; round++)); do quiet_round "$round"; done
grown=$(($(kernel_memory) - memory))
figure "$quiet unloads without traffic, $(median_unload) us in the middle, the longest $slowest_unload us"
figure "the kernel's own memory: $memory KiB after $warm rounds, $grown KiB more after $quiet"
# A page lost in each round would be four times as much. A kernel that looks for leaks itself keeps notes for that, and
# says after the case what was lost.
[[ -e /sys/kernel/debug/kmemleak ]] || ((grown <= quiet - warm + 256)) ||
	fail "the kernel's own memory grew by $grown KiB"

step "$((rounds - quiet)) rounds under traffic"
floods=()
# flood TABLE FORMS ARGUMENT...
flood() {
	python3 -S "$LAB/lib/frame_table.py" flood "$1" - "${places[@]}" --forms "$2" "${@:3}" &
	floods+=($!)
}
flood "$frames" linear+ring:20
flood "$frames" linear --source 02:00:00:01:01:77
from_tap wlan-1-2
flood "$frames" frags:20
from_upstream
flood "$answers" linear+ring:0

nft add rule ip quiet input tcp dport 10081 counter
redirected() { nft list chain ip quiet input | sed -n 's/.*dport 10081 counter packets \([0-9]*\).*/\1/p'; }
has_redirected() { (($(redirected) > before)); }
# A read leaves marks, so what it lists is counted once.
has_cached() {
	in_cache=$(read_summary | grep -cF 'IP=198.18.' || true)
	((in_cache > 0))
}
# The module's own count, which begins with each load.
has_counted() { grep -q "^count interface=wlan-1-1 reason=$1 " /proc/captive_portal/counters; }
slowest_unload=0 unload_times=()
cached=0
for ((; round <= rounds; round++)); do
	before=$(redirected)
	quick_load
	set_up
	wait_until 20 "a frame was redirected" has_redirected
	wait_until 20 "an answer is in the cache" has_cached
	wait_until 20 "a ping was dropped" has_counted icmp
	wait_until 20 "a frame of the admitted client passed" has_counted login
	cached=$((cached + in_cache))
	timed_unload
done
for process in "${floods[@]}"; do kill -0 "$process" || fail "one of the senders ended"; done
figure "$((rounds - quiet)) unloads under traffic, $(median_unload) us in the middle," \
	"the longest $slowest_unload us; $cached addresses of DNS answers were in the cache"
kill "${floods[@]}"
wait "${floods[@]}" || true

step "once more"
load_module
cpctl interface set wlan-1-1 mode on
from_client 1-1
check_frames "$frames" on
cpctl interface set wlan-1-1 mode off
check_frames "$frames" off
