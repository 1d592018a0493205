# Processes open, call and close the device, and hold it open, while the module is loaded and unloaded a fifth of
# $LIFE_CYCLE_ROUNDS times. An unload is refused as busy or takes the device away; an open succeeds, or says that the
# device is not there, or that another has it; and what was opened works.
#
#   no network: the machine alone

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
while not stopped:
    try:
        device = os.open("/dev/CP_dev", os.O_RDWR)
    except OSError as error:
        if error.errno not in (errno.ENOENT, errno.ENODEV, errno.ENXIO, errno.EBUSY):
            raise
        ends[errno.errorcode[error.errno]] += 1
        time.sleep(0.001)
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
END_OF_PROGRAM
openers=()
for hold in 0 1 20; do
	python3 -S "$CASE_DIR/opener.py" "$hold" &
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
figure "$rounds unloads among openers, $refused refused as busy, the longest $((slowest_unload / 1000)) ms"
load_module
expect_success cpctl interface set wlan-1-1 mode on
