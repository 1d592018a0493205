# How a case tells what it does to somebody who watches.  Sourced by the cases
# of lab/story, after lab/lib/all.sh.
#
#   tell [LINE...]                  lines of the transcript
#   chapter TITLE                   the next step begins
#   as_client COMMAND... / as_access_point COMMAND...
#                                   told as typed, with what came back, which is
#                                   then in $output, and its end in $status
#   right WHAT WANTED GOT           told if so, fails the case if not
#   right_text WHAT PART TEXT       the same for a part of a text
#   right_frame WHAT CAPTURE FILTER a frame of this chapter matches; waits for it
#   frames CAPTURE [FILTER]         tells this chapter's frames, one a line
#   dhcp_frames CAPTURE             the same for DHCP, with the messages' kinds
#   count_between CAPTURE FROM TO FILTER   frames between two moments
#
# The transcript is the file $CASE_DIR/transcript.  Each line goes to the
# console as well, for the one who watches; nobody judges by what comes there.

TRANSCRIPT=$CASE_DIR/transcript
TRANSCRIPT_COLUMNS=100
CLIENT=1-1

tell() {
	local line
	(($#)) || set -- ''
	for line; do
		printf '%s\n' "$line" >>"$TRANSCRIPT"
		printf 'story| %s\n' "$line" >/dev/console || true
	done
}

# tell_indented TEXT  long lines are broken, not cut.
tell_indented() {
	local line
	while IFS= read -r line; do
		tell "${line:+    $line}"
	done < <(fold -s -w $((TRANSCRIPT_COLUMNS - 4)) <<<"$1")
}

chapter_number=0
chapter_began=$EPOCHREALTIME
chapter() {
	chapter_number=$((chapter_number + 1))
	chapter_began=$EPOCHREALTIME
	tell '' "--- $chapter_number. $1 ---" ''
}

as_typed() {
	local word line=
	for word; do
		[[ $word =~ ^[A-Za-z0-9_./:=,@%+-]+$ ]] || word="'$word'"
		line+=" $word"
	done
	printf '%s' "${line# }"
}

# run_and_tell PROMPT RUNNER COMMAND...  RUNNER is what goes before COMMAND to
# get it to its place.
run_and_tell() {
	local prompt=$1 runner
	read -ra runner <<<"$2"
	shift 2
	tell "  $prompt\$ $(as_typed "$@")"
	status=0
	output=$("${runner[@]}" "$@" 2>&1) || status=$?
	output=${output//$'\r'/}
	tell_indented "${output:-(no output)}"
	((status == 0)) || tell "    (exit status $status)"
}

as_client() { run_and_tell client "in_client $CLIENT" "$@"; }
as_access_point() { run_and_tell access-point access_point "$@"; }

right() {
	expect_equal "$1" "$2" "$3"
	tell "  ok  $1"
}

right_text() {
	expect_contains "$1" "$2" "$3"
	tell "  ok  $1"
}

# --- frames -------------------------------------------------------------------

# timed_frames CAPTURE FILTER [-v]  with moments as in $EPOCHREALTIME.  A capture
# that still runs may end in half a frame, which is no failure.
timed_frames() { tcpdump -n -e -tt ${3-} -r "$CASE_DIR/$1.pcap" "$2" 2>/dev/null || true; }

chapter_frames() { timed_frames "$1" "${2-}" | awk -v from="$chapter_began" '$1 >= from'; }

chapter_has_frame() { [[ $(chapter_frames "$@") ]]; }

right_frame() {
	wait_until 10 "$1: a frame in the capture $2 that matches: $3" chapter_has_frame "$2" "$3"
	tell "  ok  $1"
}

# in_columns  rows "from-MAC to-MAC from to what" for the reader's eye.
in_columns() {
	awk -v columns="$TRANSCRIPT_COLUMNS" '
		{
			mac[NR] = $1 " > " $2
			address[NR] = $3 " > " $4
			if (length(address[NR]) > width) width = length(address[NR])
			$1 = $2 = $3 = $4 = ""
			sub(/^ +/, "")
			what[NR] = $0
		}
		END {
			for (row = 1; row <= NR; row++)
				print substr(sprintf("%s  %-*s  %s", mac[row], width, address[row], what[row]), 1, columns - 2)
		}'
}

tell_rows() {
	local row none=1
	while IFS= read -r row; do
		tell "  $row"
		none=
	done
	[[ ! $none ]] || tell "  (none)"
}

frames() {
	tell_rows < <(chapter_frames "$@" | awk '
		# 192.0.2.1.80 is an address and its port.
		function endpoint(text, part) {
			return split(text, part, ".") == 5 ? part[1] "." part[2] "." part[3] "." part[4] ":" part[5] : text
		}
		function tcp(text, flags, names, bytes) {
			flags = text
			sub(/^Flags \[/, "", flags)
			sub(/\].*/, "", flags)
			bytes = text
			sub(/.*, length /, "", bytes)
			if (bytes ~ /: HTTP: (GET|PUT|POST) /) {
				sub(/.*: HTTP: /, "", bytes)
				sub(/ HTTP\/1.*/, "", bytes)
				return bytes
			}
			if (bytes ~ /: HTTP: HTTP\/1/) {
				sub(/.*HTTP\/1.[01] /, "", bytes)
				return bytes
			}
			if (bytes + 0) return "data, " (bytes + 0) " bytes"
			if (flags ~ /S/) names = names "+SYN"
			if (flags ~ /F/) names = names "+FIN"
			if (flags ~ /R/) names = names "+RST"
			if (flags ~ /\./) names = names "+ACK"
			return substr(names, 2)
		}
		function dns(text) {
			sub(/^[0-9]+[^ ]* /, "", text)
			sub(/^\[[^]]*\] /, "", text)
			sub(/^[0-9]+\/[0-9]+\/[0-9]+ /, "", text)
			sub(/ \([0-9]+\)$/, "", text)
			sub(/\.$/, "", text)
			return text
		}
		{
			line = $0
			sub(/^.*, ethertype [^,]*, length [0-9]+: /, "", line)
			count = split(line, word, " ")
			if (word[2] != ">") next
			from = endpoint(word[1])
			sub(/:$/, "", word[3])
			to = endpoint(word[3])
			what = line
			sub(/^[^ ]+ > [^ ]+: /, "", what)
			if (what ~ /^Flags/) what = tcp(what)
			else if (what ~ /^ICMP/) sub(/, id .*/, "", what)
			else if (from ~ /:53$/ || to ~ /:53$/) what = dns(what)
			sub(/,$/, "", $4)
			print $2, $4, from, to, what
		}' | in_columns)
}

dhcp_frames() {
	tell_rows < <(timed_frames "$1" "udp port 67 or udp port 68" -v | awk -v from="$chapter_began" '
		/ethertype IPv4/ { wanted = $1 >= from; source = $2; target = $4; sub(/,$/, "", target) }
		/BOOTP\/DHCP/ { ip = $1; to = $3; sub(/\.[0-9]+$/, "", ip); sub(/\.[0-9]+:$/, "", to) }
		/DHCP-Message/ && wanted { print source, target, ip, to, "DHCP " tolower($NF) }' | in_columns)
}

count_between() {
	timed_frames "$1" "$4" | awk -v from="$2" -v to="$3" '$1 >= from && $1 < to { count++ } END { print count + 0 }'
}
