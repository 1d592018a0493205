# What cpctl shows on a terminal, for the pictures of docs/screens. Each command and its answer, colours included, becomes
# the file NAME.screen.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-2-3 eth0 -- wlan-2-3 /

# screen NAME COMMAND...  its exit code is part of the picture where it is not 0.
screen() {
	local file=$CASE_DIR/$1.screen status=0
	shift
	printf '# %s\n' "$*" >"$file"
	"$1" --color always "${@:2}" >>"$file" 2>&1 || status=$?
	((status == 0)) || printf '(exit code %d)\n' "$status" >>"$file"
}

make_topology 1-1 2-3
start_services
give_address 1-1 61
give_address 2-3 63
load_module
cpctl interface set wlan-1-1 mode on block-https redirect logout 192.0.2.1
cpctl interface set wlan-2-3 mode internet-passes
cpctl garden replace wlan-1-1 on '*.example.org' 198.51.100.0/24
cpctl client add login "$(mac_of 2-3)" wlan-2-3
cpctl client add white 02:00:5e:10:00:09 wlan-1-1

in_client 1-1 dig +short garden.example.org >/dev/null
in_client 1-1 curl -sS http://www.example.net/ >/dev/null
in_client 1-1 ping -c 2 -W 1 203.0.113.10 >/dev/null || true
in_client 2-3 curl -sS http://www.example.net/ >/dev/null

screen status cpctl status -s
screen explain cpctl explain dev wlan-1-1 from "$(mac_of 1-1)" tcp 192.168.100.61 203.0.113.10 port 80 syn
screen garden cpctl garden add wlan-1-1 'captive.apple.com' '*example.com'
cpctl garden replace wlan-1-1 on '*.example.org' 198.51.100.0/24
screen check cpctl check
screen refusal cpctl client add login 01:00:5e:00:00:01 wlan-1-1
cpctl save "$CASE_DIR/saved"
sed -i 's/mode on/mode off/' "$CASE_DIR/saved"
screen restore cpctl restore "$CASE_DIR/saved" --dry-run
