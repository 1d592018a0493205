# The same frame with its bytes in one piece, all in page fragments, and cut at
# each offset: the verdict and every byte that comes out are the same.
#
#   client-1-1 eth0 -- wlan-1-1 \       transmit rings of packet sockets
#         tap device   wlan-1-2 -  br0 -- uplink0 -- upstream     fragments
#   client-1-3 eth0 -- wlan-1-3 /

make_frame_bench 1-1 1-3
add_tap_port wlan-1-2

# PORT stands for the interface's own redirect port.
frames='
                                        | off         | on
tcp/203.0.113.10/80                     | same        | redirect:PORT
tcp/203.0.113.10/80 options=10 data=40  | same        | redirect:PORT
tcp/203.0.113.10/80 data=1000           | same        | redirect:PORT
tcp/203.0.113.10/80 cut=37              | same        | drop
tcp/203.0.113.10/80 cut=38              | same        | redirect:PORT
tcp/203.0.113.10/80 ihl=4               | same        | drop
tcp/203.0.113.10/80 total=65535         | same        | redirect:PORT
tcp/203.0.113.10/80 vlan=5              | same        | redirect:PORT
tcp/203.0.113.10/80 vlan=5/6            | same        | same
tcp/203.0.113.10/80 offset=1            | same        | drop
tcp/203.0.113.10/8080                   | same        | drop
tcp/192.168.100.1/82                    | drop        | drop
tcp/2.2.2.2/443                         | redirect:84 | redirect:84
tcp/2.2.2.2/22 data=100                 | drop        | drop
tcp/4.4.4.4/80 data=100                 | redirect:88 | redirect:88
dns/203.0.113.53                        | same        | same
dhcp                                    | same        | same
udp/203.0.113.10/123                    | same        | drop
icmp/203.0.113.10                       | same        | drop
ip/47/203.0.113.10                      | same        | same
ipv6/0/60/6                             | same        | drop
ipv6-like-tcp/4.4.4.4/22                | drop        | drop
arp                                     | same        | same
snap/0800                               | same        | same
'
ring=$CASE_DIR/ring tap=$CASE_DIR/tap
echo "${frames//PORT/10081}" >"$ring"
echo "${frames//PORT/10082}" >"$tap"

both_ports() {
	local do=$1 column=${2-}
	from_client 1-1
	"${do}_frames" "$ring" $column --forms linear+ring:0-60
	from_tap wlan-1-2
	"${do}_frames" "$tap" $column --forms linear+frags:0-60+crumbs:0-60
}

step "without the module"
both_ports record
load_module
cpctl dns-filter on
both_ports check off
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on
both_ports check on
