# The real servers: web and DNS upstream, DHCP, DNS and portal pages on the
# access point.
#
#   start_services            all of the below
#   start_upstream_web        nginx on 80 and 443 of every server address
#   start_upstream_dns        dnsmasq on 203.0.113.53, knows SERVER_NAMES and the
#                             names of upstream-names.conf and $CHOSEN_ANSWERS
#   start_access_point_dns    dnsmasq on the access point: DHCP .50 to .150, DNS
#   start_portal_web          nginx on every redirect port of the access point
#
# Pages are one line, so that an assertion can name the whole:
#   real server 203.0.113.10 port 80 asked for www.example.net/path
#   portal page on port 10081 for 192.168.100.61 asked for www.example.net/path
# /big is BIG_BYTES long (on portal ports 1000000), PUT /upload/NAME stores a file in $UPLOADS.

BIG_BYTES=$((16 * 1024 * 1024))
UPLOADS=/run/upstream-web/uploads

# Redirect ports: fixed and reputation ports, and 24 rows of 10081 + 10000 * radio + vap.
portal_http_ports() { echo 82 83 86 88 90 {1025..1041} {1,2,3}008{1..8}; }
portal_https_ports() { echo 84 87 89 91 {1042..1058} {10444..10451} {20444..20451} {30444..30451}; }

start_services() {
	start_upstream_dns
	start_upstream_web
	start_access_point_dns
	start_portal_web
}

# stream_of_bytes KEY BYTES FILE  repeatable, and without a period that equals a
# segment's length.  Made once in a boot, as encryption is slow under emulation.
stream_of_bytes() {
	[[ $(stat -c %s "$3" 2>/dev/null) != "$2" ]] || return 0
	mkdir -p "$(dirname "$3")"
	openssl enc -aes-128-ctr -nosalt -K "$1" -iv 00 -in <(head -c "$2" /dev/zero) -out "$3" 2>/dev/null
}

# One self-signed certificate serves a whole boot: making it is slow under emulation.
make_certificate() {
	[[ ! -s /run/lab-tls/key.pem ]] || return 0
	mkdir -p /run/lab-tls
	openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 3650 -subj /CN=lab \
		-keyout /run/lab-tls/key.pem -out /run/lab-tls/certificate.pem 2>/dev/null
}

listening() { [[ $("$@" ss -Hltn "sport = :$port") ]]; }

# nginx_configuration NAME WORKERS  everything outside of the server blocks.
nginx_configuration() {
	cat <<-END
		user root;
		worker_processes $2;
		pid /run/$1/nginx.pid;
		error_log $CASE_DIR/$1-error.log;
		events { worker_connections 2048; }
		http {
			access_log $CASE_DIR/$1-access.log;
			client_body_temp_path /run/$1/body;
			proxy_temp_path /run/$1/proxy;
			fastcgi_temp_path /run/$1/fastcgi;
			uwsgi_temp_path /run/$1/uwsgi;
			scgi_temp_path /run/$1/scgi;
			default_type text/plain;
			ssl_certificate /run/lab-tls/certificate.pem;
			ssl_certificate_key /run/lab-tls/key.pem;
			client_max_body_size 0;
			include /run/$1/servers.conf;
		}
	END
}

start_upstream_web() {
	make_certificate
	rm -rf /run/upstream-web
	mkdir -p "$UPLOADS"
	chmod 777 "$UPLOADS"
	stream_of_bytes 00 "$BIG_BYTES" /run/lab-files/upstream/big
	cat >/run/upstream-web/servers.conf <<-'END'
		server {
			listen 80 reuseport;
			listen 443 ssl reuseport;
			location / { return 200 "real server $server_addr port $server_port asked for $host$request_uri\n"; }
			location = /big { root /run/lab-files/upstream; }
			location /upload/ {
				alias /run/upstream-web/uploads/;
				dav_methods PUT;
			}
		}
	END
	nginx_configuration upstream-web 1 >/run/upstream-web/nginx.conf
	in_upstream nginx -c /run/upstream-web/nginx.conf
	local port=443
	wait_until 20 "the upstream web server listens" listening in_upstream
}

start_portal_web() {
	make_certificate
	rm -rf /run/portal-web
	mkdir -p /run/portal-web
	local port
	{
		echo 'server {'
		for port in $(portal_http_ports); do echo "listen $AP_ADDRESS:$port;"; done
		for port in $(portal_https_ports); do echo "listen $AP_ADDRESS:$port ssl;"; done
		echo 'location / { return 200 "portal page on port $server_port for $remote_addr asked for $host$request_uri\n"; }'
		echo 'location = /big { root /run/lab-files/portal; }'
		echo '}'
	} >/run/portal-web/servers.conf
	# A page of many segments, for replies that the stack sends in one large piece.
	stream_of_bytes 01 1000000 /run/lab-files/portal/big
	nginx_configuration portal-web 1 >/run/portal-web/nginx.conf
	nginx -c /run/portal-web/nginx.conf
	port=30451
	wait_until 20 "the portal web server listens" listening access_point
}

# Both DNS servers answer in 1,500 bytes to who can take them.  $upstream_dns_process and
# $access_point_dns_process forget all that they remember of others' answers on SIGHUP.
CHOSEN_ANSWERS=$CASE_DIR/chosen-answers

start_upstream_dns() {
	local name records=()
	for name in "${!SERVER_NAMES[@]}"; do records+=(--host-record="$name,${SERVER_NAMES[$name]}"); done
	: >>"$CHOSEN_ANSWERS"
	ip netns exec upstream dnsmasq --conf-file="$LAB/lib/upstream-names.conf" --addn-hosts="$CHOSEN_ANSWERS" \
		--no-resolv --no-hosts --no-daemon --user=root --listen-address="$UPSTREAM_DNS" --bind-interfaces \
		--edns-packet-max=1500 --log-queries --log-facility="$CASE_DIR/upstream-dns.log" "${records[@]}" \
		>>"$CASE_DIR/upstream-dns.log" 2>&1 &
	upstream_dns_process=$!
	local port=53
	wait_until 20 "the upstream DNS server listens" listening in_upstream
}

start_access_point_dns() {
	dnsmasq --conf-file=/dev/null --no-resolv --no-hosts --no-daemon --user=root --no-ping \
		--interface=br0 --except-interface=lo --bind-interfaces --server="$UPSTREAM_DNS" --log-queries --log-dhcp \
		--edns-packet-max=1500 --dhcp-authoritative --dhcp-leasefile="$CASE_DIR/dhcp.leases" \
		--dhcp-range=192.168.100.50,192.168.100.150,255.255.255.0,1h \
		--dhcp-option=option:router,"$GATEWAY_ADDRESS" --dhcp-option=option:dns-server,"$AP_ADDRESS" \
		--log-facility="$CASE_DIR/access-point-dns.log" >>"$CASE_DIR/access-point-dns.log" 2>&1 &
	access_point_dns_process=$!
	local port=53
	wait_until 20 "the access point's DNS server listens" listening access_point
}
