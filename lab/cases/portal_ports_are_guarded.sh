# The access point's own portal ports are closed to the wired side, to clients
# of other interfaces, and, the fixed ones, to clients without a portal; other
# ports of the access point are not.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2  br0 -- uplink0 -- upstream
#   client-lan0 eth0 ---- lan0  /

make_topology 1-1 1-2 lan0
start_portal_web
give_address 1-1 61
give_address 1-2 62
give_address lan0 63
python3 -m http.server --bind "$AP_ADDRESS" --directory /payload/lab/lib 8000 >/dev/null 2>&1 &
port=8000
wait_until 20 "a web server that is not the portal's listens" listening access_point
expect_portal_page lan0 "http://$AP_ADDRESS:10081/unguarded" 10081

load_module
step "wired side"
expect_no_connections lan0 "http://$AP_ADDRESS":{82,83,86,90,10081,20083,30088}/ \
	"https://$AP_ADDRESS":{84,87,91,10444,30451}/
expect_portal_page lan0 "http://$AP_ADDRESS:88/" 88
expect_contains "another port" all.sh "$(fetch lan0 "http://$AP_ADDRESS:8000/")"

step "wireless side, portal off"
expect_no_connections 1-2 "http://$AP_ADDRESS":{82,83,90,10081,20082}/
expect_portal_page 1-2 "http://$AP_ADDRESS:86/" 86
expect_portal_page 1-2 "http://$AP_ADDRESS:10082/own" 10082
expect_contains "another port" all.sh "$(fetch 1-2 "http://$AP_ADDRESS:8000/")"

step "wireless side, portal on, logged in"
cpctl interface set wlan-1-1 mode on
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_portal_page 1-1 "http://$AP_ADDRESS:82/" 82
expect_portal_page 1-1 "http://$AP_ADDRESS:10081/own" 10081
expect_no_connection 1-1 "http://$AP_ADDRESS:10082/"

step "wireless side, portal on, not logged in: even its own port is reached by redirect only"
cpctl client flush login wlan-1-1
expect_no_connection 1-1 "http://$AP_ADDRESS:10081/"
expect_portal_page 1-1 http://203.0.113.10/asked 10081
