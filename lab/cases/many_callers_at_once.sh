# One open control device, used by twenty processes at once, while hostile
# frames and DNS answers come in and others read and write the proc file: every
# answer is whole, the module cannot be unloaded meanwhile, and the portal works
# as before when all are done.
#
#   client-1-1 eth0 -- wlan-1-1 \
#         tap device   wlan-1-2 -  br0 -- uplink0 -- upstream
#   client-2-2 eth0 -- wlan-2-2 /

make_frame_bench 1-1 2-2
add_tap_port wlan-1-2
rounds=40
waiting_is_free || rounds=15

frames=$CASE_DIR/frames
cat >"$frames" <<'END_OF_TABLE'
                                       | off         | on
tcp/203.0.113.10/80                    | same        | redirect:10081
tcp/203.0.113.10/80 data=200           | same        | redirect:10081
tcp/203.0.113.10/80 cut=0,9,20,34,37   | same        | drop
tcp/203.0.113.10/80 ihl=0,4,15         | same        | drop
tcp/203.0.113.10/80 offset=1           | same        | drop
tcp/2.2.2.2/443 options=10             | redirect:84 | redirect:84
dns/203.0.113.53                       | same        | same
dhcp                                   | same        | same
icmp/203.0.113.10                      | same        | drop
ipv6/0/60/6                            | same        | drop
END_OF_TABLE
answers=$CASE_DIR/answers
{
	echo '| any'
	for number in {1..40}; do
		echo "answer/default-$number.example.org/198.18.0.$number/198.18.1.$number to=$(mac_of 1-1) | same"
	done
} >"$answers"

from_client 1-1
record_frames "$frames"
load_module
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on
check_frames "$frames" on

floods=()
# flood TABLE FORMS
flood() {
	python3 -S "$LAB/lib/frame_table.py" flood "$1" - "${places[@]}" --forms "$2" &
	floods+=($!)
}
flood "$frames" linear+ring:0,20
from_tap wlan-1-2
flood "$frames" frags:0,20
from_upstream
flood "$answers" linear+ring:0
cat >"$CASE_DIR/reader.py" <<'END_OF_PROGRAM'
import itertools, os, sys, time
file = os.open(sys.argv[1], os.O_RDWR)
for number in itertools.count():
    os.write(file, (b"all", b"mirel", b"wlan-1-1", b"198.18.0.3")[number % 4])
    text = b""
    while len(text) < 1 << 20:
        part = os.pread(file, 4096, len(text))
        if not part:
            break
        text += part
    if not text.startswith(b"Captive Portal DNS A Record Info, target="):
        raise SystemExit(f"a listing that is none: {text!r:.200}")
    time.sleep(0.002)
END_OF_PROGRAM
for reader in 1 2; do
	python3 -S "$CASE_DIR/reader.py" "$SUMMARY" &
	floods+=($!)
done

step "all of them"
python3 -S "$LAB/lib/many_callers.py" $rounds &
callers=$!
wait_until 20 "the device is open" eval '(($(</sys/module/captive_portal/refcnt) == 1))'
expect_failure rmmod captive_portal
wait "$callers" || fail "the callers ended with status $?"
step "the others were there all the time"
for process in "${floods[@]}"; do kill -0 "$process" || fail "one of the others ended"; done
kill "${floods[@]}"
wait "${floods[@]}" || true

step "all is as before"
from_client 1-1
check_frames "$frames" on
cpctl interface set wlan-1-1 mode off
check_frames "$frames" off
