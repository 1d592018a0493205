# What cpctl watches: the address cache with real DNS answers, without a trace in
# the listing of the proc file; what the module writes into the kernel log while
# a client is redirected; and what is wrong with the machine.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# Time limit: 360 seconds, for emulated machines on a busy host.

make_topology 1-1
start_upstream_dns
start_upstream_web
start_access_point_dns
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.example.org'
cpctl mirel garden replace on www.example.net

asks() { in_client 1-1 dig +short +tries=2 +time=3 "$@" >/dev/null; }
# without_time  the lines of "cache show" without what is left of an address's life
without_time() { sed 's/ left [0-9]*s / /'; }
# starts FILE COMMAND...   in the background, with its answer in the file; $watcher is the process
starts() {
	local answer=$1
	shift
	: >"$answer"
	/payload/bin/cpctl "$@" >"$answer" &
	watcher=$!
}
# ends_with STATUS  how the process in the background ended
ends_with() {
	local status=0
	wait "$watcher" || status=$?
	expect_equal "status of what ran in the background" "$1" "$status"
}

step "the cache, listed and selected"
expect_equal "an empty cache" "" "$(cpctl cache show)"
expect_equal "an empty cache in JSON" '{"addresses":[]}' "$(cpctl -j cache show)"
asks www.example.net www.example.com garden.example.org
www="203.0.113.10 gardens mirel
    www.example.net"
com="203.0.113.20 gardens none
    www.example.com"
garden="203.0.113.30 gardens wlan-1-1
    garden.example.org"
expect_equal "the cache" "$www
$com
$garden" "$(cpctl cache show | without_time)"
expect_equal "of an interface" "$garden" "$(cpctl cache show wlan-1-1 | without_time)"
expect_equal "of MIREL" "$www" "$(cpctl cache show mirel | without_time)"
expect_equal "by name" "$com" "$(cpctl cache show --name 'WWW.*.com' | without_time)"
expect_equal "by address" "$garden" "$(cpctl cache show --address 203.0.113.30 | without_time)"
expect_contains "JSON" '"gardens":["mirel"],"names":["www.example.net"]}' "$(cpctl -j cache show)"

step "who reads the proc file sees nothing of it"
select_summary all
size=$(listing=$(read_summary) && head -n 4 <<<"$listing" | wc -c)
select_summary all
first=$(read_summary "$size")
expect_contains "the first piece" "IP=203.0.113.10," "$first"
expect_lacks "the first piece" "IP=203.0.113.30," "$first"
expect_equal "marks" "203.0.113.10 1 203.0.113.20 0 203.0.113.30 0" \
	"$(echo $(sed -n 's/^cached address=\([^ ]*\) .* shown=/\1 /p' /proc/captive_portal/cache))"
cpctl cache show >/dev/null
cpctl -j cache show >/dev/null
rest=$(read_summary)
expect_lacks "the rest" "IP=203.0.113.10," "$rest"
expect_contains "the rest" "IP=203.0.113.30," "$rest"
cpctl cache show >/dev/null
expect_equal "what is left" "$(empty_summary all)" "$(read_summary)"

# begins  asks for names that nobody asked for before, until the watcher has seen one come: then it looks.
names=0
begins() {
	names=$((names + 1))
	asks "n$names.wild.example.org"
	[[ -s $CASE_DIR/followed ]]
}
told() { grep -E -- "$1" "$CASE_DIR/followed" >/dev/null; }

step "what comes and goes"
starts "$CASE_DIR/followed" cache follow --interval 0.1 --name '*.example.org'
wait_until 60 "a name that comes is seen" begins
expect_contains "the first line" "+ 203.0.113.30 n" "$(head -n 1 "$CASE_DIR/followed")"
cpctl garden replace wlan-1-1 on one.example.org
wait_until 60 "gardens that go are seen" told '^- 203.0.113.30 garden.example.org gardens wlan-1-1$'
wait_until 60 "what stays is seen" told '^\+ 203.0.113.30 garden.example.org gardens none$'
asks one.example.org www.example.com
wait_until 60 "an address that comes is seen" told '^\+ 198.51.100.30 one.example.org gardens wlan-1-1$'
# Where time costs nothing: the thread looks once a minute.
if grep -q 'User Mode Linux' /proc/cpuinfo; then
	shift_clock 3600
	wait_until 150 "an address that expires is seen" told '^- 198.51.100.30 one.example.org gardens wlan-1-1$'
	shift_clock 0
fi
kill -INT "$watcher"
ends_with 0
expect_equal "other names" "" "$(grep -v '\.example\.org gardens ' "$CASE_DIR/followed" || true)"

step "in JSON, until the module goes"
starts "$CASE_DIR/followed" -j cache follow --interval 0.1
wait_until 60 "a name that comes is seen" begins
expect_contains "JSON" '{"event":"add","address":"203.0.113.30","name":"n' "$(head -n 1 "$CASE_DIR/followed")"
unload_module
ends_with 3
load_module
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on garden.example.org
asks garden.example.org

step "a client is redirected, and logs in"
start_portal_web
cpctl debug 3
starts "$CASE_DIR/followed" monitor --all
expect_portal_page 1-1 http://2.2.2.2/social 83
expect_no_connection 1-1 https://203.0.113.20/
asks mail.example.org
cpctl client add login "$(mac_of 1-1)" wlan-1-1
cpctl interface set wlan-1-1 block-https 99999
address=$(address_of 1-1)
for sentence in \
	"^\[ *[0-9]+\.[0-9]{6}\] the module starts\$" \
	"\] wlan-1-1: mode on asked for\$" \
	"\] a name server answered for mail.example.org, gardens none\$" \
	"\] redirected to port 83: $address:[0-9]+, which asked for the social-login address\$" \
	"\] social-login: connection of $address:[0-9]+ to 2.2.2.2:80 recorded, to be redirected\$" \
	"\] wlan-1-1: dropped: HTTPS of $address to 203.0.113.20, before login\$" \
	"\] client $(mac_of 1-1) logs in\$" \
	"\] wlan-1-1: block-https 99999 asked for\$"; do
	wait_until 60 "the monitor says: $sentence" told "$sentence"
done
kill -INT "$watcher"
ends_with 0
echo 'dns query parsing failed' >/dev/kmsg
expect_equal "what others write in the module's words" "" \
	"$(cpctl monitor --all --seconds 0 | grep 'its question cannot be read' || true)"
expect_contains "JSON" '"event":"setting"' "$(cpctl -j monitor --all --seconds 0)"
expect_contains "JSON" '"fields":{"setting":"mode","interface":"wlan-1-1","value":"on"}' "$(cpctl -j monitor --all --seconds 0)"
expect_equal "lines that it was asked for" 5 "$(cpctl monitor --all --count 5 | wc -l)"
expect_equal "what it hears of nothing" "" "$(cpctl debug 0; cpctl monitor --seconds 0.2)"

step "the machine is looked at"
cpctl interface set wlan-1-1 block-https block
looked() { cpctl check 2>/dev/null || true; }
findings=$(looked)
for finding in "br0: " "wlan-1-1: " "/dev/CP_dev: " "captive_portal: "; do
	expect_lacks "findings" "$finding" "$findings"
done
ip address del 192.168.100.1/24 dev br0
expect_contains "findings" "br0: has no IPv4 address, so clients are not sent to the portal: ip address add " "$(looked)"
status=0
cpctl check >/dev/null 2>&1 || status=$?
expect_equal "status" 2 "$status"
ip address add 192.168.100.1/24 dev br0
expect_lacks "findings" "br0: " "$(looked)"
kill "$(cat /run/portal-web/nginx.pid)"
wait_until 20 "the portal's pages are gone" test ! -e /run/portal-web/nginx.pid
expect_contains "findings" "wlan-1-1: nobody listens on port 10081, to which web requests before login are sent" "$(looked)"
ip link set wlan-1-1 nomaster
expect_contains "findings" "wlan-1-1: is no port of a bridge" "$(looked)"
ip link set wlan-1-1 master br0
expect_lacks "findings" "wlan-1-1: is no port" "$(looked)"
chmod 0666 /dev/CP_dev
expect_contains "findings" "/dev/CP_dev: everybody may open it" "$(looked)"
chmod 0600 /dev/CP_dev
if nft 'table bridge lab_marks { chain forward { type filter hook forward priority 0; meta mark set 5200; }; }' 2>/dev/null; then
	expect_contains "findings" "nft bridge lab_marks forward: a rule sets mark 5200, by which the module knows a client of wlan-1-1" "$(looked)"
	nft delete table bridge lab_marks
	expect_lacks "findings" lab_marks "$(looked)"
fi
if modprobe nf_flow_table_inet 2>/dev/null &&
	nft 'table inet lab_flows { flowtable fast { hook ingress priority 0; devices = { wlan-1-1, uplink0 }; }; }' 2>/dev/null; then
	expect_contains "findings" "wlan-1-1: the flow table 'inet lab_flows fast' carries its connections past the portal" "$(looked)"
	nft delete table inet lab_flows
fi
unload_module
expect_contains "findings" "captive_portal: the module is not loaded" "$(looked)"
expect_contains "findings in JSON" '{"check":"module","subject":"captive_portal",' "$(cpctl -j check 2>/dev/null || true)"
