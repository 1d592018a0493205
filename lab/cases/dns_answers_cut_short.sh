# DNS answers that end anywhere, by the frame's end or by the UDP length, in one
# piece and in fragments, and with lying headers: an address that is whole is
# remembered, the rest never was there, and every answer passes as it was sent.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream (the answers)

make_frame_bench 1-1
client_mac=$(mac_of 1-1)

# An answer has a question of 29 bytes for LNNN.garden.example.org and two A records of 16 bytes each.
lines=() expected=()
# add LETTER NUMBER RECORDS CHANGE...  an answer of which so many records are whole.
add() {
	local name addresses=("198.$letters.$2.1" "198.$letters.$2.2") address
	printf -v name '%s%03d.garden.example.org' "$1" "$2"
	lines+=("answer/$name/${addresses[0]}/${addresses[1]} to=$client_mac ${*:4} | same")
	for address in "${addresses[@]:0:$3}"; do expected+=("$address 1-1: $name"); done
}
records_in() { REPLY=$((($1 >= 85) + ($1 >= 101))); }

# add_cut LETTER  every length of the packet.
letters=18
add_cut() {
	local bytes
	for bytes in {0..101}; do
		records_in "$bytes"
		add "$1" "$bytes" "$REPLY" "cut=$bytes"
	done
	letters=$((letters + 1))
}

# write_table NAME
write_table() {
	printf '%s\n' '| any' "${lines[@]}" >"$CASE_DIR/$1"
	lines=()
}

add_cut l
for bytes in {0..81} 65535; do
	records_in $((bytes + 20))
	add u $((bytes % 256)) "$REPLY" "udp-length=$bytes"
done
letters=$((letters + 1))
number=0
while read -r records change; do
	number=$((number + 1))
	add h $number "$records" "$change"
done <<-'END_OF_CHANGES'
	0 total=0
	0 total=28
	2 total=29
	2 total=65535
	0 ihl=0
	0 ihl=4
	0 ihl=6
	0 ihl=15
	2 options=1
	2 options=10
	0 version=6
	2 more=1
	0 offset=1
	0 more=1 offset=185
	2 vlan=5
	0 vlan=5/6
	2 ethertype=88b6
	2 ethertype=86dd
END_OF_CHANGES
write_table linear
letters=$((letters + 1))
add_cut r
write_table ring:0
add_cut s
write_table ring:28
add_cut t
write_table ring:84

from_upstream --place client=client-1-1/eth0 --marker client
step "without the module"
forms=(linear ring:0 ring:28 ring:84)
for form in "${forms[@]}"; do record_frames "$CASE_DIR/$form" --forms "$form"; done
load_module
cpctl garden replace wlan-1-1 on '*.garden.example.org'
expect_listed all
for form in "${forms[@]}"; do check_frames "$CASE_DIR/$form" any --forms "$form"; done
expect_listed all "${expected[@]}"
