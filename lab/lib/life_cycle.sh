# Loading and unloading again and again: how long an unload takes, and what memory it leaves behind.
#
#   timed_unload              unloads the module; fails when that took longer than $LONGEST_UNLOAD milliseconds
#   slowest_unload            the longest of the case's, in microseconds
#   kernel_memory             KiB that the kernel holds for itself and no program can get back
#   figure TEXT...            a line that "./run life-cycle" prints at its end
#
# $LIFE_CYCLE_... are the wishes of a long run; a case says what it does without.

LONGEST_UNLOAD=${LIFE_CYCLE_LONGEST_UNLOAD:-1000}
slowest_unload=0

timed_unload() {
	local before=$EPOCHREALTIME took
	unload_module
	took=$((${EPOCHREALTIME/./} - ${before/./}))
	((took <= slowest_unload)) || slowest_unload=$took
	((took < LONGEST_UNLOAD * 1000)) || fail "unloading took $((took / 1000)) ms"
}

# Memory that a dead program or the last of a cache still holds is given back first.
kernel_memory() {
	echo 3 >/proc/sys/vm/drop_caches
	sleep 1
	awk '/^(SUnreclaim|VmallocUsed|KernelStack|PageTables|Percpu):/ { sum += $2 } END { print sum }' /proc/meminfo
}

figure() { printf 'FIGURE: %s: %s\n' "$CASE" "$*"; }
