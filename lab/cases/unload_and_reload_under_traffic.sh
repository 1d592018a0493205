# The module is unloaded and loaded again, ten times, while clients send all
# that they can: redirected, admitted and dropped traffic. Nothing breaks, and
# the portal works at the end as at the beginning. Unloading waits for running
# hooks, which takes a busy emulated machine seconds; how long it may take at
# most is measured by lab/life-cycle.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2  br0 -- uplink0 -- upstream
#   client-lan0 eth0 ---- lan0  /

make_topology 1-1 1-2 lan0
start_services
give_address 1-1 61
give_address 1-2 62
give_address lan0 63

set_up() {
	load_module
	cpctl interface set wlan-1-1 mode on
	cpctl interface set wlan-1-2 mode on
	cpctl client add login "$(mac_of 1-2)" wlan-1-2
}

answers=$CASE_DIR/answers
: >"$answers"
keep_asking() {
	while :; do
		in_client "$1" curl -q -s -o /dev/null -w "$1 %{http_code}\n" --connect-timeout 0.3 --max-time 1 "$2" >>"$answers" || true
	done
}
frames_sent() { in_client "$1" awk '$1 == "eth0:" { print $11 }' /proc/net/dev; }
# Ends when its process is killed at the end of the case.
keep_asking 1-1 http://203.0.113.10/ &
keep_asking 1-2 http://203.0.113.20/ &
keep_asking lan0 "http://$AP_ADDRESS:10081/" &
# At a shorter interval ping does not sleep but asks for the time again and again.
in_client 1-1 ping -n -q -i 0.02 203.0.113.10 >/dev/null &
in_client 1-2 ping -n -q -i 0.02 203.0.113.10 >/dev/null &

for round in {1..10}; do
	set_up
	of_1_1=$(frames_sent 1-1) of_1_2=$(frames_sent 1-2)
	expect_portal_page 1-1 http://203.0.113.10/round-$round 10081
	expect_real_page 1-2 http://203.0.113.20/round-$round
	sleep 0.2
	before=$(date +%s%N)
	unload_module
	took=$((($(date +%s%N) - before) / 1000000))
	of_1_1=$(($(frames_sent 1-1) - of_1_1)) of_1_2=$(($(frames_sent 1-2) - of_1_2))
	step "round $round: unloaded in $took ms, after $of_1_1 and $of_1_2 frames"
	((took < 20000)) || fail "unloading took $took ms"
	((of_1_1 > 20 && of_1_2 > 20)) || fail "there was no traffic"
done
step "without the module the network is open"
expect_real_page 1-1 http://203.0.113.10/open
set_up
expect_portal_page 1-1 http://203.0.113.10/end 10081
for client in 1-1 1-2 lan0; do
	count=$(grep -cx "$client 200" "$answers" || true)
	step "$client was answered $count times"
	((count > 10)) || fail "$client was answered $count times"
done
