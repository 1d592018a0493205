# Ping and IPv6 of a client that is not logged in are dropped, wherever they go;
# ARP is not.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /     (portal off on wlan-1-2)

make_topology 1-1 1-2
give_address 1-1 61
give_address 1-2 62
in_upstream sysctl -q -w net.ipv6.conf.all.disable_ipv6=0 net.ipv6.conf.eth0.disable_ipv6=0
in_upstream ip -6 address add 2001:db8::fe/64 dev eth0 nodad
for client in 1-1 1-2; do
	in_client "$client" sysctl -q -w net.ipv6.conf.all.disable_ipv6=0 net.ipv6.conf.eth0.disable_ipv6=0
	in_client "$client" ip -6 address add "2001:db8::${client/-/}/64" dev eth0 nodad
done
load_module
cpctl interface set wlan-1-1 mode on
start_capture uplink upstream eth0

for address in "$AP_ADDRESS" "$GATEWAY_ADDRESS" 203.0.113.10 2001:db8::fe; do
	step "$address"
	expect_no_ping 1-1 "$address"
	expect_ping 1-2 "$address"
done
step "portal off"
cpctl interface set wlan-1-1 mode off
expect_ping 1-1 203.0.113.10
expect_ping 1-1 2001:db8::fe
cpctl interface set wlan-1-1 mode on
expect_no_ping 1-1 203.0.113.10

stop_capture uplink
expect_captured uplink "ether src $(mac_of 1-1) and arp"
