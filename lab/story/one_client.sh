# One client's way through the portal, from the moment it joins the network to
# the moment it has logged out, told step by step in $CASE_DIR/transcript.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# Captures run from the first step to the last: client.pcap on the client's
# cable, uplink.pcap on the gateway's, access-point.pcap on br0, which sees
# what the access point itself gets and sends.

. "$LAB/lib/story.sh"

SITE=203.0.113.10   # www.example.net
GARDEN=203.0.113.30 # garden.example.org
LOGOUT=203.0.113.40 # a page to log out by; any address will do
READABLE='tcp[tcpflags] & (tcp-syn|tcp-fin|tcp-rst|tcp-push) != 0'

# Without offloads a capture shows frames as they are on a cable: cut to their
# size, with finished checksums.
plain_cables() {
	local device
	for device in wlan-1-1 uplink0 br0; do ethtool -K "$device" tx off tso off gso off gro off >/dev/null; done
	in_client 1-1 ethtool -K eth0 tx off tso off gso off gro off >/dev/null
	in_upstream ethtool -K eth0 tx off tso off gso off gro off >/dev/null
}

portal_page() { echo "portal page on port $1 for $client_address asked for $2"; }
real_page() { echo "real server $1 port $2 asked for $3"; }

# finished CAPTURE PORT  the connection's last words are in the capture.
finished() {
	right_frame "the connection came to its end" "$1" \
		"src port $2 and tcp[tcpflags] & (tcp-fin|tcp-ack) == (tcp-fin|tcp-ack)"
}

# segments_as_they_were before|after  the portal's segments that reached the
# client without a rewrite, before or after the FIN+ACK of their connection.
segments_as_they_were() {
	captured client "ether dst $mac and tcp" | awk -v which="$1" -v portal="$AP_ADDRESS" '
		{ sub(/^.*, ethertype [^,]*, length [0-9]+: /, ""); split($0, word, " "); to = word[3] }
		index(word[1], portal ".") == 1 { if ((to in ended) == (which == "after")) print; next }
		/Flags \[[A-Z]*F[A-Z]*\.\]/ { ended[to] = 1 }'
}

expect_shut() {
	as_client curl -sS -m 30 http://www.example.net/again
	right "the page is the portal's" "$(portal_page 10081 www.example.net/again)" "$output"
	as_client curl -sSk -m 30 https://www.example.com/again
	right "so is the page over HTTPS" "$(portal_page 10444 www.example.com/again)" "$output"
}

expect_unheard_ping() {
	as_client ping -n -c 2 -i 0.2 -W 2 "$SITE"
	right "ping gives up" 1 "$status"
	right_text "no answer came" "2 packets transmitted, 0 received" "$output"
	tell '' '  At the client:'
	frames client icmp
	tell '' '  At the uplink:'
	frames uplink icmp
	right "the uplink saw nothing of it" "" "$(chapter_frames uplink icmp)"
}

cd /payload
BIG_BYTES=$((2 * 1024 * 1024))
make_topology 1-1
plain_cables
mac=$(mac_of 1-1)
tell "One client's way through the portal" \
	"===================================" '' \
	"On Linux $(uname -r), in a machine that is thrown away afterwards." '' \
	'       client                 access point                gateway        web servers' \
	'    +----------+     +------------------------------+     +------+' \
	'    |   eth0   |-----| wlan-1-1 --- br0 --- uplink0 |-----| eth0 |-- www.example.net 203.0.113.10' \
	'    +----------+     +------------------------------+     +------+   www.example.com 203.0.113.20' \
	"                              $AP_ADDRESS            $GATEWAY_ADDRESS" \
	" $mac          $AP_MAC         $GATEWAY_MAC" '' \
	'On the access point run dnsmasq for DHCP and DNS, and nginx with a page on every portal port;' \
	'another nginx is the web servers. Each page says who made it, and for whom.'
start_services
start_capture client 1-1 eth0
start_capture uplink upstream eth0
# The capture makes br0 promiscuous: without the filter it would have what is only passed on.
start_capture access-point access-point br0 "ether host $AP_MAC"

chapter "The access point switches the portal on for wlan-1-1"
as_access_point insmod captive_portal.ko
right "the module is loaded" 0 "$status"
wait_until 10 "the control device is there" test -c /dev/CP_dev
as_access_point cpctl interface set wlan-1-1 mode on block-https redirect logout "$LOGOUT"
right "cpctl has set it" 0 "$status"
as_access_point cpctl client show login wlan-1-1
right "nobody is logged in" "" "$output"

chapter "A client joins: it has no address yet"
as_client ip -4 -brief address show dev eth0
right "no address" "" "$output"
as_client curl -sS -m 5 "http://$SITE/"
right "the client can reach nothing" 7 "$status"

chapter "DHCP passes"
as_client udhcpc -i eth0 -n -q -f -s "$LAB/lib/udhcpc-script"
right "a lease came" 0 "$status"
client_address=$(address_of 1-1)
right_text "it is the one that the client took" "lease of ${client_address:-no address} obtained" "$output"
right_frame "the access point has acknowledged it" client \
	"ether src $AP_MAC and ether dst $mac and src $AP_ADDRESS and dst $client_address and udp src port 67"
tell '' '  At the client:'
dhcp_frames client
tell ''
as_client cat /etc/resolv.conf
right "names are asked of the access point" "nameserver $AP_ADDRESS" "$output"

chapter "DNS passes"
as_client dig +short www.example.net
right "the name has its address" "$SITE" "$output"
right_frame "the access point has answered" client "src $AP_ADDRESS and dst $client_address and udp src port 53"
tell '' '  At the client:'
frames client "udp port 53"

chapter "The first web request meets the portal's page"
as_client curl -sSi -m 30 http://www.example.net/hello
right_text "a web page came" "HTTP/1.1 200 OK" "$output"
right_text "it is the portal's, from the port of wlan-1-1" "$(portal_page 10081 www.example.net/hello)" "$output"
finished client 80
tell '' "  At the client, whom the page reaches from the server that it asked, by address, port and MAC:"
frames client "tcp and ($READABLE)"
right_frame "the request went to the server, by way of the gateway" client \
	"ether src $mac and ether dst $GATEWAY_MAC and dst $SITE and tcp dst port 80"
right_frame "the answer came from there" client \
	"ether src $GATEWAY_MAC and ether dst $mac and src $SITE and tcp src port 80"
tell '' '  At br0, where the access point itself takes the same connection:'
frames access-point "tcp and ($READABLE)"
right_frame "the request came to the portal port" access-point \
	"ether src $mac and ether dst $AP_MAC and dst $AP_ADDRESS and tcp dst port 10081"
tell '' '  In the log of its web service:'
tell_indented "$(grep -F '/hello' "$CASE_DIR/portal-web-access.log")"
tell '' '  At the uplink:'
frames uplink tcp
right "the uplink saw nothing of it" "" "$(chapter_frames uplink tcp)"

chapter "HTTPS meets it, too"
tell "  (-k: the lab's certificates are self-signed, and no portal has that of the server asked for.)" ''
as_client curl -sSk -m 30 https://www.example.com/account
right "the page is the portal's, from the TLS port of wlan-1-1" \
	"$(portal_page 10444 www.example.com/account)" "$output"
right_frame "it came as if from www.example.com" client \
	"ether src $GATEWAY_MAC and ether dst $mac and src 203.0.113.20 and tcp src port 443"

chapter "Ping is dropped"
expect_unheard_ping

chapter "A name that the walled garden permits is open before login"
as_access_point cpctl garden replace wlan-1-1 on '*.example.org'
right "cpctl has set it" 0 "$status"
as_client curl -sS -m 30 "http://$GARDEN/timetable"
right "the module does not know yet whose address that is" "$(portal_page 10081 "$GARDEN/timetable")" "$output"
as_client dig +noall +answer garden.example.org
right_text "the answer has the address, and 60 seconds to live" "60	IN	A	$GARDEN" "$output"
as_client curl -sS -m 30 http://garden.example.org/timetable
right "the server itself has answered" "$(real_page "$GARDEN" 80 garden.example.org/timetable)" "$output"
finished uplink 80
tell '' '  At the uplink:'
frames uplink "tcp port 80 and ($READABLE)"
tell ''
as_access_point cat "$SUMMARY"
right_text "the module's list has the address" "]IP=$GARDEN, timeout=" "$output"
right_text "for this interface" "  match walled garden: 1-1" "$output"
right_text "with the name" "  fqdn = garden.example.org" "$output"
tell_indented "(It shuts with the first pass of the module's expiry thread after the 60 seconds.)"
as_client curl -sS -m 30 http://www.example.net/hello
right "every other name still shows the portal's page" "$(portal_page 10081 www.example.net/hello)" "$output"

chapter "Login"
as_access_point cpctl client add login "$mac" wlan-1-1
right "cpctl has added the client" 0 "$status"
as_access_point cpctl client show login
right_text "it is in the table" "$mac dev wlan-1-1 table login" "$output"
logged_in=$EPOCHREALTIME

chapter "Now the real page comes"
as_client curl -sSi -m 30 http://www.example.net/hello
right_text "the server itself has answered" "$(real_page "$SITE" 80 www.example.net/hello)" "$output"
finished uplink 80
tell '' '  At the uplink:'
frames uplink "tcp port 80 and ($READABLE)"
tell '' '  At br0:'
# The TLS connection of before may still be dying.
frames access-point "tcp and not port 10444"
right "the access point's web service had no part in it" "" \
	"$(chapter_frames access-point "tcp and not port 10444")"
tell ''
as_client curl -sSk -m 30 https://www.example.com/account
right "HTTPS reaches its server" "$(real_page 203.0.113.20 443 www.example.com/account)" "$output"
as_client ping -n -c 2 -i 0.2 -W 5 "$SITE"
right "ping is answered" 0 "$status"

chapter "A large page comes whole"
as_client curl -sSO -m 100 -w '%{http_code}, %{size_download} bytes' http://www.example.net/big
right "all of it came" "200, $BIG_BYTES bytes" "$output"
as_client sha256sum big
right "byte for byte as it left" "$(sha256sum </run/lab-files/upstream/big | cut -d' ' -f1)  big" "$output"

chapter "The logout address shows the logout page"
as_client curl -sS -m 30 "http://$LOGOUT/"
right "the page is the portal's logout page, of port 82" "$(portal_page 82 "$LOGOUT/")" "$output"
tell_indented "(That page is where a daemon would now log the client out. Here cpctl does it.)"

chapter "Logout"
logged_out=$EPOCHREALTIME
as_access_point cpctl client del login "$mac" wlan-1-1
right "cpctl has deleted the client" 0 "$status"
as_access_point cpctl client show login
right "nobody is logged in" "" "$output"

chapter "Shut out again"
expect_shut
expect_unheard_ping

chapter "What the captures say of the whole way"
stop_capture client
stop_capture uplink
stop_capture access-point
theirs="ether src $mac and (tcp or icmp)"
permitted=$(count_between uplink 0 "$logged_in" "$theirs and dst $GARDEN")
theirs+=" and not dst $GARDEN"
counts=()
for span in "0 $logged_in" "$logged_in $logged_out" "$logged_out 9999999999"; do
	read -r from to <<<"$span"
	counts+=("$(count_between uplink "$from" "$to" "$theirs")")
done
tell "  The client's TCP and ICMP frames at the uplink, but for $permitted to garden.example.org before login:" \
	"    before login ${counts[0]}, while logged in ${counts[1]}, after logout ${counts[2]}"
right "none before login" 0 "${counts[0]}"
right "but those to the permitted name" yes "$( ((permitted > 0)) && echo yes || echo "$permitted frames")"
right "some while logged in" yes "$( ((counts[1] > 0)) && echo yes || echo "${counts[1]} frames")"
right "none after logout" 0 "${counts[2]}"
early=$(segments_as_they_were before)
late=$(segments_as_they_were after)
right "until the portal's FIN+ACK no segment of it reached the client with its own address" "" "$early"
tell "      (With that the module forgets a connection, and what the web service still sends on it" \
	"      leaves as it is: $(grep -c . <<<"$late" || true) segments here, of no connection that the client knows.)"
sums=$(tcpdump -n -vv -r "$CASE_DIR/client.pcap" ip 2>/dev/null)
right_text "checksums were there to look at" "(correct)" "$sums"
right "every IP and TCP checksum that reached the client is right" "" \
	"$(grep -E 'incorrect|bad cksum' <<<"$sums" || true)"

chapter "The end"
as_access_point rmmod captive_portal
right "the module is unloaded" 0 "$status"
tell '' "The story is told: $chapter_number steps, each as it should be."
