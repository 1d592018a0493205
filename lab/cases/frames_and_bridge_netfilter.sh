# Hostile frames with the bridge's own netfilter pass-through on and off, loaded
# before and after the module: the module's verdicts stay, and nothing is
# rewritten twice. Pass-through throws away broken IPv4 behind the module's back;
# hop-by-hop options are not here because it cannot read them in fragments, which
# a frame that the module has looked at is not in any more.
#
#   client-1-1 eth0 -- wlan-1-1 \
#         tap device   wlan-1-2 -  br0 -- uplink0 -- upstream
#   client-1-3 eth0 -- wlan-1-3 /

modprobe -n br_netfilter 2>/dev/null || [[ -d /proc/sys/net/bridge ]] || skip "this kernel has no br_netfilter"
make_frame_bench 1-1 1-3
add_tap_port wlan-1-2

frames='
                                        | off         | on
tcp/203.0.113.10/80                     | same        | redirect:PORT
tcp/203.0.113.10/80 options=10 data=40  | same        | redirect:PORT
tcp/203.0.113.10/443 data=1000          | same        | redirect:HTTPS
tcp/203.0.113.10/80 cut=0,9,19,23,33,37 | same        | drop
tcp/203.0.113.10/80 cut=38-40           | same        | redirect:PORT
tcp/203.0.113.10/80 ihl=0,4             | same        | drop
tcp-everywhere/203.0.113.10/80 ihl=5,6,15 | same      | redirect:PORT
tcp/203.0.113.10/80 total=0,20,39,41    | same        | redirect:PORT
tcp/203.0.113.10/80 data=60 total=40,60 | same        | redirect:PORT
tcp/203.0.113.10/80 version=6           | same        | redirect:PORT
tcp/203.0.113.10/80 vlan=5              | same        | redirect:PORT
tcp/203.0.113.10/80 vlan=5/6            | same        | same
tcp/203.0.113.10/80 fragment-of=8 more=1 | same       | drop
tcp/203.0.113.10/80 offset=1            | same        | drop
tcp/203.0.113.10/8080                   | same        | drop
tcp/192.168.100.1/82                    | drop        | drop
tcp/2.2.2.2/443                         | redirect:84 | redirect:84
tcp/2.2.2.2/22                          | drop        | drop
tcp/4.4.4.4/80 data=100                 | redirect:88 | redirect:88
dns/203.0.113.53                        | same        | same
dhcp                                    | same        | same
udp/203.0.113.10/123                    | same        | drop
icmp/203.0.113.10                       | same        | drop
ip/47/203.0.113.10                      | same        | same
ipv6/60/6                               | same        | drop
ipv6-like-tcp/4.4.4.4/22                | drop        | drop
arp                                     | same        | same
arp cut=0,27                            | same        | same
snap/0800                               | same        | same
'
ring=$CASE_DIR/ring tap=$CASE_DIR/tap
sed 's/PORT/10081/g; s/HTTPS/10444/g' <<<"$frames" >"$ring"
sed 's/PORT/10082/g; s/HTTPS/10445/g' <<<"$frames" >"$tap"

# both_ports record|check COLUMN
both_ports() {
	local options=()
	[[ $switch == off ]] || options=(--pass-through)
	local do=$1 column=()
	[[ $do == record ]] || column=("$2")
	from_client 1-1
	recording=$ring.recorded-$switch "${do}_frames" "$ring" "${column[@]}" --forms linear+ring:0 "${options[@]}"
	from_tap wlan-1-2
	recording=$tap.recorded-$switch "${do}_frames" "$tap" "${column[@]}" --forms frags:0+crumbs:19 "${options[@]}"
}

# with_both_modules WHAT MODE...
with_both_modules() {
	local mode switch
	for mode in "${@:2}"; do
		cpctl interface set wlan-1-1 mode $mode
		cpctl interface set wlan-1-2 mode $mode
		for switch in on off; do
			step "$1, pass-through $switch, portal $mode"
			pass_through $switch
			both_ports check $mode
		done
	done
}

modprobe br_netfilter
for switch in on off; do
	step "without the module, pass-through $switch"
	pass_through $switch
	both_ports record
done
load_module
cpctl dns-filter on
with_both_modules "pass-through first" off on
unload_module
rmmod br_netfilter 2>/dev/null || true
load_module
cpctl dns-filter on
modprobe br_netfilter
with_both_modules "module first" on
