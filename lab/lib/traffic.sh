# What clients do, and what must come of it.
#
#   get_address_by_dhcp CLIENT        a real DHCP client; fails if no lease comes
#   has_no_dhcp CLIENT                true if no lease comes
#   address_of CLIENT                 its IPv4 address
#   resolve CLIENT NAME [TYPE]        what DNS answers, or nothing
#   fetch CLIENT URL [CURL_ARGUMENT...]       the body; fails if none came
#   expect_page CLIENT URL BODY [...]         the body is exactly BODY
#   expect_real_page CLIENT URL [...]         the page of the server that was asked
#   expect_portal_page CLIENT URL PORT [...]  the portal's page of that port
#   expect_no_connection CLIENT URL [...]     no TCP connection comes about
#   expect_no_connections CLIENT URL...       the same for each of them, all at once
#   expect_ping CLIENT ADDRESS / expect_no_ping CLIENT ADDRESS
#
# Emulated machines are slow: what must come has FETCH_SECONDS, what must not
# come is believed after SILENCE_SECONDS (two TCP attempts).

FETCH_SECONDS=30
SILENCE_SECONDS=2.5

get_address_by_dhcp() {
	in_client "$1" busybox udhcpc -i eth0 -n -q -f -t 8 -T 1 -s "$LAB/lib/udhcpc-script" 2>&1
}

has_no_dhcp() {
	! in_client "$1" busybox udhcpc -i eth0 -n -q -f -t 3 -T 1 -s "$LAB/lib/udhcpc-script" 2>&1
}

address_of() { ip -n "client-$1" -4 -o address show dev eth0 | sed -n 's/.* inet \([0-9.]*\).*/\1/p'; }

resolve() { in_client "$1" dig +short +tries=2 +time=3 "$2" "${3:-A}"; }

fetch() {
	local client=$1 url=$2
	shift 2
	in_client "$client" curl -q -sS -k --max-time "$FETCH_SECONDS" "$@" "$url"
}

expect_page() {
	local client=$1 url=$2 wanted=$3 got
	shift 3
	got=$(fetch "$client" "$url" "$@" 2>&1) || fail "client $client got no page from $url: $got"
	expect_equal "page that client $client gets from $url" "$wanted" "$got"
	printf '    %s: %s -> %s\n' "$client" "$url" "$got"
}

# asked_for URL  "host/path" of a URL, as the pages print it.
asked_for() {
	local rest=${1#*://}
	local host=${rest%%/*} path=/
	[[ $rest != */* ]] || path=/${rest#*/}
	echo "${host%%:*}$path"
}

# server_of URL  the address behind a URL's host.
server_of() {
	local host
	host=$(asked_for "$1")
	host=${host%%/*}
	echo "${SERVER_NAMES[$host]:-$host}"
}

default_port() { case $1 in https:*) echo 443 ;; *) echo 80 ;; esac; }

expect_real_page() {
	local client=$1 url=$2
	shift 2
	expect_page "$client" "$url" \
		"real server $(server_of "$url") port $(default_port "$url") asked for $(asked_for "$url")" "$@"
}

expect_portal_page() {
	local client=$1 url=$2 port=$3
	shift 3
	expect_page "$client" "$url" \
		"portal page on port $port for $(address_of "$client") asked for $(asked_for "$url")" "$@"
}

expect_no_connection() {
	local client=$1 url=$2 status=0 got
	shift 2
	got=$(in_client "$client" curl -q -sS -k -o /dev/null -w 'code %{http_code} from %{remote_ip}' \
		--connect-timeout "$SILENCE_SECONDS" --max-time "$FETCH_SECONDS" "$@" "$url" 2>&1) || status=$?
	# 28 is curl's "timed out"; a refused connection (7) would be an answer too.
	((status == 28)) || fail "client $client should get no answer from $url, curl ended with $status: $got"
	expect_contains "curl of client $client to $url" 'code 000' "$got"
	printf '    %s: %s -> nothing\n' "$client" "$url"
}

expect_no_connections() {
	local client=$1 url tries=() try
	shift
	for url; do
		expect_no_connection "$client" "$url" &
		tries+=($!)
	done
	for try in "${tries[@]}"; do wait "$try" || fail "client $client should reach none of: $*"; done
}

expect_ping() {
	in_client "$1" ping -n -q -c 2 -i 0.2 -W 5 "$2" >/dev/null || fail "client $1 should reach $2 by ping"
}

expect_no_ping() {
	if in_client "$1" ping -n -q -c 2 -i 0.2 -W 1 "$2" >/dev/null; then
		fail "client $1 should not reach $2 by ping"
	fi
}
