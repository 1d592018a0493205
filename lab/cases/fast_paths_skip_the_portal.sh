# What takes frames from a wireless port before the bridge has them takes them
# from the portal: a redirect at the port's ingress passes a client that is not
# logged in.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

for part in sch_ingress cls_matchall act_mirred; do
	modprobe "$part" 2>/dev/null || skip "this kernel has no $part"
done
make_topology 1-1
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on

step "a redirect at the port's ingress"
expect_no_ping 1-1 203.0.113.10
tc qdisc add dev wlan-1-1 clsact
tc filter add dev wlan-1-1 ingress matchall action mirred egress redirect dev uplink0
expect_ping 1-1 203.0.113.10
tc qdisc del dev wlan-1-1 clsact
expect_no_ping 1-1 203.0.113.10
