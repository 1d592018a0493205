# Every table full, every kind of frame, as fast as the machine can, for as long
# as LOAD_LENGTH says: where each frame comes out and with what bytes, what the
# memory does, and how long an admitted client's ping takes meanwhile. One in a
# hundred of the frames is given to the second implementation as well.
#
#   far-1-1 -- wlan-1-1 \
#     ...        ...      br0 -- uplink0 -- far-up
#   far-3-8 -- wlan-3-8 /  |  \
#                          |   lan0 -- client-lan0, answers pings
#   client-1-14 -- wlan-1-14, the companion of wlan-1-1: sends pings
#
# Nobody but the two name spaces answers: load_traffic holds all far ends, and br0.
#
# Time limit: 100000 seconds; the settings and load_traffic come from scripts/load.

{
	# Stations stay known: what the bridge remembers of them is no growth.
	echo "link add br0 type bridge forward_delay 0 mcast_snooping 0 ageing_time 100000000"
	echo "link set br0 address $AP_MAC up"
	echo "address add $AP_ADDRESS/24 dev br0"
	for port in uplink0=far-up wlan-{1..3}-{1..8}; do
		far=far-${port#wlan-}
		[[ $port != *=* ]] || { far=${port#*=} && port=${port%=*}; }
		echo "link add $port type veth peer name $far"
		echo "link set $port master br0 up"
		echo "link set $far up"
		# Clients do not hear each other.
		[[ $port != wlan-* ]] || echo "link set $port type bridge_slave isolated on"
	done
	connect_port wlan-1-14 client-1-14 02:00:00:40:00:01
	connect_port lan0 client-lan0 02:00:00:40:00:02
} | ip -batch -
furnish_namespace client-1-14 "address add 192.168.100.251/24 dev eth0"
furnish_namespace client-lan0 "address add 192.168.100.252/24 dev eth0"
bridge fdb replace "$GATEWAY_MAC" dev uplink0 master static
bridge fdb replace 02:00:00:00:00:fd dev uplink0 master static
sysctl -q -w net.ipv4.ip_forward=0 net.ipv4.conf.all.arp_ignore=8 net.core.netdev_max_backlog=100000
nft 'table inet silence { chain everything { type filter hook prerouting priority -450; policy drop; }; }'

load_module
mkfifo /run/load-sample
# Both ends are open before anybody starts: neither waits for one that never comes.
exec 8<>/run/load-sample 9</run/load-sample
python3 /payload/lab/load/check_sample.py <&9 >"$CASE_DIR/sample.log" 2>&1 8>&- 9<&- &
checker=$!
status=0
/payload/bin/load_traffic --sample /run/load-sample ${LOAD_LENGTH:?} --seed "${LOAD_SEED:?}" \
	--times "${LOAD_TIMES:-told}" 8>&- 9<&- || status=$?
exec 8>&- 9<&-
sampled=0
wait "$checker" || sampled=$?
cat "$CASE_DIR/sample.log"
((status == 0 && sampled == 0)) || fail "not everything was right"
