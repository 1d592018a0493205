# Expected verdict: pass
# What the module keeps on purpose is known by its size and by what is in it: an
# object of the same size with something else in it, or of another size with
# the same in it, is a leak; and so is what is more than the lists held.

# object SIZE BYTES  one object of a report, its first bytes in hexadecimal.
object() {
	local bytes=$2
	printf 'unreferenced object 0x0000000060a0b0c0 (size %s):\n  comm "rmmod", pid 99, jiffies 4294937300 (age 6.000s)\n' "$1"
	printf '  hex dump (first %d bytes):\n' $((${#bytes} / 2))
	while [[ $bytes ]]; do
		printf '    %s ................\n' "$(sed 's/../& /g' <<<"${bytes:0:32}")"
		bytes=${bytes:32}
	done
	printf '  backtrace:\n'
}

unexplained() { python3 "$LAB/guest/unexplained_leaks.py" "$@" 2>/dev/null | grep -c '^unreferenced object' || true; }

expect_kept() { expect_equal "leaks in an object of $1 bytes, $2" 0 "$(object "$1" "$2" | unexplained)"; }
expect_leak() { expect_equal "leaks in an object of $1 bytes, $2" 1 "$(object "$1" "$2" | unexplained)"; }

client=00c0b0a060000000020000010101 connection=00c0b0a0600000000b64a8c01f90010000cb00710050020000000001ffffffff
expect_kept 16 "${client}0000"
expect_leak 16 "${client}0100"
expect_leak 16 00c0b0a060000000021100010101
expect_leak 16 00000000000000000000000000000000
expect_leak 32 "${client}000000000000000000000000000000000000"
expect_leak 24 "${client}0000"
expect_kept 64 "$connection"
expect_leak 64 "${connection:0:44}0a1100000001ffffffff"
expect_leak 64 "$(printf '0%.0s' {1..64})"
expect_leak 96 "$connection"
expect_failure python3 "$LAB/guest/unexplained_leaks.py" <<<"unreferenced object of no size"
expect_equal "leaks among four" 2 "$({
	object 16 "${client}0000"
	object 4096 00
	object 64 "$connection"
	object 16 00
} | unexplained)"
five() {
	object 16 "${client}0000"
	object 64 "$connection"
	object 16 "${client}0000"
	object 64 "$connection"
	object 16 "${client}0000"
}
expect_equal "leaks among five of which all are in the lists" 0 "$(five | unexplained client=3 connection=2)"
expect_equal "leaks among five of which four are in the lists" 1 "$(five | unexplained client=2 connection=2)"
expect_equal "leaks among five of which none is in the lists" 5 "$(five | unexplained client=0 connection=0)"
expect_equal "leaks among five of whose clients nothing is known" 2 "$(five | unexplained connection=0)"
expect_equal "leaks among five that were hidden when their case ended" 0 "$(five | unexplained --since 4294937301 client=0)"
expect_equal "leaks among five of the case's first tick" 3 "$(five | unexplained --since 4294937300 client=0)"
expect_equal "leaks in what nothing explains, from before" 1 "$(object 24 "${client}0000" | unexplained --since 4294937301)"
expect_failure python3 "$LAB/guest/unexplained_leaks.py" nobody=1 </dev/null
