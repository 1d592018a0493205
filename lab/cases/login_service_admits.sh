# The example of a login service: its page is the first that a client meets,
# its button lets the client in, and so it goes out again. The service holds the
# control device only while it changes something.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_upstream_dns
start_upstream_web
start_access_point_dns
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
mac=$(mac_of 1-1)

/payload/bin/login_service wlan-1-1 &
service=$!
wait_until 10 "the service listens" grep -q ':2761 ' /proc/net/tcp

page() { in_client 1-1 curl -sS -m 30 "$@"; }

step "the button instead of the page"
expect_contains "the page" "<button>Log in</button>" "$(page http://www.example.net/first)"
expect_failure cpctl client check login "$mac" wlan-1-1

step "login"
expect_equal "the answer" "You are logged in." "$(page -X POST http://www.example.net/login)"
expect_success cpctl client check login "$mac" wlan-1-1
expect_real_page 1-1 http://www.example.net/open

step "a second press changes nothing"
expect_equal "the answer" "You are logged in." "$(page -X POST http://192.168.100.1:10081/login)"
expect_equal "the table" "$mac dev wlan-1-1 table login" "$(cpctl client show login)"

step "logout"
expect_equal "the answer" "You are logged out." "$(page -X POST http://192.168.100.1:10081/logout)"
expect_failure cpctl client check login "$mac" wlan-1-1
expect_contains "the page" "<button>Log in</button>" "$(page http://www.example.net/last)"

step "another program has the device for good"
exec {device}<>/dev/CP_dev
expect_contains "the answer" "This did not work." "$(page -X POST http://www.example.net/login)"
exec {device}>&-
expect_equal "the answer" "You are logged in." "$(page -X POST http://www.example.net/login)"
kill "$service"
wait "$service" || true
