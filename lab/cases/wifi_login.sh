# Two clients on the air, one of them encrypted without a password: each joins, meets the login page, presses its button,
# reaches the page that it asked for, logs out, and meets the login page again.
#
#   client-1-1   eth0 ))  (( wlan-1-1  open  \
#                                             br0 -- uplink0 -- upstream
#   client-1-14  eth0 ))  (( wlan-1-14 OWE   /
#
# hostapd's configuration is that of docs/tutorial.md, companion included. Both clients look for the network's one name; who
# can encrypt is sent to the companion by what the open network's beacons say of it.

. "$LAB/lib/radios.sh"

# configuration_of_tutorial FILE  its blocks for that file, in the page's order.
configuration_of_tutorial() {
	awk -v file="# $1" '/^```/ { inside = 0 } inside { print } $0 == "```ini" { getline; inside = index($0, file) == 1 }' \
		/payload/docs/tutorial.md
}

page() { fetch "$@" 2>&1; }

# press CLIENT PAGE BUTTON  submits the form with that button, wherever it says that it goes.
press() {
	local action
	action=$(sed -n "s|.*<form method=post action=\\(/[a-z]*\\)>.*<button>$3</button>.*|\\1|p" <<<"$2")
	[[ $action ]] || fail "there is no button $3 on the page: $2"
	page "$1" "http://www.example.net$action" -X POST
}

# goes_in_and_out CLIENT  the way of one client, which is in the network.
goes_in_and_out() {
	local client=$1 mac first
	mac=$(mac_of "$client")

	step "$client: DHCP and DNS before login"
	get_address_by_dhcp "$client"
	expect_equal "the name's address" 203.0.113.10 "$(resolve "$client" www.example.net)"

	step "$client: another page than the one asked for"
	first=$(page "$client" "http://www.example.net/first-of-$client")
	expect_contains "the page" "<button>Log in</button>" "$first"
	expect_no_ping "$client" 203.0.113.10
	expect_failure cpctl client check login "$mac" wlan-1-1

	step "$client: the button"
	expect_equal "the answer" "You are logged in." "$(press "$client" "$first" "Log in")"
	expect_equal "the table" "$mac dev wlan-1-1 table login" "$(cpctl client show login)"
	expect_real_page "$client" "http://www.example.net/first-of-$client"
	expect_real_page "$client" https://www.example.com/open
	expect_ping "$client" 203.0.113.10

	step "$client: logout"
	expect_equal "the answer" "You are logged out." "$(page "$client" "http://$AP_ADDRESS:10081/logout" -X POST)"
	expect_equal "the table" "" "$(cpctl client show login)"
	expect_contains "the page" "<button>Log in</button>" "$(page "$client" "http://www.example.net/last-of-$client")"
	expect_no_ping "$client" 203.0.113.10
}

make_topology
make_radios 3
become_access_point wlan0 wlan-1-1 02:00:00:03:01:00
add_station 1-1 wlan1
add_station 1-14 wlan2
start_upstream_dns
start_upstream_web
start_access_point_dns

step "the module, before the radio is up"
load_module
cpctl interface set wlan-1-1 mode on block-https redirect
cpctl interface owe map wlan-1-14 wlan-1-1
/payload/bin/login_service wlan-1-1 &
wait_until 10 "the service listens" grep -q ':2761 ' /proc/net/tcp

step "hostapd"
configuration_of_tutorial /etc/hostapd/hostapd.conf >"$CASE_DIR/hostapd.conf"
expect_equal "networks of the tutorial's configuration" "wlan-1-1 wlan-1-14" \
	"$(sed -nE 's/^(interface|bss)=//p' "$CASE_DIR/hostapd.conf" | paste -sd ' ')"
# An emulated client takes longer to answer than the four seconds that hostapd waits for a key's acknowledgement.
echo wpa_pairwise_update_count=30 >>"$CASE_DIR/hostapd.conf"
start_hostapd "$CASE_DIR/hostapd.conf"
start_capture air access-point hwsim0

step "both clients join"
join 1-1 'ssid="Hotspot"' key_mgmt=NONE
expect_equal "the network of 1-1" "$(<"/sys/class/net/wlan-1-1/address") NONE" "$(station 1-1 bssid) $(station 1-1 key_mgmt)"
join 1-14 'ssid="Hotspot"' key_mgmt=OWE ieee80211w=2
expect_equal "the network of 1-14" "$(<"/sys/class/net/wlan-1-14/address") OWE" "$(station 1-14 bssid) $(station 1-14 key_mgmt)"

goes_in_and_out 1-1
goes_in_and_out 1-14

step "what was on the air"
stop_capture air
expect_success grep -qa 'GET /first-of-1-1 ' "$CASE_DIR/air.pcap"
expect_failure grep -qa 'first-of-1-14' "$CASE_DIR/air.pcap"
encrypted='type data and wlan[1] & 0x40 != 0'
expect_captured air "$encrypted and wlan addr2 $(mac_of 1-14)"
expect_not_captured air "$encrypted and wlan addr2 $(mac_of 1-1)"

step "without its pair the companion's clients are shut out, not let through"
cpctl interface owe flush
expect_no_connection 1-14 http://203.0.113.10/
expect_contains "the page of the other" "<button>Log in</button>" "$(page 1-1 http://www.example.net/still)"

leave 1-1
leave 1-14
