# Replies of the access point's web service, flooded to three ports as clones of
# one packet: cut anywhere, with lying headers, in pieces, as fragments. Each
# port's client sees its own rewritten reply, the bridge's listener the one that
# was sent, and a reply that ends the connection is rewritten for one port alone.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-3 eth0 -- wlan-1-3  br0 -- uplink0 -- upstream
#                the replies:   /

make_frame_bench 1-1 1-3

# What redirects, and so records, the connections that the replies belong to.
requests=$CASE_DIR/requests
cat >"$requests" <<'END_OF_TABLE'
                                                       | on
tcp/203.0.113.10/80 client-port=40000,41000-41100      | redirect:10081
END_OF_TABLE

replies=$CASE_DIR/replies
cat >"$replies" <<'END_OF_TABLE'
                                                   | off  | on
reply/10081/40000 cut=0-37                         | same | same
reply/10081/40000 cut=38-40                        | same | undone
reply/10444/40000                                  | same | undone
reply/10081/40000 data=1000                        | same | undone
# No connection of this client port, of this row, or no redirect port.
reply/10081/39999                                  | same | same
reply/10082/40000                                  | same | same
reply/8080/40000                                   | same | same
reply/10081/40000 ihl=0-4                          | same | same
reply/10081/40000 ihl=6-15                         | same | same
reply/10081/40000 options=1-10                     | same | undone
reply/10081/40000 options=10 cut=60-77             | same | same
reply/10081/40000 options=10 cut=78-80             | same | undone
reply/10081/40000 total=0-60,1500,65535            | same | undone
reply/10081/40000 version=0,6,15                   | same | undone
reply/10081/40000 doff=0-15                        | same | undone
reply/10081/40000 fragment-of=0-17 more=1          | same | same
reply/10081/40000 fragment-of=18-20 more=1         | same | undone
reply/10081/40000 offset=1,8191                    | same | same
reply/10081/40000 ethertype=88b6                   | same | same
reply/10081/40000 ethertype=86dd                   | same | same
reply/10081/40000 vlan=5                           | same | same
reply/10081/40000 flags=12                         | same | undone
reply/10081/40000 flags=14                         | same | undone
reply/10081/40000 flags=ee data=7                  | same | undone
END_OF_TABLE

# Each is sent once to a port of its own; the second of its kind finds no connection any more.
ends=$CASE_DIR/ends
{
	echo '| off | on'
	port=41000
	for change in 'flags=11' 'flags=19 data=1000' 'flags=ff' 'flags=11 cut=38' 'flags=11 cut=39' 'options=7'; do
		verdict=undone-once
		[[ $change != options* ]] || verdict=undone
		echo "reply/10081/$port $change | same | $verdict"
		port=$((port + 1))
	done
	# Too short to be rewritten, long enough to end the connection; or too short for that, too.
	for change in 'flags=11 cut=34-37' 'flags=11 ethertype=88b6'; do
		echo "reply/10081/$port $change | same | same"
		echo "reply/10081/$port flags=10 | same | same"
		port=$((port + 1))
	done
	for change in 'flags=11 cut=24-33' 'flags=11 offset=1' 'flags=10 ethertype=88b6'; do
		echo "reply/10081/$port $change | same | same"
		echo "reply/10081/$port flags=10 | same | undone"
		port=$((port + 1))
	done
} >"$ends"

pieces=$CASE_DIR/pieces
cat >"$pieces" <<'END_OF_TABLE'
                                    | off  | on
reply/10081/40000                   | same | undone
reply/10081/40000 data=900          | same | undone
reply/10081/40000 options=3         | same | undone
reply/10081/40000 cut=37            | same | same
reply/10081/40000 cut=38            | same | undone
reply/8080/40000 data=900           | same | same
END_OF_TABLE

from_replies() { from_access_point --place client=client-1-1/eth0 --place other=client-1-3/eth0; }
step "without the module"
from_client 1-1
record_frames "$requests"
from_replies
record_frames "$replies"
record_frames "$ends"
record_frames "$pieces" --forms linear+ring:0-60

load_module
check_frames "$replies" off
cpctl interface set wlan-1-1 mode on
from_client 1-1
check_frames "$requests" on
from_replies
cpctl debug 3
check_frames "$replies" on
expect_log "[nf_cp_change] in_name=(null) out_name=wlan-1-1 saddr=$AP_ADDRESS daddr=192.168.100.61 pass"
cpctl debug 1
check_frames "$ends" on
check_frames "$pieces" on --forms linear+ring:0-60
