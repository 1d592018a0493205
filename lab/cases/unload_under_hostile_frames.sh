# The module is loaded and unloaded again and again while broken frames, whole
# ones and forged replies come from every side, processes open and call the
# device, and a port leaves the bridge, changes its name and comes back. In the
# end every frame meets its verdict.
#
#   client-1-1 eth0 -- wlan-1-1 \
#         tap device   wlan-1-2 -  br0 -- uplink0 -- upstream
#   client-1-3 eth0 -- wlan-1-3 /   (comes and goes)

make_frame_bench 1-1 1-3
add_tap_port wlan-1-2
rounds=8
waiting_is_free || rounds=5

frames=$CASE_DIR/frames
cat >"$frames" <<'END_OF_TABLE'
                                         | off         | on
tcp/203.0.113.10/80                      | same        | redirect:10081
tcp/203.0.113.10/80 data=900             | same        | redirect:10081
tcp/203.0.113.10/80 cut=0,9,19,33,37     | same        | drop
tcp-everywhere/203.0.113.10/80 ihl=0,4   | same        | drop
tcp-everywhere/203.0.113.10/80 ihl=5,15  | same        | redirect:10081
tcp/203.0.113.10/80 total=0,65535        | same        | redirect:10081
tcp/203.0.113.10/80 offset=1             | same        | drop
tcp/203.0.113.10/80 vlan=5               | same        | redirect:10081
tcp/2.2.2.2/443 options=10               | redirect:84 | redirect:84
dns/203.0.113.53                         | same        | same
icmp/203.0.113.10                        | same        | drop
ipv6/0/60/6                              | same        | drop
snap/0800                                | same        | same
END_OF_TABLE
replies=$CASE_DIR/replies
cat >"$replies" <<'END_OF_TABLE'
                                         | any
reply/10081/40000 data=900               | same
reply/10081/40000 cut=0,33,37,38         | same
reply/10081/40000 flags=11               | same
reply/84/40000 ihl=0,15                  | same
END_OF_TABLE
answers=$CASE_DIR/answers
{
	echo '| any'
	echo "answer/www.example.org/198.18.0.1/198.18.1.1 to=$(mac_of 1-1) cut=0,20,28,40,60,80,100 | same"
	for number in {1..20}; do echo "answer/n$number.example.org/198.18.0.$number to=$(mac_of 1-1) | same"; done
} >"$answers"
cat >"$CASE_DIR/opener.py" <<'END_OF_PROGRAM'
# Opens the device whenever it is there, calls, and closes it.
import errno, fcntl, itertools, os, time
opened = 0
for number in itertools.count():
    time.sleep(0.004)
    try:
        device = os.open("/dev/CP_dev", os.O_RDWR)
    except OSError as error:
        if error.errno not in (errno.ENOENT, errno.ENODEV, errno.ENXIO, errno.EBUSY):
            raise
        continue
    gateway = bytearray(4)
    fcntl.ioctl(device, 7, gateway)
    os.close(device)
    opened += 1
    with open(__file__ + ".count", "w") as count:
        count.write(f"{opened}\n")
END_OF_PROGRAM

from_client 1-1
record_frames "$frames"
floods=()
# flood TABLE FORMS
flood() {
	python3 -S "$LAB/lib/frame_table.py" flood "$1" - "${places[@]}" --forms "$2" &
	floods+=($!)
}
flood "$frames" linear+ring:0,20
from_client 1-3
flood "$frames" linear
from_tap wlan-1-2
flood "$frames" frags:0,20
from_access_point
flood "$replies" linear+ring:0
from_upstream
flood "$answers" linear+ring:0
python3 -S "$CASE_DIR/opener.py" &
floods+=($!)

set_up() {
	load_module
	wait_until 20 "the device is free" cpctl --wait 5 interface set wlan-1-1 mode on
	cpctl --wait 5 garden replace wlan-1-2 on '*.example.org'
	cpctl --wait 5 interface set wlan-1-3 mode on
}
for ((round = 1; round <= rounds; round++)); do
	step "round $round"
	set_up
	printf '%s\n' "link set wlan-1-3 nomaster" "link set wlan-1-3 master br0" "link set wlan-1-3 down" \
		"link set wlan-1-3 name wlan-2-$round" "link set wlan-2-$round up" | ip -batch -
	sleep 0.1
	wait_until 20 "unloaded" unload_module
	sleep 0.1
	printf '%s\n' "link set wlan-2-$round down" "link set wlan-2-$round name wlan-1-3" "link set wlan-1-3 up" | ip -batch -
done
for process in "${floods[@]}"; do kill -0 "$process" || fail "one of the senders ended"; done
opened=$(<"$CASE_DIR/opener.py.count")
((opened > 0)) || fail "the device was never opened by the others"
set_up
kill "${floods[@]}"
wait "${floods[@]}" || true

step "after all of that"
from_client 1-1
check_frames "$frames" on
cpctl interface set wlan-1-1 mode off
check_frames "$frames" off
unload_module
expect_success ip link delete br0
