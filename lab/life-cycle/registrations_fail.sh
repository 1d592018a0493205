# The kernel refuses the module one of its registrations: each of its three hooks in turn, as their places are full, and
# the expiry thread. The module loads all the same, says so where it has a word for it, and does what it still can;
# without a hook it touches no frame. It unloads without a complaint of the kernel, and the next load is whole.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_portal_bench

lines_with() { log_since_start | grep -cF -- "$1" || true; }
portal_on() { cpctl interface set wlan-1-1 mode on; }

# The kernel takes 1024 hooks at a place.
fill_hooks() {
	local number
	{
		echo "table bridge full {"
		for ((number = 0; number < $2; number++)); do echo "chain c$number { type filter hook $1 priority 1000; }"; done
		echo "}"
	} | nft -f -
}

# without_hook WHICH PLACE HOOKS_THERE
without_hook() {
	step "the $1 hook is refused: $3 others are there"
	fill_hooks "$2" "$3"
	local before
	before=$(lines_with 'nf_register_hook fail')
	load_module
	portal_on
	expect_equal "complaints of the module" $((before + 1)) "$(lines_with 'nf_register_hook fail')"
	nft delete table bridge full
	check_frames "$frames" off
	unload_module
}
without_hook first prerouting 1024
without_hook second prerouting 1023
without_hook third postrouting 1024

step "the thread is refused"
started=$(lines_with 'wake_up_process schedule_check_thread')
stopped=$(lines_with 'kthread_stop schedule_check_thread')
expect_equal "the load" "loaded" "$(python3 -S "$LAB/lib/load_module_without_threads.py" "$MODULE")"
wait_until 10 "the control device is there" test -c /dev/CP_dev
expect_equal "threads" "" "$(grep -lsE '^schedule_check_(thread)?$' /proc/[0-9]*/comm || true)"
expect_equal "lines of a start" "$started" "$(lines_with 'wake_up_process schedule_check_thread')"
portal_on
check_frames "$frames" on
expect_equal "the listing" "$(empty_summary all)" "$(cat "$SUMMARY")"
unload_module
expect_equal "lines of a stop" "$stopped" "$(lines_with 'kthread_stop schedule_check_thread')"

step "nothing is refused"
load_module
portal_on
check_frames "$frames" on
expect_equal "lines of a start" $((started + 1)) "$(lines_with 'wake_up_process schedule_check_thread')"
