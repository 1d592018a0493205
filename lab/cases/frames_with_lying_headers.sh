# Header lengths from 0 to 15, lengths that are not the frame's, fragments,
# impossible versions and flags: what a header claims is taken for arithmetic
# and never for a bound, and a redirect changes nothing but what it must.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

make_frame_bench 1-1 1-2

unknown=$CASE_DIR/unknown-client
cat >"$unknown" <<'END_OF_TABLE'
                                                     | off         | on             | garden
# Every word behind the addresses reads as the port, so a transport header is wherever the header length says.
tcp-everywhere/203.0.113.10/80 ihl=0-4               | same        | drop           | drop
tcp-everywhere/203.0.113.10/80 ihl=5-15              | same        | redirect:10081 | redirect:10081
tcp-everywhere/203.0.113.10/80 ihl=15 cut=24-77      | same        | drop           | drop
tcp-everywhere/203.0.113.10/80 ihl=15 cut=78-90      | same        | redirect:10081 | redirect:10081
tcp-everywhere/203.0.113.10/80 ihl=9 cut=36-53       | same        | drop           | drop
tcp-everywhere/203.0.113.10/80 ihl=9 cut=54-60       | same        | redirect:10081 | redirect:10081
tcp-everywhere/2.2.2.2/443 ihl=1-4                   | drop        | drop           | drop
tcp-everywhere/2.2.2.2/443 ihl=5-15                  | redirect:84 | redirect:84    | redirect:84
# Without a header length the total length is where a port would be; a port that is served, but no packet to rewrite.
tcp-everywhere/2.2.2.2/443 total=80,443 ihl=0        | same        | drop           | drop
tcp-everywhere/2.2.2.2/443 total=100 ihl=0           | drop        | drop           | drop
tcp/203.0.113.10/80 ihl=0-4                          | same        | drop           | drop
tcp/203.0.113.10/80 ihl=6-15                         | same        | drop           | drop
tcp/203.0.113.10/80 options=1-10                     | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 options=10 cut=60-77             | same        | drop           | drop
tcp/203.0.113.10/80 options=10 cut=78-80             | same        | redirect:10081 | redirect:10081
# Total and UDP lengths.
tcp/203.0.113.10/80 total=0-60,1500,65535            | same        | redirect:10081 | redirect:10081
# HTTPS that the garden does not match is dropped.
tcp/203.0.113.10/443 data=64 total=0,20,40,100,120   | same        | redirect:10444 | drop
tcp/203.0.113.10/80 total=65535 cut=37               | same        | drop           | drop
dns/203.0.113.53 total=0,20,28,65535                 | same        | same           | same
dns/203.0.113.53 udp-length=0-8,65535                | same        | same           | same
udp/203.0.113.10/123 udp-length=0-8,65535            | same        | drop           | drop
# Versions, TCP header lengths and flags that cannot be: only the SYN bit would count, and that for the record alone.
tcp/203.0.113.10/80 version=0-15                     | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 doff=0-15                        | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 flags=00                         | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 flags=03                         | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 flags=06                         | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 flags=3f data=33                 | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 flags=ff data=1                  | same        | redirect:10081 | redirect:10081
# First fragments are packets like others; too short ones miss what is not in them.
tcp/203.0.113.10/80 more=1                           | same        | redirect:10081 | redirect:10081
tcp/203.0.113.10/80 fragment-of=0-17 more=1          | same        | drop           | drop
tcp/203.0.113.10/80 fragment-of=18-20 more=1         | same        | redirect:10081 | redirect:10081
tcp/2.2.2.2/80 fragment-of=8,16 more=1               | same        | drop           | drop
# Later fragments have no ports, however long they are.
tcp/203.0.113.10/80 offset=1,2,100,8191              | same        | drop           | drop
tcp/203.0.113.10/80 more=1 offset=1,64               | same        | drop           | drop
tcp/203.0.113.10/443 offset=3                        | same        | drop           | drop
tcp/192.168.100.1/80 offset=1                        | same        | drop           | drop
tcp/192.168.100.1/82 offset=1                        | same        | drop           | drop
tcp/203.0.113.30/80 offset=1,8191                    | same        | drop           | same
tcp/203.0.113.30/80 offset=1 cut=0-19                | same        | drop           | drop
tcp/203.0.113.30/80 offset=1 cut=20-40               | same        | drop           | same
tcp/203.0.113.30/80 cut=20-23                        | same        | drop           | drop
tcp/203.0.113.30/8080 cut=24-40                      | same        | drop           | same
tcp/2.2.2.2/80 offset=1 cut=0-19                     | same        | drop           | drop
tcp/2.2.2.2/80 offset=1 cut=20-40                    | drop        | drop           | drop
tcp/4.4.4.4/80 offset=1 cut=20-40                    | drop        | drop           | drop
dns/203.0.113.53 offset=1                            | same        | drop           | drop
dhcp offset=1                                        | same        | drop           | drop
dhcp more=1                                          | same        | same           | same
icmp/203.0.113.10 offset=1                           | same        | drop           | drop
ip/47/203.0.113.10 offset=1                          | same        | same           | same
END_OF_TABLE

member=$CASE_DIR/logged-in-client
cat >"$member" <<'END_OF_TABLE'
                                               | login
tcp/203.0.113.10/80 ihl=0-15                   | same
tcp/203.0.113.10/80 total=0,20,39,41,65535     | same
tcp/203.0.113.10/80 fragment-of=0-20 more=1    | same
tcp/203.0.113.10/80 offset=1                   | same
tcp-everywhere/192.0.2.1/80 ihl=0-4            | same
tcp-everywhere/192.0.2.1/80 ihl=5-15           | redirect:82
tcp/192.0.2.1/22 fragment-of=0-17 more=1       | same
tcp/192.0.2.1/22 fragment-of=18-20 more=1      | redirect:82
# A later fragment has no port of which it could be said that it is not redirected: it goes on.
tcp/192.0.2.1/22 offset=1,100,8191             | same
END_OF_TABLE

step "without the module"
from_client 1-1
places+=(--place other=client-1-2/eth0)
record_frames "$unknown"
record_frames "$member" --source "$(mac_of 1-1)"

load_module
cpctl dns-filter on
check_frames "$unknown" off
cpctl interface set wlan-1-1 mode on
check_frames "$unknown" on
cpctl garden replace wlan-1-1 on 203.0.113.30
check_frames "$unknown" garden
cpctl interface set wlan-1-1 logout 192.0.2.1
cpctl client add login "$(mac_of 1-1)" wlan-1-1
check_frames "$member" login --source "$(mac_of 1-1)"
