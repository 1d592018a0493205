# The expiry thread is asked to stop at many moments of its pass over a full cache, whose 16,384 entries it lists in the
# log: before the first, between two, after the last. The pass goes on to its end, then the thread ends, and all memory
# is given back, also that of entries which the pass itself takes out because their time is over.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

waiting_is_free || [[ ${LIFE_CYCLE_ROUNDS-} ]] || skip "passes are half a minute apart, and this machine waits for them"
rounds=$((${LIFE_CYCLE_ROUNDS:-250} / 50))
((rounds >= 5)) || rounds=5
make_topology 1-1
give_address 1-1 61
in_client 1-1 ping -n -q -c 1 "$AP_ADDRESS" >/dev/null

inside=0 places=() longest=0
pass=400
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
	after=$((pass * round / (rounds - 1)))
	result=$(python3 -S "$LAB/lib/stop_in_a_pass.py" "$after")
	read -r took place looked_at length <<<"$result"
	step "round $round: stopped $after ms after the beginning, at bucket $place; unloaded in $took ms"
	expect_equal "entries that the pass looked at" 16384 "$looked_at"
	# The first pass says how long one is.
	((round)) || pass=$((length + length / 10))
	((took <= length + LONGEST_UNLOAD)) || fail "a pass of $length ms, and the unload took $took ms"
	((took <= longest)) || longest=$took
	((place < 0 || place > 1023)) || inside=$((inside + 1))
	places+=("$place")
	expect_equal "threads" "" "$(grep -lsE '^schedule_check_(thread)?$' /proc/[0-9]*/comm || true)"
	expect_failure module_is_loaded
	expect_failure test -e /proc/cp_dns_aRecord
done
different=$(printf '%s\n' "${places[@]}" | sort -u | wc -l)
figure "$rounds stops, $inside inside of a pass, at buckets ${places[*]};" \
	"the longest unload $longest ms with a pass of $length ms"
((inside >= rounds / 3 && different >= rounds / 3)) || fail "too few stops came inside of a pass"
