# Login opens, and its deletion shuts again: for the login and for the
# authorisation table, for one client of an interface and not for another.
#
#   client-1-1 eth0 --.
#                      wlan-1-1 -- br0 -- uplink0 -- upstream
#   client-second -----'

make_topology 1-1
add_client_behind 1-1 second
start_services
give_address 1-1 61
give_address second 62
load_module
cpctl interface set wlan-1-1 mode on
mac=$(mac_of 1-1)

expect_shut() {
	expect_portal_page "$1" http://www.example.net/shut 10081
	expect_no_ping "$1" 203.0.113.10
}
expect_open() {
	expect_real_page "$1" http://www.example.net/open
	expect_real_page "$1" https://www.example.com/open
	expect_ping "$1" 203.0.113.10
}

expect_shut 1-1
for table in login auth; do
	step "$table"
	cpctl client add "$table" "$mac" wlan-1-1
	expect_open 1-1
	expect_shut second
	cpctl client del "$table" "$mac" wlan-1-1
	expect_shut 1-1
done

step "a login on another interface is none"
cpctl client add login "$mac" wlan-1-2
expect_shut 1-1

step "flush"
cpctl client add login "$mac" wlan-1-1
cpctl client add login "$(mac_of second)" wlan-1-1
expect_open 1-1
expect_open second
cpctl client flush portal wlan-1-1
expect_shut 1-1
expect_shut second
