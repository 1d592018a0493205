# Frames that end too early: every length from the bare Ethernet header on. A
# frame meets the verdict that docs/incomplete-packets.md gives it, and what
# passes, passes as it came.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2  br0 -- uplink0 -- upstream
#   client-lan0 eth0 ---- lan0  /

make_frame_bench 1-1 1-2 lan0

unknown=$CASE_DIR/unknown-client
cat >"$unknown" <<'END_OF_TABLE'
                                   | off         | on             | internet    | drop-tcp    | dhcp-only
tcp/203.0.113.10/80   cut=0-19     | same        | drop           | drop        | drop        | drop
tcp/203.0.113.10/80   cut=20-37    | same        | drop           | same        | drop        | drop
tcp/203.0.113.10/80   cut=38-40    | same        | redirect:10081 | same        | drop        | drop
tcp/10.1.2.3/443      cut=0-37     | same        | drop           | drop        | drop        | drop
tcp/10.1.2.3/443      cut=38-40    | same        | redirect:10444 | redirect:91 | drop        | drop
tcp/203.0.113.10/8080 cut=0-19     | same        | drop           | drop        | drop        | drop
tcp/203.0.113.10/8080 cut=20-40    | same        | drop           | same        | drop        | drop
# The access point's own web ports, and ports that are closed to an interface without a portal or to another.
tcp/192.168.100.1/80    cut=0-23   | same        | drop           | drop        | drop        | drop
tcp/192.168.100.1/80    cut=24-40  | same        | same           | same        | drop        | drop
tcp/192.168.100.1/82    cut=0-23   | same        | drop           | drop        | drop        | drop
tcp/192.168.100.1/82    cut=24-40  | drop        | drop           | drop        | drop        | drop
tcp/192.168.100.1/10082 cut=0-23   | same        | drop           | drop        | drop        | drop
tcp/192.168.100.1/10082 cut=24-40  | drop        | drop           | drop        | drop        | drop
# Social login.
tcp/2.2.2.2/80        cut=0-19     | same        | drop           | drop        | drop        | drop
tcp/2.2.2.2/80        cut=20-37    | same        | drop           | same        | drop        | drop
tcp/2.2.2.2/80        cut=38-40    | redirect:83 | redirect:83    | same        | drop        | drop
tcp/2.2.2.2/22        cut=0-19     | same        | drop           | drop        | drop        | drop
tcp/2.2.2.2/22        cut=20-33    | same        | drop           | same        | drop        | drop
tcp/2.2.2.2/22        cut=34-40    | drop        | drop           | same        | drop        | drop
# The DNS filter's address, which is marked before anything of the portal counts.
tcp/4.4.4.4/80        cut=0-19     | same        | drop           | drop        | drop        | drop
tcp/4.4.4.4/80        cut=20-37    | same        | same           | same        | same        | same
tcp/4.4.4.4/80        cut=38-40    | redirect:88 | redirect:88    | redirect:88 | redirect:88 | redirect:88
tcp/4.4.4.4/22        cut=0-19     | same        | drop           | drop        | drop        | drop
tcp/4.4.4.4/22        cut=20-33    | same        | same           | same        | same        | same
tcp/4.4.4.4/22        cut=34-40    | drop        | drop           | drop        | drop        | drop
# UDP needs both ports; DHCP-only looks at each by itself.
dns/203.0.113.53      cut=0-19     | same        | drop           | drop        | drop        | drop
dns/203.0.113.53      cut=20-23    | same        | drop           | same        | drop        | drop
dns/203.0.113.53      cut=24-61    | same        | same           | same        | same        | drop
dns/10.1.2.3          cut=0-23     | same        | drop           | drop        | drop        | drop
dns/10.1.2.3          cut=24-61    | same        | same           | same        | same        | drop
dhcp                  cut=0-19     | same        | drop           | drop        | drop        | drop
dhcp                  cut=20-21    | same        | drop           | same        | drop        | drop
dhcp                  cut=22-23    | same        | drop           | same        | drop        | same
dhcp                  cut=24-60,272 | same       | same           | same        | same        | same
udp/203.0.113.10/123  cut=0-19     | same        | drop           | drop        | drop        | drop
udp/203.0.113.10/123  cut=20-36    | same        | drop           | same        | drop        | drop
icmp/203.0.113.10     cut=0-19     | same        | drop           | drop        | drop        | drop
icmp/203.0.113.10     cut=20-36    | same        | drop           | same        | drop        | drop
icmp/192.168.100.1    cut=0-19     | same        | drop           | drop        | drop        | drop
icmp/192.168.100.1    cut=20-36    | same        | drop           | same        | drop        | drop
icmp/10.1.2.3         cut=0-36     | same        | drop           | drop        | drop        | drop
ip/47/203.0.113.10    cut=0-9      | same        | drop           | drop        | drop        | drop
ip/47/203.0.113.10    cut=10-19    | same        | same           | drop        | same        | drop
ip/47/203.0.113.10    cut=20-44    | same        | same           | same        | same        | drop
# IPv6 is dropped whole, unless its bytes read as TCP to the DNS filter: then it has that mark, and is never rewritten.
ipv6                  cut=0-60     | same        | drop           | drop        | drop        | drop
ipv6-like-tcp/4.4.4.4/80 cut=0-19  | same        | drop           | drop        | drop        | drop
ipv6-like-tcp/4.4.4.4/80 cut=20-60 | same        | same           | same        | same        | same
ipv6-like-tcp/4.4.4.4/22 cut=0-19  | same        | drop           | drop        | drop        | drop
ipv6-like-tcp/4.4.4.4/22 cut=20-60 | drop        | drop           | drop        | drop        | drop
# Everything else passes the portal; the social-login step looks at no EtherType, but rewrites IPv4 alone.
arp                   cut=0-28     | same        | same           | same        | same        | same
type/888e             cut=0-40     | same        | same           | same        | same        | same
type/886b             cut=0,20,40  | same        | same           | same        | same        | same
type/88b6/2.2.2.2/80  cut=0-40     | same        | same           | same        | same        | same
type/88b6/2.2.2.2/22  cut=0-33     | same        | same           | same        | same        | same
type/88b6/2.2.2.2/22  cut=34-40    | drop        | drop           | drop        | drop        | drop
type/886c/2.2.2.2/22  cut=34-40    | drop        | drop           | drop        | drop        | drop
END_OF_TABLE

member=$CASE_DIR/logged-in-client
cat >"$member" <<'END_OF_TABLE'
                                   | login
tcp/203.0.113.10/80   cut=0-40     | same
tcp/192.0.2.1/22      cut=0-37     | same
tcp/192.0.2.1/22      cut=38-40    | redirect:82
tcp/192.0.2.1/80      cut=0-37     | same
tcp/192.0.2.1/80      cut=38-40    | redirect:82
udp/192.0.2.1/80      cut=0-36     | same
tcp/4.4.4.4/443       cut=0-37     | same
tcp/4.4.4.4/443       cut=38-40    | redirect:89
tcp/2.2.2.2/443       cut=0-37     | same
tcp/2.2.2.2/443       cut=38-40    | redirect:84
tcp/2.2.2.2/22        cut=0-33     | same
tcp/2.2.2.2/22        cut=34-40    | drop
icmp/203.0.113.10     cut=0-36     | same
ipv6                  cut=0-60     | same
END_OF_TABLE

wired=$CASE_DIR/wired-client
cat >"$wired" <<'END_OF_TABLE'
                                   | wired
tcp/203.0.113.10/80     cut=0-40   | same
tcp/192.168.100.1/80    cut=0-40   | same
tcp/192.168.100.1/88    cut=0-40   | same
tcp/192.168.100.1/82    cut=0-23   | same
tcp/192.168.100.1/82    cut=24-40  | drop
tcp/192.168.100.1/10081 cut=0-23   | same
tcp/192.168.100.1/10081 cut=24-40  | drop
tcp/192.168.100.1/30451 cut=24-40  | drop
udp/192.168.100.1/82    cut=0-36   | same
tcp/2.2.2.2/80          cut=0-37   | same
tcp/2.2.2.2/80          cut=38-40  | redirect:83
tcp/2.2.2.2/22          cut=0-33   | same
tcp/2.2.2.2/22          cut=34-40  | drop
tcp/4.4.4.4/80          cut=0-40   | same
ipv6                    cut=0-60   | same
END_OF_TABLE

step "without the module"
listen() { from_client "$1" && places+=(--place other=client-1-2/eth0); }
listen 1-1
record_frames "$unknown"
record_frames "$member" --source "$(mac_of 1-1)"
listen lan0
record_frames "$wired"

load_module
cpctl dns-filter on
listen 1-1
for mode in off on internet-passes drop-tcp; do
	cpctl interface set wlan-1-1 mode $mode
	check_frames "$unknown" "${mode%-passes}"
done
cpctl interface set wlan-1-1 mode off disconnection pass-dhcp disconnected
check_frames "$unknown" dhcp-only
cpctl interface set wlan-1-1 mode on disconnection drop-all connected logout 192.0.2.1
cpctl client add login "$(mac_of 1-1)" wlan-1-1
check_frames "$member" login --source "$(mac_of 1-1)"
listen lan0
check_frames "$wired" wired
