# Processes open, call and close the device, and hold it open, while the module is loaded and unloaded a fifth of
# $LIFE_CYCLE_ROUNDS times. An unload is refused as busy or takes the device away; an open succeeds, or says that the
# device is not there, or that another has it; and what was opened works. Half of the opens go by the device's name, and
# half by its node, which they keep when the name is gone: as an open does that had found the node before the unload.
# Then an unload waits for the expiry thread, which is amid a pass, and opens meet that one all the while. By the
# machine's clock, which leaps on User Mode Linux, an unload takes less than a second but for the pass.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
give_address 1-1 61
in_client 1-1 ping -n -q -c 1 "$AP_ADDRESS" >/dev/null
rounds=$((${LIFE_CYCLE_ROUNDS:-40} / 5))
cat >"$CASE_DIR/opener.py" <<'END_OF_PROGRAM'
import collections, errno, fcntl, os, signal, sys, time
hold = int(sys.argv[1])
stopped = False
def stop(*_):
    global stopped
    stopped = True
signal.signal(signal.SIGTERM, stop)
ends = collections.Counter()
gateway = bytearray(4)
node = None
tries = 0
while not stopped:
    tries += 1
    try:
        if tries % 2 or node is None:
            device = os.open("/dev/CP_dev", os.O_RDWR)
            if node is not None:
                os.close(node)
            node = os.open("/dev/CP_dev", os.O_PATH)
        else:
            device = os.open(f"/proc/self/fd/{node}", os.O_RDWR)
    except OSError as error:
        if error.errno not in (errno.ENOENT, errno.ENODEV, errno.ENXIO, errno.EBUSY):
            raise
        ends[errno.errorcode[error.errno]] += 1
        # For a node without a device the kernel looks for a module, and starts a program for that.
        time.sleep(0.02 if error.errno == errno.ENODEV else 0.001)
        continue
    ends["open"] += 1
    for _ in range(hold):
        if fcntl.ioctl(device, 7, gateway) != 0:
            raise SystemExit("the gateway was not told")
        time.sleep(0.001)
    os.close(device)
    # Whoever unloads must find it closed now and then, on a single processor too.
    time.sleep(0.003)
print(f"    opener that calls {hold} times: " + ", ".join(f"{count} {end}" for end, count in sorted(ends.items())))
if not ends["open"]:
    raise SystemExit("this one never had the device")
with open(sys.argv[2], "a") as met:
    print(ends["ENODEV"] + ends["ENXIO"], file=met)
END_OF_PROGRAM
openers=()
for hold in 0 1 20; do
	python3 -S "$CASE_DIR/opener.py" "$hold" "$CASE_DIR/met" &
	openers+=($!)
done

refused=0
for ((round = 1; round <= rounds; round++)); do
	insmod "$MODULE"
	for ((tries = 0; ; tries++)); do
		((tries < 2000)) || fail "round $round: unloading was always refused"
		before=$EPOCHREALTIME
		if said=$(rmmod captive_portal 2>&1); then
			took=$((${EPOCHREALTIME/./} - ${before/./}))
			((took <= slowest_unload)) || slowest_unload=$took
			break
		fi
		# rmmod looks first; an opener that comes behind that look is met by the kernel's.
		[[ $said == *"is in use"* || $said == *"Resource temporarily unavailable"* ]] || fail "the refusal: $said"
		refused=$((refused + 1))
	done
	# The node of a module that is gone: devtmpfs took it before the unload returned.
	[[ ! -e /dev/CP_dev ]] || fail "round $round: the device is still there"
	module_is_loaded && fail "round $round: the module is still there"
done
for opener in "${openers[@]}"; do
	kill "$opener"
	wait "$opener" || fail "an opener ended with status $?"
done
((refused > 0)) || fail "no unload met an open device"
((slowest_unload < LONGEST_UNLOAD * 1000)) || fail "an unload took $((slowest_unload / 1000)) ms"
met=$(awk '{ sum += $1 } END { print sum + 0 }' "$CASE_DIR/met")
((met > 0)) || fail "no open met a device that had gone"
figure "$rounds unloads among openers, $refused refused as busy, the longest $((slowest_unload / 1000)) ms;" \
	"$met opens met a device that had gone"

step "an unload that waits for a pass of the expiry thread"
cat >"$CASE_DIR/opens_while_going.py" <<'END_OF_PROGRAM'
import errno, os, sys, time
node = os.open("/dev/CP_dev", os.O_PATH)
open(sys.argv[1], "w").close()
met = other = 0
deadline = time.monotonic() + 300
while time.monotonic() < deadline:
    try:
        with open("/sys/module/captive_portal/initstate") as file:
            state = file.read().strip()
    except OSError as error:
        # The file is gone, or was just opened and goes.
        if error.errno not in (errno.ENOENT, errno.ENODEV):
            raise
        break
    if state != "going":
        time.sleep(0.002)
        continue
    for path in f"/proc/self/fd/{node}", "/dev/CP_dev":
        try:
            os.close(os.open(path, os.O_RDWR))
            raise SystemExit(f"{path} was opened of a module that goes")
        except OSError as error:
            if error.errno in (errno.ENODEV, errno.ENXIO):
                met += 1
            elif error.errno == errno.ENOENT:
                other += 1
            else:
                raise
    time.sleep(0.002)
print(met, other)
END_OF_PROGRAM
met=0
for ((tries = 1; met == 0; tries++)); do
	((tries <= 10)) || fail "no open met an unload that waits"
	load_module
	cpctl interface set wlan-1-1 mode on
	cpctl garden replace wlan-1-1 on '*.example.org'
	send_answers 1-1 fill.example.org 3600 x16384
	cpctl debug 3
	rm -f "$CASE_DIR/has_node"
	python3 -S "$CASE_DIR/opens_while_going.py" "$CASE_DIR/has_node" >"$CASE_DIR/met" &
	opener=$!
	wait_until 30 "the opener has its node" test -e "$CASE_DIR/has_node"
	read -r took place _ length < <(python3 -S "$LAB/lib/stop_in_a_pass.py" 20)
	wait "$opener" || fail "the opener ended with status $?"
	read -r met gone <"$CASE_DIR/met"
	step "stopped at bucket $place; unloaded in $took ms of a pass of $length: $met opens met it, $gone found no name"
	expect_failure module_is_loaded
done
figure "an unload of $took ms, amid a pass: $met opens met it, $gone found no name; none succeeded"

step "once more"
load_module
expect_success cpctl interface set wlan-1-1 mode on
