# Loading and unloading again and again: how long an unload takes, and what memory it leaves behind.
#
#   quick_load                loads the module by the system call alone
#   timed_unload              unloads it so; fails when that took longer than $LONGEST_UNLOAD milliseconds of the
#                             machine's clock. Where that leaps, as on User Mode Linux in all cases but
#                             loads_and_unloads, computing takes hardly any of it: there it is waits that are limited
#   slowest_unload            the longest of the case's since it was set to 0, in microseconds
#   unload_times              all of them
#   median_unload             the one in the middle
#   kernel_memory             KiB that the kernel holds for itself and no program can get back
#   figure TEXT...            a line that "./run life-cycle" prints at its end
#   make_portal_bench         a bench with one client, and a table of frames
#
# $LIFE_CYCLE_... are the wishes of a long run; a case says what it does without.

LONGEST_UNLOAD=${LIFE_CYCLE_LONGEST_UNLOAD:-1000}
slowest_unload=0
unload_times=()

# module_call WORD  microseconds in REPLY.  The first call starts the program that makes them all.
module_call() {
	[[ ${MODULE_CALLS_PID-} ]] || coproc MODULE_CALLS { exec python3 -S "$LAB/lib/module_calls.py" "$MODULE"; }
	echo "$1" >&"${MODULE_CALLS[1]}"
	read -r REPLY <&"${MODULE_CALLS[0]}"
	[[ $REPLY != *[!0-9]* ]] || fail "the module does not $1: $REPLY"
}

quick_load() { module_call load; }

timed_unload() {
	module_call unload
	unload_times+=("$REPLY")
	((REPLY <= slowest_unload)) || slowest_unload=$REPLY
	((REPLY < LONGEST_UNLOAD * 1000)) || fail "unloading took $((REPLY / 1000)) ms"
}

median_unload() {
	printf '%s\n' "${unload_times[@]}" | sort -n | sed -n "$(((${#unload_times[@]} + 1) / 2))p"
}

# Memory that a dead program or the last of a cache still holds is given back first.
kernel_memory() {
	echo 3 >/proc/sys/vm/drop_caches
	sleep 1
	awk '/^(SUnreclaim|VmallocUsed|KernelStack|PageTables|Percpu):/ { sum += $2 } END { print sum }' /proc/meminfo
}

figure() { printf 'FIGURE: %s: %s\n' "$CASE" "$*"; }

# make_portal_bench  client-1-1 and what becomes of three of its frames without the portal and with it: the table $frames.
make_portal_bench() {
	make_frame_bench 1-1
	frames=$CASE_DIR/frames
	cat >"$frames" <<-'END_OF_TABLE'
		                             | off  | on
		tcp/203.0.113.10/80          | same | redirect:10081
		icmp/203.0.113.10            | same | drop
		dns/203.0.113.53             | same | same
	END_OF_TABLE
	from_client 1-1
	record_frames "$frames"
}
