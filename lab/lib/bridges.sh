# Two bridges of the access point, and one in another name space that has the same names.
#
#   make_bridges [CLIENT...]      make_frame_bench 1-1 CLIENT..., a bridge br1 with its uplink, and in the name space
#                                 "elsewhere" a br0 with a wlan-1-1 and an uplink
#   bridge_steps FILE             see lib/bridge_steps.py
#   BRIDGE_STEPS                  the steps that begin and end with what make_bridges makes

BRIDGE_STEPS=$LAB/lib/bridges_and_ports.steps

make_bridges() {
	local name
	make_frame_bench 1-1 "$@"
	for name in upstream1 elsewhere elsewhere-upstream elsewhere-client; do ip netns add "$name"; done
	ip -batch - <<-'END'
		link add br1 address 02:00:00:00:00:02 type bridge forward_delay 0 mcast_snooping 0
		link set br1 up
		link add uplink1 type veth peer name eth0 netns upstream1
		link set uplink1 master br1
		link set uplink1 up
	END
	ip -n elsewhere -batch - <<-'END'
		link add br0 address 02:00:00:00:00:03 type bridge forward_delay 0 mcast_snooping 0
		link set br0 up
		address add 192.168.100.1/24 dev br0
		link add uplink0 type veth peer name eth0 netns elsewhere-upstream
		link add wlan-1-1 type veth peer name eth0 netns elsewhere-client
		link set uplink0 master br0
		link set uplink0 up
		link set wlan-1-1 master br0
		link set wlan-1-1 up
	END
	for name in upstream1 elsewhere-upstream elsewhere-client; do ip -n "$name" link set eth0 up; done
	# Deleted bridges take their static entries along; here nobody needs them.
	bridge fdb del "$GATEWAY_MAC" dev uplink0 master static
}

bridge_steps() { expect_success python3 -S "$LAB/lib/bridge_steps.py" "$@"; }
