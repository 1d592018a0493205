# The probes by which phones and desktops find a portal, one row each of the table in docs/portal-probes.md: before login
# each meets the portal's page, after login what its system waits for; and what hides the portal from them.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream: a server for each host of the table

PROBES_SERVER=203.0.113.20
APPLES_SERVER=203.0.113.40

systems=() urls=() hosts=() paths=() headers=() statuses=() manners=() bodies=()

# read_probes PAGE  the rows of its table that ask for something. No program is started for one, here and below: that costs.
read_probes() {
	local _ system url header online rest
	while IFS='|' read -r _ system url header online _; do
		[[ $online =~ ^([0-9]{3})(, (being|beginning with) \`(.*)\`)?$ ]] || fail "$system: what is '$online'?"
		statuses+=("${BASH_REMATCH[1]}") manners+=("${BASH_REMATCH[3]}") bodies+=("${BASH_REMATCH[4]}")
		systems+=("$system") urls+=("${url//\`/}") headers+=("${header//\`/}")
		rest=${urls[-1]#*://}
		hosts+=("${rest%%/*}")
		rest=/${rest#*/}
		paths+=("${rest%%\?*}")
	done < <(grep -E '^\|[^|]*\| `https?://' "$1" | sed -E 's/ *\| */|/g')
}

# The answers that the systems wait for, at the hosts and paths that they ask, and nothing else.
start_makers_web() {
	local row host body
	local -A locations=()
	openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 3650 -subj /CN=www.google.com \
		-addext subjectAltName=DNS:www.google.com -keyout "$CASE_DIR/key.pem" -out "$CASE_DIR/certificate.pem" 2>/dev/null
	for row in "${!urls[@]}"; do
		body=${bodies[row]}
		locations[${hosts[row]}]+="location = ${paths[row]} { return ${statuses[row]} '$body${body:+\n}'; }"$'\n'
	done
	for host in "${!locations[@]}"; do
		echo "server { listen 80; listen 443 ssl; server_name $host;"
		echo "ssl_certificate $CASE_DIR/certificate.pem; ssl_certificate_key $CASE_DIR/key.pem;"
		echo "${locations[$host]}}"
	done >>/run/upstream-web/servers.conf
	in_upstream nginx -c /run/upstream-web/nginx.conf -s reload
	wait_until 20 "the makers' server answers" makers_answer
}

makers_answer() {
	[[ $(in_upstream curl -sS -m 5 --resolve "www.msftncsi.com:80:$PROBES_SERVER" http://www.msftncsi.com/ncsi.txt) == "Microsoft NCSI" ]]
}

# ask ROW...  as their systems do, by one program: each start of one costs. How curl ended, the status and the body of the
# answer are then in $ended, $got_status and $got, by row.
ended=() got_status=() got=()
ask() {
	local row next='' said
	for row; do
		printf '%s' "$next"
		next=$'next\n'
		printf '%s\n' silent "url = \"${urls[row]}\"" "max-time = $FETCH_SECONDS" "cacert = $CASE_DIR/certificate.pem" \
			"output = $CASE_DIR/answer-$row" 'write-out = "%{exitcode} %{http_code}\n"'
		[[ ! ${headers[row]} ]] || echo "header = \"${headers[row]}\""
	done >"$CASE_DIR/curl.conf"
	rm -f "$CASE_DIR"/answer-*
	# All that it says is read before any answer: the last bytes of a file may come after what is said of it.
	said=$(in_client 1-1 curl -q -K "$CASE_DIR/curl.conf" || true)
	for row; do
		read -r "ended[$row]" "got_status[$row]"
		got[row]=$(cat "$CASE_DIR/answer-$row" 2>/dev/null || true)
	done <<<"$said"
}

# online ROW  what its system would say of the answer.
online() {
	[[ ${got_status[$1]} == "${statuses[$1]}" ]] || return
	case ${manners[$1]} in
	being) [[ ${got[$1]} == "${bodies[$1]}" ]] ;;
	"beginning with") [[ ${got[$1]} == "${bodies[$1]}"* ]] ;;
	esac
}

expect_online() {
	local row
	ask "$@"
	for row; do
		online "$row" || fail "${systems[row]} should be online, got of ${urls[row]}: ${got_status[row]} ${got[row]}"
		printf '    %s: %s -> online\n' "${systems[row]}" "${urls[row]}"
	done
}

# A plain probe meets the portal's page, the other one a server that has no right to the name.
expect_portal_found() {
	local row
	ask "$@"
	for row; do
		if online "$row"; then fail "${systems[row]} should not be online by ${urls[row]}"; fi
		case ${urls[row]} in
		https:*) expect_equal "how curl ended for ${urls[row]}: 60 is a wrong certificate" 60 "${ended[row]}" ;;
		*) expect_equal "what ${systems[row]} gets" \
			"200 portal page on port 10081 for 192.168.100.61 asked for ${urls[row]#*://}" \
			"${got_status[row]} ${got[row]}" ;;
		esac
		printf '    %s: %s -> not online\n' "${systems[row]}" "${urls[row]}"
	done
}

# row_of URL  in $REPLY.
row_of() {
	for REPLY in "${!urls[@]}"; do
		[[ ${urls[REPLY]} != "$1" ]] || return 0
	done
	fail "the table has no row for $1"
}

read_probes /payload/docs/portal-probes.md
expect_equal "rows of the table" "$(grep -c '^| .*`http' /payload/docs/portal-probes.md)" "${#urls[@]}"
row_of http://captive.apple.com/hotspot-detect.html && apple=$REPLY
row_of http://connectivitycheck.gstatic.com/generate_204 && android=$REPLY
row_of https://www.google.com/generate_204 && android_https=$REPLY
for host in "${hosts[@]}"; do SERVER_NAMES[$host]=$PROBES_SERVER; done
# What opens this one must not open all.
SERVER_NAMES[captive.apple.com]=$APPLES_SERVER
SERVER_NAMES[www.apple.com]=$APPLES_SERVER
SERVER_NAMES[dns.msftncsi.com]=131.107.255.255

make_topology 1-1
start_services
start_makers_web
give_address 1-1 61
load_module
mac=$(mac_of 1-1)

step "before login: ${#urls[@]} probes"
cpctl interface set wlan-1-1 mode on block-https redirect
expect_portal_found "${!urls[@]}"
expect_equal "the name that Windows asks for" 131.107.255.255 "$(resolve 1-1 dns.msftncsi.com)"

step "after login"
cpctl client add login "$mac" wlan-1-1
expect_online "${!urls[@]}"

step "after logout"
cpctl client del login "$mac" wlan-1-1
expect_portal_found "${!urls[@]}"

step "HTTPS that passes makes one of Android's two probes believe that all is well"
cpctl interface set wlan-1-1 block-https pass
expect_online "$android_https"
expect_portal_found "$android"
cpctl interface set wlan-1-1 block-https redirect

step "a garden that frees a probe's host hides the portal from its system, and from no other"
cpctl garden replace wlan-1-1 on '*.apple.com'
expect_online "$apple"
expect_portal_found "$android"
cpctl garden replace wlan-1-1 off

step "mode drop-tcp: no answer, and so no portal"
cpctl interface set wlan-1-1 mode drop-tcp
expect_no_connections 1-1 "${urls[apple]}" "${urls[android]}"
