# The bridge's own netfilter pass-through, loaded before and after the module,
# on and off: the portal works the same, and no packet is rewritten twice.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

modprobe -n br_netfilter 2>/dev/null || [[ -d /proc/sys/net/bridge ]] || skip "this kernel has no br_netfilter"
make_topology 1-1 1-2
start_services
give_address 1-1 61
give_address 1-2 62

main_road() {
	cpctl interface set wlan-1-1 mode on
	cpctl interface set wlan-1-2 mode on
	cpctl client add login "$(mac_of 1-2)" wlan-1-2
	for switch in 1 0; do
		sysctl -q -w net.bridge.bridge-nf-call-iptables=$switch
		step "$1, pass-through $switch"
		expect_portal_page 1-1 http://203.0.113.10/ 10081
		expect_portal_page 1-1 https://203.0.113.10/ 10444
		expect_real_page 1-2 http://203.0.113.10/
		expect_no_ping 1-1 203.0.113.10
		expect_ping 1-2 203.0.113.10
	done
}

modprobe br_netfilter
load_module
main_road "pass-through first"
unload_module
rmmod br_netfilter 2>/dev/null || true
load_module
modprobe br_netfilter
main_road "module first"
