# What besides web requests a client that is not logged in gets out: UDP with
# port 53 or 68 at either end, every IP protocol but ICMP, TCP and UDP, every
# other EtherType; and that firewall/before-login.nft leaves it DHCP and DNS at
# the access point, and TCP to be redirected.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

make_frame_bench 1-1 1-2

table=$CASE_DIR/frames
cat >"$table" <<'END_OF_TABLE'
                                              | on             | mode-8 | guarded        | guarded-off
tcp/203.0.113.10/80                           | redirect:10081 | drop   | redirect:10081 | same
tcp/203.0.113.10/22                           | drop           | drop   | drop           | same
tcp/192.168.100.1/80                          | same           | drop   | same           | same
tcp/192.168.100.1/22                          | drop           | drop   | drop           | same
icmp/203.0.113.10                             | drop           | drop   | drop           | same
udp/203.0.113.10/5000                         | drop           | drop   | drop           | same
# UDP by its ports: the access point's own servers, and everybody else.
dhcp                                          | same           | same   | same           | same
udp/192.168.100.1/67 client-port=68           | same           | same   | same           | same
dns/192.168.100.1                             | same           | same   | same           | same
dns/203.0.113.53                              | same           | same   | drop           | same
udp/203.0.113.10/5000 client-port=53          | same           | same   | drop           | drop
udp/203.0.113.10/5000 client-port=68          | same           | same   | drop           | same
udp/203.0.113.10/68                           | same           | same   | drop           | same
udp/203.0.113.10/67 client-port=68            | same           | same   | drop           | same
# A DHCP server, and a DNS answer, of a client's own.
udp/255.255.255.255/68 client-port=67         | same           | same   | drop           | drop
answer/www.example.net/203.0.113.66           | same           | same   | drop           | drop
# To everybody at once.
tcp/203.0.113.10/80 to=ff:ff:ff:ff:ff:ff      | redirect:10081 | drop   | redirect:10081 | same
udp/224.0.0.251/5353 to=01:00:5e:00:00:fb     | drop           | drop   | drop           | same
dhcp to=ff:ff:ff:ff:ff:ff                     | same           | same   | same           | same
# Fragments: the first has ports.
udp/203.0.113.10/53 more                      | same           | same   | drop           | same
udp/203.0.113.10/53 offset=1                  | drop           | drop   | drop           | same
tcp/203.0.113.10/80 offset=1                  | drop           | drop   | drop           | same
# IGMP, tunnels, IPsec, SCTP, and a number that is nobody's.
ip/2/224.0.0.22                               | same           | same   | drop           | same
ip/4/203.0.113.10                             | same           | same   | drop           | same
ip/41/203.0.113.10                            | same           | same   | drop           | same
ip/47/203.0.113.10                            | same           | same   | drop           | same
ip/50/203.0.113.10                            | same           | same   | drop           | same
ip/132/203.0.113.10                           | same           | same   | drop           | same
ip/253/203.0.113.10 offset=1                  | same           | same   | drop           | same
# IPv6; the bytes that read as the DNS filter's address and a web port get through to the next machine.
ipv6                                          | drop           | drop   | drop           | same
ipv6/58                                       | drop           | drop   | drop           | same
ipv6-like-tcp/4.4.4.4/80                      | same           | same   | drop           | drop
ipv6-like-tcp/4.4.4.4/22                      | drop           | drop   | drop           | drop
# ARP, EAPOL, EAPOL that reads as IPv4, and ARP in the gateway's name.
arp                                           | same           | same   | same           | same
type/888e version=0                           | same           | same   | same           | same
type/888e                                     | same           | same   | drop           | drop
arp/192.168.100.254                           | same           | same   | drop           | drop
# Tags, PPPoE, MPLS, a bridge's hello, IP in a way that is none, and a type that nobody gave away.
dns/192.168.100.1 vlan=5                      | same           | same   | drop           | drop
tcp/203.0.113.10/80 vlan=5                    | redirect:10081 | drop   | drop           | drop
tcp/203.0.113.10/80 vlan=5/6                  | same           | same   | drop           | drop
type/8863                                     | same           | same   | drop           | drop
type/8864                                     | same           | same   | drop           | drop
type/8847                                     | same           | same   | drop           | drop
type/88b5                                     | same           | same   | drop           | drop
llc to=01:80:c2:00:00:00                      | same           | same   | drop           | drop
snap/0800                                     | same           | same   | drop           | drop
END_OF_TABLE

step "without the module"
from_client 1-1
places+=(--place other=client-1-2/eth0)
record_frames "$table"
load_module
cpctl dns-filter on
step "portal on"
cpctl interface set wlan-1-1 mode on
check_frames "$table" on
step "mode 8"
cpctl interface set wlan-1-1 mode drop-tcp
check_frames "$table" mode-8
step "with the rules, while the portal is on, and while frames have no mark, as those of clients that are logged in have none"
nft -f /payload/firewall/before-login.nft
cpctl interface set wlan-1-1 mode on
check_frames "$table" guarded
cpctl interface set wlan-1-1 mode off
check_frames "$table" guarded-off
