# VLAN tags, IPv6 with extension headers, 802.3 and everything else that is no
# plain IPv4: one tag is not seen, a second one is another protocol, IPv6 is
# dropped before login, the rest is not the portal's business.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

make_frame_bench 1-1 1-2

table=$CASE_DIR/frames
cat >"$table" <<'END_OF_TABLE'
                                             | off         | on             | dhcp-only
tcp/203.0.113.10/80 vlan=0                   | same        | redirect:10081 | drop
tcp/203.0.113.10/80 vlan=5                   | same        | redirect:10081 | drop
tcp/203.0.113.10/80 vlan=4095                | same        | redirect:10081 | drop
tcp/203.0.113.10/80 vlan=5 ethertype=88a8    | same        | redirect:10081 | drop
tcp/203.0.113.10/80 cut=2-37 vlan=5          | same        | drop           | drop
tcp/203.0.113.10/80 cut=38-40 vlan=5         | same        | redirect:10081 | drop
tcp/2.2.2.2/443 vlan=7                       | redirect:84 | redirect:84    | drop
icmp/203.0.113.10 vlan=5                     | same        | drop           | drop
dns/203.0.113.53 vlan=5                      | same        | same           | drop
dhcp vlan=5                                  | same        | same           | same
ipv6 vlan=5                                  | same        | drop           | drop
arp vlan=5                                   | same        | same           | same
# Two tags and more: the inner one is the EtherType.
tcp/203.0.113.10/80 vlan=5/6                 | same        | same           | same
tcp/203.0.113.10/80 vlan=5/6 ethertype=88a8  | same        | same           | same
tcp/203.0.113.10/80 vlan=0/0                 | same        | same           | same
tcp/203.0.113.10/80 vlan=1/2/3               | same        | same           | same
tcp/203.0.113.10/80 cut=0-40 vlan=5/6        | same        | same           | same
ipv6 vlan=5/6                                | same        | same           | same
# IPv6, whatever its headers say, and cut anywhere.
ipv6/59                                      | same        | drop           | drop
ipv6/58                                      | same        | drop           | drop
ipv6/0/6                                     | same        | drop           | drop
ipv6/43/6                                    | same        | drop           | drop
ipv6/44/6                                    | same        | drop           | drop
ipv6/60/6                                    | same        | drop           | drop
ipv6/51/6                                    | same        | drop           | drop
ipv6/50                                      | same        | drop           | drop
ipv6/0/60/43/44/51/60/0/0/0/0/6              | same        | drop           | drop
ipv6/0/60/43/44/6 cut=0-100                  | same        | drop           | drop
ipv6/0/6 version=4                           | same        | drop           | drop
# What reads as DHCP at an IPv4 header's places passes "DHCP only" in an IPv6 frame as well.
ipv6-like-udp/68/10.1.2.3                    | same        | drop           | same
ipv6-like-udp/53/10.1.2.3                    | same        | drop           | drop
# 802.3 with its length where the EtherType would be, and other protocols.
llc                                          | same        | same           | same
snap/0800                                    | same        | same           | same
snap/0806 cut=0-48                           | same        | same           | same
type/05ff                                    | same        | same           | same
type/0600                                    | same        | same           | same
type/8864                                    | same        | same           | same
type/8847                                    | same        | same           | same
type/86dc                                    | same        | same           | same
type/888e                                    | same        | same           | same
arp cut=0-28                                 | same        | same           | same
type/886b                                    | same        | same           | same
type/886c/203.0.113.10/80                    | same        | same           | same
END_OF_TABLE

step "without the module"
from_client 1-1
places+=(--place other=client-1-2/eth0)
record_frames "$table"
load_module
check_frames "$table" off
cpctl interface set wlan-1-1 mode on
check_frames "$table" on
cpctl interface set wlan-1-1 mode off disconnection pass-dhcp disconnected
check_frames "$table" dhcp-only
