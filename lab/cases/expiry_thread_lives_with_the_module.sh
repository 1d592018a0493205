# The expiry thread is there while the module is loaded, sleeps where the watch
# for hung tasks does not look, passes every 6000 scheduler ticks, and ends at
# once when the module is unloaded, twenty times over.
#
#   no network: the machine alone

# Kernels before 5.17 keep 15 characters of a thread's name.
expiry_threads() { grep -lsE '^schedule_check_(thread)?$' /proc/[0-9]*/comm | cut -d/ -f3 || true; }

lines_with() { log_since_start | grep -cF -- "$1" || true; }

expect_equal "threads before the load" "" "$(expiry_threads)"
load_module
thread=$(expiry_threads)
expect_equal "number of threads" 1 "$(wc -w <<<"$thread")"
expect_log "dns_parse_init"
expect_log "wake_up_process schedule_check_thread"
wait_until 10 "the thread sleeps" grep -q '^State:.S (sleeping)' "/proc/$thread/status"

step "a pass in 6000 ticks: 24 seconds at 250 ticks a second, 60 at 100"
loaded=$(cut -d. -f1 /proc/uptime)
cpctl debug 3
wait_until 90 "the thread passes" log_has "[schedule_check]in while loop, now="
took=$(($(cut -d. -f1 /proc/uptime) - loaded))
step "it came after $took seconds"
((took >= 19 && took <= 75)) || fail "a pass after $took seconds"
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
	((took < 5000)) || fail "round $round: unloading took $took ms"
	expect_equal "threads after round $round" "" "$(expiry_threads)"
	expect_failure test -e /proc/cp_dns_aRecord
done
expect_equal "threads started" 21 "$(lines_with 'wake_up_process schedule_check_thread')"
expect_equal "threads stopped" 21 "$(lines_with 'kthread_stop schedule_check_thread')"
