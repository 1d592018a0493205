# The access point, its clients, and the network behind it.
#
#    namespace client-1-1          root namespace: the access point
#   +---------------------+     +-----------------------------------+
#   | eth0 192.168.100.x  |-----| wlan-1-1 \                        |
#   +---------------------+     |           \                       |
#    namespace client-1-2       |            br0 192.168.100.1/24   |
#   +---------------------+     |           /   dnsmasq (DHCP, DNS) |
#   | eth0 192.168.100.x  |-----| wlan-1-2 /    nginx (portal pages)|
#   +---------------------+     |         /                         |
#    namespace client-lan0      |        /                          |
#   +---------------------+     |       /                           |
#   | eth0                |-----| lan0 /       uplink0              |
#   +---------------------+     +-----------------|-----------------+
#                                                 |
#                               +-----------------|-----------------+
#                               | eth0 192.168.100.254, the gateway |
#                               | servers 203.0.113.x, 198.51.100.x |
#                               | nginx (web), dnsmasq (DNS)        |
#                               +-----------------------------------+
#                                namespace upstream
#
#   make_topology [CLIENT...]     the whole picture; CLIENT is R-V for a wireless
#                                 port wlan-R-V, or a port's name for a wired one
#   add_client CLIENT             one more port with its client
#   add_client_behind CLIENT NAME   one more client, NAME, on CLIENT's own port
#   give_address CLIENT ADDRESS   without DHCP: 192.168.100.ADDRESS, gateway, DNS
#   mac_of CLIENT                 its hardware address; "upstream" and "br0" as well
#   port_of CLIENT                its bridge port
#   access_point ...              runs a command there; in_client, in_upstream too
#
# Hardware addresses: 02:00:00:00:00:01 is br0, 02:00:00:00:00:fe the gateway,
# 02:00:00:01:RR:VV a wireless client, 02:00:00:02:.. a wired one or a second
# one on its port.
#
# The machine is thrown away: nothing here can reach another network.

AP_ADDRESS=192.168.100.1
AP_MAC=02:00:00:00:00:01
GATEWAY_ADDRESS=192.168.100.254
GATEWAY_MAC=02:00:00:00:00:fe
UPSTREAM_DNS=203.0.113.53

# Every address at which the real servers answer, and the names of some.
SERVER_ADDRESSES=(203.0.113.10 203.0.113.20 203.0.113.30 203.0.113.40 203.0.113.53
	198.51.100.10 198.51.100.20 198.51.100.30)
declare -A SERVER_NAMES=(
	[www.example.net]=203.0.113.10
	[www.example.com]=203.0.113.20
	[garden.example.org]=203.0.113.30
	[login.example.org]=203.0.113.40
	[mail.example.org]=198.51.100.10
	[static.example.net]=198.51.100.20
)

access_point() { "$@"; }
in_client() {
	local client=$1
	shift
	ip netns exec "client-$client" "$@"
}
in_upstream() { ip netns exec upstream "$@"; }

port_of() {
	case $1 in
	[0-9]*-[0-9]*) echo "wlan-$1" ;;
	*) echo "$1" ;;
	esac
}

mac_of() {
	case $1 in
	br0) echo "$AP_MAC" ;;
	upstream) echo "$GATEWAY_MAC" ;;
	*) in_client "$1" cat /sys/class/net/eth0/address ;;
	esac
}

# A program's start costs a User Mode Linux or emulated machine 20 ms and more, so the picture is drawn by as few of
# them as can be: one for the access point, one for each name space.
make_topology() {
	local client
	local -A macs=()
	for client; do
		# Not in a subshell: new_mac counts.
		new_mac "$client"
		macs[$client]=$REPLY
	done
	{
		# The bridge forwards; the access point itself never routes.
		echo "link add br0 type bridge forward_delay 0 mcast_snooping 0"
		echo "link set br0 address $AP_MAC"
		echo "link set br0 up"
		echo "address add $AP_ADDRESS/24 dev br0"
		echo "route add default via $GATEWAY_ADDRESS"
		connect_port uplink0 upstream "$GATEWAY_MAC"
		for client; do connect_port "$(port_of "$client")" "client-$client" "${macs[$client]}"; done
	} | ip -batch -
	echo 0 >/proc/sys/net/ipv4/ip_forward
	furnish_upstream
	for client; do furnish_namespace "client-$client"; done
}

# connect_port PORT NAMESPACE MAC  lines for "ip -batch": a name space, and a cable between a bridge port and its eth0.
connect_port() {
	echo "netns add $2"
	echo "link add $1 type veth peer name eth0 netns $2 address $3"
	echo "link set $1 master br0"
	echo "link set $1 up"
}

# furnish_namespace NAMESPACE [BATCH_LINE...]  what a name space of connect_port needs inside.
furnish_namespace() {
	mkdir -p "/run/netns-etc/$1"
	: >"/run/netns-etc/$1/resolv.conf"
	printf '%s\n' "link set lo up" "link set eth0 up" "${@:2}" | ip -n "$1" -batch -
}

furnish_upstream() {
	furnish_namespace upstream \
		"address add $GATEWAY_ADDRESS/24 dev eth0" \
		"link add servers type dummy" \
		"link set servers up" \
		"${SERVER_ADDRESSES[@]/#/address add dev servers }"
}

# new_mac CLIENT  a hardware address for it, in REPLY.
extra_clients=0
new_mac() {
	extra_clients=$((extra_clients + 1))
	case $1 in
	[0-9]*-[0-9]*) printf -v REPLY '02:00:00:01:%02x:%02x' "${1%-*}" "${1#*-}" ;;
	*) printf -v REPLY '02:00:00:02:00:%02x' "$extra_clients" ;;
	esac
}

add_client() {
	new_mac "$1"
	connect_port "$(port_of "$1")" "client-$1" "$REPLY" | ip -batch -
	furnish_namespace "client-$1"
}

# A macvlan on the first client's cable: its frames enter the bridge through
# the same port with a hardware address of their own.
add_client_behind() {
	extra_clients=$((extra_clients + 1))
	ip netns add "client-$2"
	ip -n "client-$1" link add "$2" link eth0 netns "client-$2" \
		address "$(printf '02:00:00:02:01:%02x' "$extra_clients")" type macvlan mode bridge
	ip -n "client-$2" link set "$2" name eth0
	furnish_namespace "client-$2"
}

give_address() {
	printf '%s\n' "address replace 192.168.100.$2/24 dev eth0" "route replace default via $GATEWAY_ADDRESS" |
		ip -n "client-$1" -batch -
	echo "nameserver $AP_ADDRESS" >"/run/netns-etc/client-$1/resolv.conf"
}
