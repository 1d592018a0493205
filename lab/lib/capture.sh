# Captures, which the host gets back as files for a packet viewer.
#
#   start_capture NAME PLACE DEVICE [FILTER]   PLACE is "access-point", "upstream"
#                                              or a client; ends with the case
#   stop_capture NAME
#   captured NAME [FILTER]                     its frames, one a line, with addresses
#   count_captured NAME [FILTER]
#   expect_captured NAME FILTER                at least one frame; waits for it
#   expect_not_captured NAME FILTER            none; meant for after stop_capture
#   expect_replies_rewritten NAME              no handshake and no data from the
#                                              access point's own address; what it
#                                              sends after its FIN leaves as it is
#
# Frames are kept up to 2,048 bytes: a longer slot would leave room for few of them.

declare -A capture_processes=()

start_capture() {
	local name=$1 place=$2 device=$3 filter=${4-} prefix=()
	case $place in
	access-point) ;;
	upstream) prefix=(ip netns exec upstream) ;;
	*) prefix=(ip netns exec "client-$place") ;;
	esac
	"${prefix[@]}" tcpdump -i "$device" --immediate-mode -U -B 16384 -s 2048 -n -Z root -w "$CASE_DIR/$name.pcap" \
		$filter 2>"$CASE_DIR/$name.tcpdump.log" &
	capture_processes[$name]=$!
	wait_until 20 "the capture $name runs" grep -q 'listening on' "$CASE_DIR/$name.tcpdump.log"
}

# tcpdump counts what it has seen only when it ends in peace.
stop_capture() {
	kill -INT "${capture_processes[$1]}"
	wait "${capture_processes[$1]}" || true
	unset "capture_processes[$1]"
	! grep -q '^[1-9][0-9]* packets dropped by kernel' "$CASE_DIR/$1.tcpdump.log" ||
		fail "the capture $1 is not whole: $(tail -n 3 "$CASE_DIR/$1.tcpdump.log")"
}

captured() { tcpdump -n -e -r "$CASE_DIR/$1.pcap" ${2-} 2>/dev/null; }

count_captured() { captured "$@" | wc -l; }

# A capture that still runs may end in half a frame, which tcpdump complains of.
has_captured() { (($(count_captured "$@" || true) > 0)); }

expect_captured() { wait_until 10 "capture $1 shows a frame that matches: $2" has_captured "$1" "$2"; }

expect_not_captured() {
	local frames
	frames=$(captured "$1" "$2")
	[[ -z $frames ]] || fail "capture $1 should show no frame that matches '$2', but: $frames"
}

# Of a reply, what the rewrite does for certain: handshake and data. It ends with the FIN, so one that is sent again leaves
# as it is, and so does an acknowledgement behind it, whatever its options.
HAS_DATA='ip[2:2] - ((ip[0] & 0xf) << 2) - ((tcp[12] & 0xf0) >> 2) != 0'
OF_A_REPLY="tcp and (tcp[tcpflags] & tcp-syn != 0 or ($HAS_DATA and tcp[tcpflags] & tcp-fin == 0))"

expect_replies_rewritten() { expect_not_captured "$1" "src $AP_ADDRESS and $OF_A_REPLY"; }
