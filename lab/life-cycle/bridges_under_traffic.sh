# What lab/cases/bridges_and_ports_change.sh does, a tenth of $LIFE_CYCLE_ROUNDS times, while others send through the
# same bridges all the time, and answers of the portal and of DNS come from the other side. At the end both bridges can
# be deleted, and the module unloaded within a second of the machine's clock, which on User Mode Linux leaps.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#   client-1-3 eth0 -- wlan-1-3 /
#                                  br1 -- uplink1 -- upstream1
#         tap device   wlan-1-2 /
#   elsewhere: client eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

rounds=$((${LIFE_CYCLE_ROUNDS:-20} / 10))
make_bridges 1-3
add_tap_port wlan-1-2

frames=$CASE_DIR/frames
cat >"$frames" <<'END_OF_TABLE'
                                         | any
tcp/203.0.113.10/80                      | same
tcp/203.0.113.10/80 cut=0,9,19,33,37     | same
tcp/2.2.2.2/443 options=10               | same
dns/203.0.113.53                         | same
icmp/203.0.113.10                        | same
END_OF_TABLE
answers=$CASE_DIR/answers
{
	echo '| any'
	for number in {1..20}; do
		echo "answer/n$number.example.org/198.18.0.$number/198.18.1.$number to=$(mac_of 1-1) | same"
		echo "reply/10081/40000 to=$(mac_of 1-1) data=$((40 * number)) | same"
	done
} >"$answers"

floods=()
# flood TABLE FORMS
flood() {
	python3 -S "$LAB/lib/frame_table.py" flood "$1" - "${places[@]}" --forms "$2" &
	floods+=($!)
}
from_client 1-3
flood "$frames" linear+ring:0,20
from_client 1-1
flood "$frames" linear
from_tap wlan-1-2
flood "$frames" frags:0,20
from_upstream
flood "$answers" linear+ring:0

load_module
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on
cpctl interface set wlan-1-3 mode on
cpctl garden replace wlan-1-1 on '*.example.org'
# The other ports follow. While br0 has no address the hardware address is the last that a frame of any bridge's port
# has taught: with all ports in br0 that is br0's.
sed '/^ip link set uplink0 master br0/a ip link set wlan-1-2 master br0\nip link set wlan-1-3 master br0
	/^ip link set wlan-1-1 master br1/i ip link set wlan-1-2 master br1' "$BRIDGE_STEPS" >"$CASE_DIR/steps"
# Each sender's frames, counted where they leave it: a process that is there may have come to a stand.
sent() {
	in_client 1-3 cat /sys/class/net/eth0/statistics/tx_packets
	in_client 1-1 cat /sys/class/net/eth0/statistics/tx_packets
	cat /sys/class/net/wlan-1-2/statistics/rx_packets
	in_upstream cat /sys/class/net/eth0/statistics/tx_packets
}
senders=("client 1-3" "client 1-1" "tap device" "upstream")
fewest=(-1 -1 -1 -1)
for ((round = 1; round <= rounds; round++)); do
	mapfile -t before < <(sent)
	python3 -S "$LAB/lib/bridge_steps.py" "$CASE_DIR/steps" &>"$CASE_DIR/round" || {
		cat "$CASE_DIR/round"
		fail "round $round"
	}
	((round > 1)) || cat "$CASE_DIR/round"
	mapfile -t after < <(sent)
	# The requests' own frames go by the way of client 1-1.
	own=$(sed -n 's/^[0-9]* requests, with \([0-9]*\) frames$/\1/p' "$CASE_DIR/round")
	for sender in "${!senders[@]}"; do
		count=$((after[sender] - before[sender]))
		[[ ${senders[sender]} != "client 1-1" ]] || count=$((count - own))
		((count >= 100)) || fail "round $round: ${senders[sender]} sent $count frames"
		((fewest[sender] >= 0 && fewest[sender] <= count)) || fewest[sender]=$count
	done
done
for process in "${floods[@]}"; do kill -0 "$process" || fail "one of the senders ended"; done
requests=$(grep -c '^[^=#i]' "$CASE_DIR/steps")
figure "$rounds rounds under traffic, $((rounds * requests)) requests, each where it should be;" \
	"in none of them fewer than ${fewest[*]} frames of the four senders"
timed_unload
kill "${floods[@]}"
wait "${floods[@]}" || true
expect_success ip link delete br0
expect_success ip link delete br1
