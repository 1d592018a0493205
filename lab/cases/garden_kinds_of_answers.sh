# Whatever shape the answer for a permitted name has, all IPv4 addresses in it
# are open before login and no other: a wildcard's match, a chain of aliases,
# several addresses, 1,400 bytes of them, an answer that changes. Lookups of
# other types and answers over TCP open nothing, and do no harm.
#
#   client-1-1 eth0 --.
#                      wlan-1-1 -- br0 -- uplink0 -- upstream
#   client-second -----'          (second is logged in)

make_topology 1-1
add_client_behind 1-1 second
start_services
give_address 1-1 61
give_address second 62
load_module
cpctl interface set wlan-1-1 mode on
cpctl client add login "$(mac_of second)" wlan-1-1
cpctl garden replace wlan-1-1 on '*.example.org'

# expect_named_page CLIENT NAME ADDRESS  the page of the server at ADDRESS, asked for by a name.
expect_named_page() { expect_page "$1" "http://$2/" "real server $3 port 80 asked for $2/"; }

step "a name below a wildcard of the server's"
expect_named_page 1-1 any.wild.example.org 203.0.113.30
expect_listed all "203.0.113.30 1-1: any.wild.example.org"
expect_portal_page 1-1 http://203.0.113.40/ 10081

step "a chain of aliases: its end counts for the name that was asked"
expect_equal "the chain" $'first.example.net.\nsecond.example.com.\n198.51.100.20' "$(resolve 1-1 chain.example.org)"
expect_real_page 1-1 http://198.51.100.20/
expect_listed 198.51.100.20 "198.51.100.20 1-1: chain.example.org"

step "AAAA and HTTPS lookups, which show IPv4 addresses as well, open nothing"
expect_equal "AAAA" 2001:db8::10 "$(resolve 1-1 modern.example.org AAAA)"
expect_equal "HTTPS" "1 . ipv4hint=203.0.113.20" "$(resolve 1-1 modern.example.org HTTPS)"
expect_equal "AAAA of a chain" $'first.example.net.\nsecond.example.com.' "$(resolve 1-1 chain.example.org AAAA)"
expect_portal_page 1-1 http://203.0.113.10/ 10081
expect_portal_page 1-1 http://203.0.113.20/ 10081
step "nor do they shut anything"
expect_equal "A" 203.0.113.10 "$(resolve 1-1 modern.example.org)"
expect_equal "AAAA again" 2001:db8::10 "$(resolve 1-1 modern.example.org AAAA)"
expect_real_page 1-1 http://203.0.113.10/

step "several addresses"
expect_portal_page 1-1 http://198.51.100.10/ 10081
several=(198.51.100.10 203.0.113.20 203.0.113.40)
expect_equal "the answer" "$(printf '%s\n' "${several[@]}")" "$(resolve 1-1 several.example.org | sort)"
for address in "${several[@]}"; do expect_real_page 1-1 "http://$address/"; done

step "85 addresses, too many for the 512 bytes that a client without EDNS takes over UDP"
many=(192.0.2.{1..84} 198.51.100.30)
answer_with many.example.org "${many[@]}"
start_capture answers 1-1 eth0 "port 53"
listed_many() { listed all | grep -c many.example.org || true; }
# The port of TCP is shut before login, so a client that cannot take more over UDP stays without an answer.
stays_without_answer() { ! in_client 1-1 dig +bufsize=512 +tries=1 +time=2 many.example.org >/dev/null; }
expect_success stays_without_answer
step "over TCP, to a client that is logged in: nobody reads it"
expect_equal "addresses over TCP" 85 "$(in_client second dig +short +bufsize=512 many.example.org | wc -l)"
expect_real_page second http://198.51.100.30/
expect_portal_page 1-1 http://198.51.100.30/ 10081
expect_equal "addresses that were read of the answer over TCP" 0 "$(listed_many)"
step "over UDP with EDNS"
expect_equal "addresses over UDP" 85 "$(in_client 1-1 dig +short +bufsize=1452 +ignore many.example.org | wc -l)"
expect_captured answers "src $AP_ADDRESS and udp src port 53 and udp[4:2] > 1400 and dst 192.168.100.61"
stop_capture answers
expect_captured answers "dst 192.168.100.62 and tcp src port 53 and greater 1000"
expect_not_captured answers "dst 192.168.100.62 and udp src port 53 and greater 512"
expect_equal "addresses that were read" 85 "$(listed_many)"
expect_real_page 1-1 http://198.51.100.30/

step "an answer that changes: the new address opens, the old one stays until its time is over"
answer_with moves.example.org 203.0.113.53
expect_named_page 1-1 moves.example.org 203.0.113.53
answer_with moves.example.org 198.51.100.20
expect_named_page 1-1 moves.example.org 198.51.100.20
expect_real_page 1-1 http://203.0.113.53/
expect_listed 203.0.113.53 "203.0.113.53 1-1: moves.example.org"
expect_listed 198.51.100.20 "198.51.100.20 1-1: chain.example.org moves.example.org"
