# Senders that IP knows no station by: no address, loopback, multicast and
# broadcast, the gateway's and the access point's own, and the one that is
# spoken to. The bridge does not mind, and neither does the portal: who sends is
# known by MAC address. Replies find such a connection again.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-3 eth0 -- wlan-1-3 /

make_frame_bench 1-1 1-3

odd_addresses=(0.0.0.0 0.0.0.1 127.0.0.1 192.168.100.1 192.168.100.254 192.168.100.255 203.0.113.10 224.0.0.1
	239.255.255.255 240.0.0.1 255.255.255.255 2.2.2.2 4.4.4.4)

requests=$CASE_DIR/requests
replies=$CASE_DIR/replies
{
	echo '| off | on | dhcp-only'
	for source in "${odd_addresses[@]}"; do
		echo "tcp/203.0.113.10/80 source=$source | same | redirect:10081 | drop"
		echo "tcp/203.0.113.10/443 source=$source | same | redirect:10444 | drop"
		echo "tcp/203.0.113.10/8080 source=$source | same | drop | drop"
		echo "tcp/192.168.100.1/10082 source=$source | drop | drop | drop"
		echo "tcp/2.2.2.2/80 source=$source | redirect:83 | redirect:83 | drop"
		echo "icmp/203.0.113.10 source=$source | same | drop | drop"
		echo "udp/203.0.113.10/5000 source=$source | same | drop | drop"
		echo "dns/203.0.113.53 source=$source | same | same | drop"
		echo "dhcp source=$source | same | same | same"
	done
} >"$requests"
# The same client port of a client that never asked, too.
{
	echo '| off | on'
	for client in "${odd_addresses[@]}"; do
		echo "reply/10081/40000 destination=$client | same | undone"
		echo "reply/10081/40001 destination=$client | same | same"
	done
	echo 'reply/10081/40000 destination=0.0.0.2 | same | same'
	echo 'reply/10081/40000 destination=127.0.0.2 | same | same'
} >"$replies"

# Only what went to the server whose page the replies are made to come from.
recorded=$CASE_DIR/recorded
{
	echo '| on'
	for source in "${odd_addresses[@]}"; do echo "tcp/203.0.113.10/80 source=$source | redirect:10081"; done
} >"$recorded"

from_replies() { from_access_point --place client=client-1-1/eth0 --place other=client-1-3/eth0; }
step "without the module"
from_client 1-1
record_frames "$requests"
record_frames "$recorded"
from_replies
record_frames "$replies"

load_module
from_client 1-1
check_frames "$requests" off
from_replies
check_frames "$replies" off
cpctl interface set wlan-1-1 mode on
from_client 1-1
check_frames "$requests" on
check_frames "$recorded" on
from_replies
check_frames "$replies" on
cpctl interface set wlan-1-1 mode off disconnection pass-dhcp disconnected
from_client 1-1
check_frames "$requests" dhcp-only
