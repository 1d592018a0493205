# Every object of the slab and all pages that a command asks for, and each of its
# copies from and to the process, fails once, and so do those of the proc files
# and of the device's open; then there are no pages at all, which the largest
# tables are made of. What fails says so and changes nothing, or what the manual
# says of it; afterwards the portal works as ever.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# Requests fail on order.
# Time limit: 900 seconds, of which few are needed.

make_topology 1-1
start_services
give_address 1-1 61
load_module

# Some pages of listing.
stored() { grep -q "^module .* cached_addresses=$1 " /proc/captive_portal/status; }
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.garden.example'
send_answers 1-1 www.garden.example 86400 x200
wait_until 10 "200 addresses are stored" stored 200

step "one failure after the other"
expect_failures 100 python3 "$LAB/lib/failing_commands.py"

step "afterwards"
stored 200 || fail "addresses are lost"
expect_portal_page 1-1 http://www.example.net/ 10081
expect_success cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_real_page 1-1 http://www.example.net/
