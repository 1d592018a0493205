# Packets of 20,000 bytes of which neither checksum nor segments are made yet,
# and frames of 9,000 bytes, redirected and answered: the rewrite keeps what is
# still to be done, and what comes of it on a cable has right checksums. Who
# listens where they came in, and the other ports of a flooded one, see their own.
#
#   client-1-1 eth0 -- wlan-1-1 \
#         tap device   wlan-1-2 -  br0 -- uplink0 -- upstream
#   client-1-3 eth0 -- wlan-1-3 /   (no offloads: the kernel finishes all)

make_frame_bench 1-1 1-3
add_tap_port wlan-1-2
ethtool -K wlan-1-3 tx off tso off gso off >/dev/null
set_mtu() {
	printf 'link set %s mtu 9000\n' uplink0 wlan-1-1 wlan-1-2 wlan-1-3 br0 | ip -batch -
	local place
	for place in upstream client-1-1 client-1-3; do ip -n "$place" link set eth0 mtu 9000; done
}

step "left to be finished"
load_module
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on
expect_success python3 -S "$LAB/lib/large_frames.py"
unload_module

step "9,000 bytes"
set_mtu
# Frames with the client's address have come in elsewhere, too; the bridge is not to look for it there.
bridge fdb replace "$(mac_of 1-1)" dev wlan-1-1 master static
jumbo=$CASE_DIR/jumbo
cat >"$jumbo" <<'END_OF_TABLE'
                                               | off         | on
tcp/203.0.113.10/80 data=8960                  | same        | redirect:10081
tcp/203.0.113.10/80 options=10 data=8920       | same        | redirect:10081
tcp/203.0.113.10/80 data=8960 total=40,65535   | same        | redirect:10081
tcp/203.0.113.10/80 data=8960 vlan=5           | same        | redirect:10081
tcp/203.0.113.10/8080 data=8960                | same        | drop
tcp/203.0.113.10/80 data=8960 offset=1         | same        | drop
tcp/2.2.2.2/443 data=8960                      | redirect:84 | redirect:84
END_OF_TABLE
answers=$CASE_DIR/answers
addresses=$(printf '/198.18.%s' {1,2}.{1..250})
{
	echo '| any'
	echo "answer/large.garden.example.org$addresses to=$(mac_of 1-1) | same"
} >"$answers"
forms=linear+ring:0,20,40,1000
from_client 1-1
record_frames "$jumbo" --forms $forms
client_listens() { from_upstream --place client=client-1-1/eth0 --marker client; }
client_listens
record_frames "$answers" --forms $forms
load_module
cpctl dns-filter on
cpctl garden replace wlan-1-1 on '*.garden.example.org'
from_client 1-1
check_frames "$jumbo" off --forms $forms
cpctl interface set wlan-1-1 mode on garden off
check_frames "$jumbo" on --forms $forms
client_listens
expect_listed all
check_frames "$answers" any --forms $forms
expect_equal "addresses" 500 "$(listed all | grep -c large.garden.example.org)"
