# Loading and unloading again and again: how long an unload takes, and what memory it leaves behind.
#
#   timed_unload              unloads the module; fails when that took longer than $LONGEST_UNLOAD milliseconds
#   slowest_unload            the longest of the case's since it was set to 0, in microseconds
#   unload_times              all of them
#   median_unload             the one in the middle, in milliseconds
#   kernel_memory             KiB that the kernel holds for itself and no program can get back
#   figure TEXT...            a line that "./run life-cycle" prints at its end
#
# $LIFE_CYCLE_... are the wishes of a long run; a case says what it does without.

LONGEST_UNLOAD=${LIFE_CYCLE_LONGEST_UNLOAD:-1000}
slowest_unload=0
unload_times=()

timed_unload() {
	local before=$EPOCHREALTIME took
	unload_module
	took=$((${EPOCHREALTIME/./} - ${before/./}))
	unload_times+=("$took")
	((took <= slowest_unload)) || slowest_unload=$took
	((took < LONGEST_UNLOAD * 1000)) || fail "unloading took $((took / 1000)) ms"
}

median_unload() {
	printf '%s\n' "${unload_times[@]}" | sort -n | sed -n "$(((${#unload_times[@]} + 1) / 2))p" | sed 's/...$//; s/^$/0/'
}

# Memory that a dead program or the last of a cache still holds is given back first.
kernel_memory() {
	echo 3 >/proc/sys/vm/drop_caches
	sleep 1
	awk '/^(SUnreclaim|VmallocUsed|KernelStack|PageTables|Percpu):/ { sum += $2 } END { print sum }' /proc/meminfo
}

figure() { printf 'FIGURE: %s: %s\n' "$CASE" "$*"; }
