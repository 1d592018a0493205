# IPv6 of a client that is not logged in: what comes to it comes, router
# advertisements too, and nothing of what it sends gets anywhere, in no mode and
# from no address; once it is logged in everything passes, a router
# advertisement of its own as well, which firewall/before-login.nft stops. With
# firewall/no-ipv6.nft there is no IPv6 at all.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /     (portal off on wlan-1-2)

make_topology 1-1 1-2
load_module
declare -A places=([fd06:db8:1::1]="access_point" [fd06:db8:1::2]="in_client 1-2" [fd06:db8:1::fe]="in_upstream")
targets=(fd06:db8:1::1 fd06:db8:1::2 fd06:db8:1::fe)

# with_ipv6 PLACE DEVICE [ADDRESS...]
with_ipv6() {
	local place=$1 device=$2 address
	shift 2
	$place sysctl -q -w "net.ipv6.conf.$device.accept_dad=0" net.ipv6.conf.all.disable_ipv6=0 \
		"net.ipv6.conf.$device.disable_ipv6=0"
	for address; do $place ip -6 address add "$address/64" dev "$device" nodad; done
}
with_ipv6 access_point br0 fd06:db8:1::1
with_ipv6 in_upstream eth0 fd06:db8:1::fe
with_ipv6 "in_client 1-2" eth0 fd06:db8:1::2
with_ipv6 "in_client 1-1" eth0

cat >"$CASE_DIR/echo.py" <<'PROGRAM'
import selectors, socket, sys
known = selectors.DefaultSelector()
for kind in socket.SOCK_STREAM, socket.SOCK_DGRAM:
    one = socket.socket(socket.AF_INET6, kind)
    one.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    one.bind((sys.argv[1], 7000))
    if kind == socket.SOCK_STREAM:
        one.listen(50)
    known.register(one, selectors.EVENT_READ)
print("listening", flush=True)
while True:
    for key, _ in known.select():
        if key.fileobj.type == socket.SOCK_STREAM:
            key.fileobj.accept()[0].close()
        else:
            key.fileobj.sendto(*key.fileobj.recvfrom(100))
PROGRAM
cat >"$CASE_DIR/reach.py" <<'PROGRAM'
"""reach.py SOURCE TARGET...  prints which of the targets answer over TCP and UDP; who says nothing is waited for."""
import selectors, socket, sys, time
source, *targets = sys.argv[1:]
known, reached = selectors.DefaultSelector(), []
for target in targets:
    for kind, name in (socket.SOCK_STREAM, "tcp"), (socket.SOCK_DGRAM, "udp"):
        one = socket.socket(socket.AF_INET6, kind)
        one.setblocking(False)
        one.bind((source, 0))
        one.connect_ex((target, 7000))
        if name == "udp":
            one.send(b"hello")
        known.register(one, selectors.EVENT_WRITE if name == "tcp" else selectors.EVENT_READ, f"{name}/{target}")
deadline = time.monotonic() + 1.5
while known.get_map() and time.monotonic() < deadline:
    for key, _ in known.select(deadline - time.monotonic()):
        if not key.fileobj.getsockopt(socket.SOL_SOCKET, socket.SO_ERROR):
            reached.append(key.data)
        known.unregister(key.fileobj)
print(*sorted(reached))
PROGRAM
cat >"$CASE_DIR/advertise.py" <<'PROGRAM'
"""advertise.py PREFIX  says as a router to everybody that PREFIX/64 is here."""
import socket, struct, sys
wire = socket.socket(socket.AF_INET6, socket.SOCK_RAW, socket.IPPROTO_ICMPV6)
wire.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 255)
prefix = struct.pack("!BBBBIII", 3, 4, 64, 0xC0, 3600, 3600, 0) + socket.inet_pton(socket.AF_INET6, sys.argv[1])
wire.sendto(struct.pack("!BBHBBHII", 134, 0, 0, 64, 0, 1800, 0, 0) + prefix,
            ("ff02::1", 0, 0, socket.if_nametoindex("eth0")))
PROGRAM
for target in "${targets[@]}"; do
	${places[$target]} python3 "$CASE_DIR/echo.py" "$target" >"$CASE_DIR/echo-${target##*:}.log" &
	wait_until 60 "the echo at $target listens" grep -q listening "$CASE_DIR/echo-${target##*:}.log"
done

everything="tcp/fd06:db8:1::1 tcp/fd06:db8:1::2 tcp/fd06:db8:1::fe udp/fd06:db8:1::1 udp/fd06:db8:1::2 udp/fd06:db8:1::fe"
# expect_reached WHAT SOURCE WANTED
expect_reached() { expect_equal "$1" "$3" "$(in_client 1-1 python3 "$CASE_DIR/reach.py" "$2" "${targets[@]}")"; }
advertise() { $1 python3 "$CASE_DIR/advertise.py" "$2"; }
# Again and again: a client whose interface has just got IPv6 does not listen at once.
believes() { advertise "$1" "$3:" && sleep 0.1 && has_address "$2" "$3"; }
has_address() { ip -n "client-$1" -6 -o address show dev eth0 | grep -F " $2" >/dev/null; }
own_address() { ip -n client-1-1 -6 -o address show dev eth0 scope global | sed -n 's/.* inet6 \([^/]*\).*/\1/p'; }

step "a router's advertisement reaches a client that is not logged in"
cpctl interface set wlan-1-1 mode on
wait_until 20 "client 1-1 has an address of the router's network" believes in_upstream 1-1 fd06:db8:1:
source=$(own_address)
# Nobody has to be asked where the others are: what is dropped is more than the question.
for client in access_point:$AP_MAC:fd06:db8:1::1 client:$(mac_of 1-2):fd06:db8:1::2 upstream:$GATEWAY_MAC:fd06:db8:1::fe; do
	mac=${client#*:}
	in_client 1-1 ip -6 neigh replace "${mac:18}" lladdr "${mac:0:17}" dev eth0 nud permanent
done

start_capture uplink upstream eth0
step "nothing that it sends gets anywhere"
for mode in on internet-passes; do
	cpctl interface set wlan-1-1 mode "$mode"
	expect_reached "what client 1-1 reaches in mode $mode" "$source" ""
done
cpctl interface set wlan-1-1 mode on
expect_no_ping 1-1 fd06:db8:1::fe
advertise "in_client 1-1" fd06:db8:2::

step "not even from an address, and with a flow label, that read as TCP to the DNS filter, port 80"
cpctl dns-filter on
in_client 1-1 ip -6 address add fd06:db8:1:0:404:404:0:1/64 dev eth0 nodad
in_client 1-1 nft 'table ip6 craft { chain output { type filter hook output priority 0; ip6 flowlabel set 80; }; }'
expect_reached "what client 1-1 reaches by crafted bytes" fd06:db8:1:0:404:404:0:1 ""
cpctl dns-filter off
step "or as DHCP, where nothing but DHCP passes"
cpctl interface set wlan-1-1 mode off disconnection pass-dhcp disconnected
in_client 1-1 ip -6 address add fd11:db8:1::1/64 dev eth0 nodad
in_client 1-1 nft 'table ip6 craft { chain output { ip6 flowlabel set 68; }; }'
expect_reached "what client 1-1 reaches by bytes of DHCP" fd11:db8:1::1 ""
in_client 1-1 nft delete table ip6 craft
cpctl interface set wlan-1-1 mode on disconnection pass-dhcp connected
stop_capture uplink
expect_not_captured uplink "ether src $(mac_of 1-1) and ip6"
expect_failure has_address 1-2 fd06:db8:2:

step "a client that is logged in is a router if it likes"
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_reached "what client 1-1 reaches" "$source" "$everything"
wait_until 20 "client 1-2 believes client 1-1" believes "in_client 1-1" 1-2 fd06:db8:2:
step "and not with the rules"
nft -f /payload/firewall/before-login.nft
advertise "in_client 1-1" fd06:db8:3::
wait_until 20 "client 1-2 believes the router" believes in_upstream 1-2 fd06:db8:4:
expect_failure has_address 1-2 fd06:db8:3:
expect_reached "what client 1-1 reaches with the rules" "$source" "$everything"

step "no IPv6 for wireless clients"
nft -f /payload/firewall/no-ipv6.nft
expect_reached "what client 1-1 reaches without IPv6" "$source" ""
advertise in_upstream fd06:db8:5::
expect_failure has_address 1-1 fd06:db8:5:
nft delete table bridge captive_portal_no_ipv6
wait_until 20 "client 1-1 has an address again" believes in_upstream 1-1 fd06:db8:6:
expect_failure has_address 1-1 fd06:db8:5:
