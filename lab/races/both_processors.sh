# Everything that the module does, at once, on two processors, for RACES_SECONDS:
# frames of hundreds of clients at all three hooks from both processors, answers
# of the name service, every command, readers and writers of the proc file,
# readers of the status files, expiry, new rules, a bridge that changes its
# addresses, a port that comes and goes, and the module's unload and load in the
# midst of them. The kernel reports accesses that meet; here is only said what
# ran, and that it did: by those who do it, and by the module's own counts.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-3-8 eth0 -- wlan-3-8  br0 -- uplink0 -- upstream
#   client-2-2 eth0 -- wlan-2-2 /   (comes and goes)

# The same clock for a kernel that hurries and for one that is emulated beside other work.
[[ ! -e /proc/sys/kernel/watchdog_thresh ]] || sysctl -q -w kernel.watchdog_thresh=60
# A watch is as long as a frame takes here, or nobody comes by; and there are many, as there is nothing else to do.
if [[ -d /sys/module/kcsan/parameters ]]; then
	echo 1500 >/sys/module/kcsan/parameters/udelay_interrupt
	echo 1500 >/sys/module/kcsan/parameters/udelay_task
	echo 100 >/sys/module/kcsan/parameters/skip_watch
fi
make_frame_bench 1-1 3-8 2-2
mark_between_hooks

expect_success python3 -S "$LAB/races/everything.py" "$MODULE" "$RACES_SECONDS" "$CASE_DIR/counts"
sed 's/^/    /' "$CASE_DIR/counts"
while read -r number what; do
	((number > 0)) || fail "no $what"
done <"$CASE_DIR/counts"
