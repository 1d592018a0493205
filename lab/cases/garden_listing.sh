# What an administrator reads in the proc file after real DNS answers: by "all",
# by interface, by "mirel", by address; each entry once, in as many pieces as
# the reader likes, until something is written. Addresses of names that no
# garden permits are not listed.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_upstream_dns
start_access_point_dns
give_address 1-1 61
load_module
cpctl garden replace wlan-1-1 on '*.example.org'
cpctl garden replace wlan-3-8 on one.example.org
cpctl mirel garden replace on www.example.net
cpctl garden default replace static.example.net

# asks NAME...  prints the addresses that came, in one line.
asks() { echo $(in_client 1-1 dig +short +tries=2 +time=3 "$@"); }

expect_listed all
before=$(date +%s)
expect_equal "the answers" "203.0.113.10 203.0.113.20 203.0.113.30 198.51.100.20 198.51.100.30" \
	"$(asks www.example.net www.example.com garden.example.org static.example.net one.example.org)"
after=$(date +%s)
everywhere="$(echo {1,2,3}-{1,2,3,4,5,6,7,8}) MIREL"

step "selections"
www="203.0.113.10 MIREL: www.example.net"
garden="203.0.113.30 1-1: garden.example.org"
static="198.51.100.20 $everywhere: static.example.net"
one="198.51.100.30 1-1 3-8: one.example.org"
expect_listed all "$www" "$garden" "$static" "$one"
expect_listed wlan-1-1 "$garden" "$static" "$one"
expect_listed wlan-3-8 "$static" "$one"
expect_listed wlan-2-2 "$static"
expect_listed mirel "$www" "$static"
expect_listed 203.0.113.30 "$garden"
expect_listed 203.0.113.20
expect_listed 203.0.113.31
ends=$(timeout_of 203.0.113.30)
((ends >= before + 60 && ends <= after + 60)) ||
	fail "asked for between $before and $after, with 60 seconds to live, ends at $ends"

# entry ADDRESS INTERFACES NAME...  as the file has it, with the deadline that it has now.  The bucket is the first
# octet and 256 times the two low bits of the second.
entry() {
	local address=$1 octets
	IFS=. read -ra octets <<<"$1"
	printf '[%d]IP=%s, timeout=%d\n' $((octets[0] + 256 * (octets[1] % 4))) "$address" "$(timeout_of "$address")"
	printf '  match walled garden: %s\n' "$2"
	printf '  fqdn = %s\n' "${@:3}"
}
www=$(entry 203.0.113.10 MIREL www.example.net)
garden=$(entry 203.0.113.30 1-1 garden.example.org)
static=$(entry 198.51.100.20 "$everywhere" static.example.net)
one=$(entry 198.51.100.30 "1-1 3-8" one.example.org)
head="Captive Portal DNS A Record Info, target=all"

# expect_read WHAT BYTES LINES...
expect_read() { expect_equal "$1" "$(printf '%s\n' "${@:3}")" "$(read_summary "$2")"; }
room_for() { printf '%s\n' "$@" | wc -c; }

step "each entry once, in the order of the buckets"
select_summary all
expect_read "the whole" 65536 "$head" "$www" "$garden" "$static" "$one" Finished...
expect_read "what is left" 65536 "$head" Finished...
expect_failure select_summary 10.0.0.256 2>/dev/null
expect_read "what is left after a refused write" 65536 "$head" Finished...

step "in pieces: what does not fit comes with the next open"
select_summary all
size=$(room_for "$head" "$www" "$garden")
expect_read "two entries" "$size" "$head" "$www" "$garden"
expect_read "no room for its name" "$(($(room_for "$head" "$static") - 1))" "$head" "${static%$'\n'*}"
expect_read "the same entry whole, and one more" "$(room_for "$head" "$static" "$one")" "$head" "$static" "$one"
expect_read "the end" 65536 "$head" Finished...

step "what is new: an entry is listed at once, a name of an entry that was shown with the next write"
expect_equal "the answers" "203.0.113.10 198.51.100.10" "$(asks modern.example.org mail.example.org)"
mail=$(read_summary)
expect_contains "a read" "[966]IP=198.51.100.10, timeout=" "$mail"
expect_lacks "a read" modern.example.org "$mail"
www=$(entry 203.0.113.10 1-1 www.example.net modern.example.org)
select_summary 203.0.113.10
head="Captive Portal DNS A Record Info, target=203.0.113.10"
size=$(($(room_for "$head" "$www") - 1))
expect_read "an entry of two names, without room for the second" "$size" "$head" "${www%$'\n'*}"
expect_read "the second" 65536 "$head" "$(sed 3d <<<"$www")" Finished...
