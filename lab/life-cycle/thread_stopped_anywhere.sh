# The expiry thread is asked to stop at many moments of its pass over a full cache, whose 16,384 entries it lists in the
# log: before the first, where the thread sleeps and no pass comes any more, between two, after the last. The pass goes
# on to its end, then the thread ends, and all memory is given back, also that of entries which the pass itself takes
# out because their time is over. An unload takes a second at most but for the pass, by the machine's clock: one that
# leaps over waits, as on User Mode Linux, and counts what is computed only in part.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# Time limit: 3600 seconds, most of which the thread sleeps.

waiting_is_free || [[ ${LIFE_CYCLE_ROUNDS-} ]] || skip "passes are half a minute apart, and this machine waits for them"
rounds=$((${LIFE_CYCLE_ROUNDS:-250} / 50))
((rounds >= 20)) || rounds=20
make_topology 1-1
give_address 1-1 61
in_client 1-1 ping -n -q -c 1 "$AP_ADDRESS" >/dev/null

# Two stops before the first entry, two behind the last, the others spread over the pass.
moment_of() {
	if (($1 < 2)); then
		echo asleep
	elif (($1 >= rounds - 2)); then
		echo $((5 * pass + 500))
	else
		echo $((pass * ($1 - 2) / (rounds - 5)))
	fi
}

before=0 inside=0 behind=0 places=() longest=0
pass=400 shortest=0
# Behind the first rounds the kernel's own caches are full.
warm=$((rounds / 4))
for ((round = 0; round < rounds; round++)); do
	load_module
	cpctl interface set wlan-1-1 mode on
	cpctl garden replace wlan-1-1 on '*.example.org'
	# In every other round half of the entries are past their time.
	send_answers 1-1 fill.example.org 3600 x8192
	lifetime=3600
	((round % 2)) || lifetime=1
	send_answers 1-1 more.example.org "$lifetime" x16384
	expect_equal "entries" 16384 "$(read_summary $((16 << 20)) | grep -c IP=)"
	select_summary all
	cpctl debug 3
	after=$(moment_of "$round")
	result=$(python3 -S "$LAB/lib/stop_in_a_pass.py" "$after")
	read -r took place looked_at length <<<"$result"
	step "round $round: stopped at $after (ms of the pass), at bucket $place; unloaded in $took ms"
	if [[ $after == asleep ]]; then
		expect_equal "entries that a pass looked at" 0 "$looked_at"
	else
		expect_equal "entries that the pass looked at" 16384 "$looked_at"
		# The shortest pass says how long one is: others were in the way of a longer one.
		((round > 2 && length >= shortest)) || shortest=$length
		pass=$((shortest + shortest / 10))
	fi
	((took <= length + LONGEST_UNLOAD)) || fail "a pass of $length ms, and the unload took $took ms"
	((took <= longest)) || longest=$took
	if ((place < 0)); then
		before=$((before + 1))
	elif ((place > 1023)); then
		behind=$((behind + 1))
	else
		inside=$((inside + 1))
		places+=("$place")
	fi
	expect_equal "threads" "" "$(grep -lsE '^schedule_check_(thread)?$' /proc/[0-9]*/comm || true)"
	expect_failure module_is_loaded
	expect_failure test -e /proc/cp_dns_aRecord
	((round + 1 != warm)) || memory=$(kernel_memory)
done
grown=$(($(kernel_memory) - memory))
different=$(printf '%s\n' "${places[@]}" | sort -u | wc -l)
figure "$rounds stops: $before before the first entry, $behind behind the last, $inside inside of a pass, at buckets" \
	"${places[*]}; the longest unload $longest ms with a pass of $length ms"
figure "the kernel's own memory: $memory KiB after $warm rounds, $grown KiB more after $rounds"
((before > 0)) || fail "no stop came before the first entry"
((behind > 0)) || fail "no stop came behind the last entry"
((inside >= rounds / 3)) || fail "too few stops came inside of a pass"
((different >= rounds / 3)) || fail "too few stops inside of a pass came at different buckets"
# As in loads_and_unloads: a kernel that looks for leaks itself says after the case what was lost. A round's entries and
# names are some megabytes.
[[ -e /sys/kernel/debug/kmemleak ]] || ((grown <= rounds - warm + 256)) ||
	fail "the kernel's own memory grew by $grown KiB"
