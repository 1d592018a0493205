# The expiry thread is there while the module is loaded, sleeps where the watch
# for hung tasks does not look, passes every 6000 scheduler ticks, and ends at
# once when the module is unloaded, twenty times over.
#
#   no network: the machine alone

# Kernels before 5.17 keep 15 characters of a thread's name.
expiry_threads() { grep -lsE '^schedule_check_(thread)?$' /proc/[0-9]*/comm | cut -d/ -f3 || true; }

lines_with() { log_since_start | grep -cF -- "$1" || true; }

# seconds_of LINE  when the kernel said it first, by its own clock.
seconds_of() { log_since_start | grep -F -m 1 -- "$1" | sed 's/^\[ *\([0-9]*\)\..*/\1/'; }

expect_equal "threads before the load" "" "$(expiry_threads)"
load_module
# Soon: the next pass is to be the first that says so.
cpctl debug 3
thread=$(expiry_threads)
expect_equal "number of threads" 1 "$(wc -w <<<"$thread")"
expect_log "dns_parse_init"
expect_log "wake_up_process schedule_check_thread"
wait_until 10 "the thread sleeps" grep -q '^State:.S (sleeping)' "/proc/$thread/status"

ticks_a_second=250
! grep -q 'User Mode Linux' /proc/cpuinfo || ticks_a_second=100
period=$((6000 / ticks_a_second))
step "the next pass, $period seconds after the first, which came with the load"
wait_until 100 "the thread passes" log_has "[schedule_check]in while loop, now="
took=$(($(seconds_of "[schedule_check]in while loop") - $(seconds_of "wake_up_process schedule_check_thread")))
step "it came after $took seconds"
# Both times are cut to whole seconds, and a machine under load is late.
((took >= period - 1 && took <= period + 15)) || fail "a pass after $took seconds"
expect_log "total_ip_count=0"
expect_equal "number of passes" 1 "$(lines_with '[schedule_check]in while loop')"

step "unload: the thread does not sleep to the end of its period"
unload_module
expect_equal "threads after the unload" "" "$(expiry_threads)"
expect_log "dns_parse_exit"
expect_log "kthread_stop schedule_check_thread"
expect_log "[schedule_check]out of loop"

for round in {1..20}; do
	insmod "$MODULE"
	# Some rounds ask for a stop before the thread has had time to run.
	((round % 2)) || wait_until 10 "the thread is there" test -n "$(expiry_threads)"
	before=$(date +%s%N)
	unload_module
	took=$((($(date +%s%N) - before) / 1000000))
	# A stop that got lost would cost most of a period.
	((took < 15000)) || fail "round $round: unloading took $took ms"
	expect_equal "threads after round $round" "" "$(expiry_threads)"
	expect_failure test -e /proc/cp_dns_aRecord
done
expect_equal "threads started" 21 "$(lines_with 'wake_up_process schedule_check_thread')"
expect_equal "threads stopped" 21 "$(lines_with 'kthread_stop schedule_check_thread')"
