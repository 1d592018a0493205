# The expiry thread gets no processor for $LIFE_CYCLE_STARVED seconds, from before its pass was due: a program of the
# real-time class has it. Meanwhile frames are judged as ever, answers are read and nothing expires; afterwards the pass
# comes at once, takes out what is past its time and nothing else, and the next one comes a whole period later. The
# unload at the end takes less than a second of the machine's clock, which on User Mode Linux leaps.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

starved=${LIFE_CYCLE_STARVED:-10}
# Kernels from 6.12 on keep a part of each second for programs that are not of the real-time class, so that the thread
# gets its pass; told not to, a machine of two processors comes to a stand.
[[ ! -d /sys/kernel/debug/sched/fair_server ]] || skip "this kernel lets no program starve the others"
make_topology 1-1
give_address 1-1 61
in_client 1-1 ping -n -q -c 1 "$AP_ADDRESS" >/dev/null

lines_with() { log_since_start | grep -cF -- "$1" || true; }
passes() { lines_with '[schedule_check]in while loop'; }
seconds_of_last() { log_since_start | grep -F -- "$1" | tail -n 1 | sed 's/^\[ *\([0-9]*\)\..*/\1/'; }
ticks_a_second=250
! grep -q 'User Mode Linux' /proc/cpuinfo || ticks_a_second=100
period=$((6000 / ticks_a_second))

# This case goes before the program that will have the processor, and so do the servers that it starts, and the kernel's
# threads that take frames on when there are many: a kernel that waits for one of those takes none on.
hog=
first_ones=($$ $(grep -lsE '^ksoftirqd/' /proc/[0-9]*/comm | cut -d/ -f3))
as_before() {
	# Nobody else in the machine would come to end it.
	[[ ! $hog ]] || kill "$hog" 2>/dev/null || true
	for thread in "${first_ones[@]}"; do chrt -o -p 0 "$thread"; done
	echo 950000 >/proc/sys/kernel/sched_rt_runtime_us
}
trap as_before EXIT
echo -1 >/proc/sys/kernel/sched_rt_runtime_us
for thread in "${first_ones[@]}"; do chrt -f -p 60 "$thread"; done
start_services
load_module
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.example.org'
cpctl debug 3
thread=$(grep -lsE '^schedule_check_(thread)?$' /proc/[0-9]*/comm | cut -d/ -f3)
wait_until 100 "a pass" eval '(($(passes) > 0))'
cpctl debug 1

step "the thread's processor is taken"
# The thread goes behind the program. With two processors all else goes on on the first.
processor=$(($(nproc) - 1))
taskset -p -c "$processor" "$thread" >/dev/null
cpctl debug 3
before=$(passes)
# From a little before the pass is due, however long the last one took to be seen.
uptime=$(cut -d. -f1 /proc/uptime)
sleep $(($(seconds_of_last '[schedule_check]in while loop') + period - 10 - uptime))
send_answers 1-1 short.example.org 5 203.0.113.20 203.0.113.30
send_answers 1-1 long.example.org 3600 203.0.113.40
# It never asks for the time, which in a machine whose clock leaps would hardly go on for it.
chrt -f 50 taskset -c "$processor" python3 -S -c 'while True: pass' &
hog=$!
sleep 8
expect_equal "passes when the hog began" "$before" "$(passes)"
send_answers 1-1 short.example.org 3600 203.0.113.30
for ((second = 8; second < starved + 8; second += 5)); do
	sleep 5
	expect_equal "passes after $second seconds" "$before" "$(passes)"
	expect_portal_page 1-1 "http://203.0.113.10/$second" 10081
	expect_no_ping 1-1 203.0.113.10
	expect_listed all "203.0.113.20 1-1: short.example.org" "203.0.113.30 1-1: short.example.org" \
		"203.0.113.40 1-1: long.example.org"
done
deadline=$(timeout_of 203.0.113.30)
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_real_page 1-1 http://203.0.113.10/admitted
expect_ping 1-1 203.0.113.10
expect_equal "passes while frames were judged" "$before" "$(passes)"
kill "$hog"
wait "$hog" || true
hog=
step "it is free again"
wait_until 10 "the pass comes" eval '(($(passes) > before))'
expect_listed all "203.0.113.30 1-1: short.example.org" "203.0.113.40 1-1: long.example.org"
expect_equal "the deadline" "$deadline" "$(timeout_of 203.0.113.30)"
first=$(seconds_of_last '[schedule_check]in while loop')
before=$(passes)
wait_until 100 "the next pass" eval '(($(passes) > before))'
took=$(($(seconds_of_last '[schedule_check]in while loop') - first))
((took >= period - 1 && took <= period + 15)) || fail "the next pass came after $took seconds"
expect_listed all "203.0.113.30 1-1: short.example.org" "203.0.113.40 1-1: long.example.org"
timed_unload
figure "starved for $starved seconds; the next pass came $took seconds after the late one;" \
	"unloaded in $slowest_unload us"
