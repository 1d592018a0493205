# The tutorial, from its second step to its eighth: the commands of
# docs/tutorial.md, and what it says comes of them.
#
#    namespace client-1-1     the access point           namespace upstream
#   +------------------+     +----------------+     +----------------------------+
#   | eth0             |-----| eth1      eth0 |-----| eth0 192.168.100.254:      |
#   +------------------+     +----------------+     | DHCP, DNS and real servers |
#                                                   +----------------------------+
#
# Two devices without a bridge: the page makes the rest.

make_machine() {
	ip -batch - <<-END
		netns add upstream
		netns add client-1-1
		link add eth0 type veth peer name eth0 netns upstream address $GATEWAY_MAC
		link add eth1 type veth peer name eth0 netns client-1-1 address 02:00:00:01:01:01
	END
	echo 0 >/proc/sys/net/ipv4/ip_forward
	furnish_upstream
	furnish_namespace client-1-1
}

# The router of a network that was there before.
start_router() {
	ip netns exec upstream dnsmasq --conf-file=/dev/null --no-resolv --no-hosts --no-daemon --user=root --no-ping \
		--interface=eth0 --except-interface=lo --bind-interfaces --server="$UPSTREAM_DNS" --dhcp-authoritative \
		--dhcp-leasefile="$CASE_DIR/dhcp.leases" --dhcp-range=192.168.100.50,192.168.100.150,255.255.255.0,1h \
		--log-facility="$CASE_DIR/router.log" >>"$CASE_DIR/router.log" 2>&1 &
	wait_until 20 "the router answers DNS" router_answers
}

router_answers() { [[ $(in_upstream dig +short +tries=1 +time=1 "@$GATEWAY_ADDRESS" www.example.net) ]]; }

make_machine
start_upstream_dns
start_upstream_web
start_router
run_page tutorial
