# Hostile frames, thousands in a run, each held against a verdict.
#
#   make_frame_bench [CLIENT...]   make_topology, but nobody answers: the access point's own stack and the network
#                                  upstream throw away what reaches them, after the listeners have seen it
#   add_tap_port PORT              a bridge port that is a tap device; give it packets in fragments
#   record_frames TABLE ARGUMENT...   without the module: what the bridge alone does with the frames
#   check_frames TABLE COLUMN ARGUMENT...   with the module: each frame's verdict; see lib/frame_table.py
#   from_client CLIENT / from_tap PORT / from_access_point / from_upstream
#                                  the arguments --from and --place, in $places
#   send_frames PLACE FORM SOURCE_MAC FRAME CHANGE...   these frames and nothing else, from NAMESPACE/DEVICE; words and forms
#                                  are those of a table
#   mark_between_hooks             a firewall's mark for what goes to 203.0.113.30, whose page is on port 1025
#   pass_through ON_OR_OFF         the bridge's own netfilter, for all that it knows
#
# A table's recording is beside it: TABLE.recorded, or $recording.

make_frame_bench() {
	make_topology "$@"
	printf 'address flush dev %s\n' eth0 servers | ip -n upstream -batch -
	bridge fdb replace "$GATEWAY_MAC" dev uplink0 master static
	nft 'table ip quiet { chain input { type filter hook input priority 0; policy drop; }; }'
}

add_tap_port() {
	modprobe tun 2>/dev/null || true
	[[ -c /dev/net/tun ]] || fail "this kernel has no tap device"
	printf '%s\n' "tuntap add dev $1 mode tap" "link set $1 master br0" "link set $1 up" | ip -batch -
	# Receive offload would pull headers together before the bridge sees them.
	ethtool -K "$1" gro off >/dev/null
}

listen_at() {
	places=(--place "port=/$1" --place access-point=/br0 --place upstream=upstream/eth0 "${@:2}")
}
from_client() {
	listen_at "$(port_of "$1")"
	places+=(--from "client-$1/eth0")
}
from_access_point() {
	places=(--place port-out=/br0 --place upstream=upstream/eth0 --from /br0 --source "$AP_MAC" "$@")
}
from_upstream() {
	listen_at uplink0
	places+=(--from upstream/eth0 "$@")
}
from_tap() {
	listen_at "$1"
	places+=(--from "tap:$1")
}

record_frames() {
	expect_success python3 -S "$LAB/lib/frame_table.py" record "$1" "${recording:-$1.recorded}" "${places[@]}" "${@:2}"
}
check_frames() {
	expect_success python3 -S "$LAB/lib/frame_table.py" check "$1" "${recording:-$1.recorded}" "${places[@]}" \
		--column "$2" "${@:3}"
}

send_frames() { expect_success python3 -S "$LAB/lib/send_frames.py" "$@"; }

mark_between_hooks() {
	nft -f - <<-'END_OF_RULES'
		table bridge reputation {
			chain prerouting {
				type filter hook prerouting priority -315; policy accept;
				ether type ip ip daddr 203.0.113.30 meta mark set 5307
			}
		}
	END_OF_RULES
}

pass_through() {
	local state=1 what
	[[ $1 == on ]] || state=0
	for what in iptables ip6tables arptables; do sysctl -q -w "net.bridge.bridge-nf-call-$what=$state"; done
}
