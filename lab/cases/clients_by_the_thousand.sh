# Two thousand clients come and go while frames of others are judged, on five
# kinds of lists of four interfaces and on the MIREL white list: what frames
# look at grows and shrinks beside them, and each frame meets the verdict of the
# lists. The module is unloaded the moment that the last call is done, once with
# all lists flushed and once with clients on them, three times over.
#
# Time limit: 300 seconds, for an emulated machine whose host has other work.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-3-8 eth0 -- wlan-3-8 /

make_frame_bench 1-1 3-8

frames=$CASE_DIR/frames
cat >"$frames" <<'END_OF_TABLE'
                       | off  | on
icmp/203.0.113.10      | same | drop
tcp/203.0.113.10/80    | same | redirect:10081
dns/203.0.113.53       | same | same
END_OF_TABLE

thousands() { expect_success python3 -S "$LAB/lib/thousands_of_clients.py" "$@"; }
set_up() {
	load_module
	cpctl interface set wlan-1-1 mode on
	cpctl interface set wlan-3-8 mode on
	cpctl mirel mode on
}

from_client 1-1
record_frames "$frames"
python3 -S "$LAB/lib/thousands_of_clients.py" pour &
others=$!

for round in {1..3}; do
	step "round $round: filled, emptied, flushed, unloaded"
	set_up
	thousands fill-and-flush
	expect_failure module_is_loaded
	step "round $round: unloaded with clients on the lists"
	set_up
	thousands leave
	expect_failure module_is_loaded
done
kill -0 "$others" || fail "the other sender ended"
kill "$others"
wait "$others" || true

step "a module that was never filled"
set_up
check_frames "$frames" on
