# The walled garden by name: names whose answers the case chooses, what the
# module has cached of answers, and answers that no server gave.
#
#   answer_with NAME ADDRESS...       from now on upstream DNS answers so, and nobody
#                                     remembers what it said before
#   listed TARGET                     all that the proc file lists for TARGET, without
#                                     the times: "ADDRESS interfaces: NAME NAME..."
#   expect_listed TARGET [LINE...]    exactly these lines, in any order
#   timeout_of ADDRESS                its deadline, in seconds of the wall clock
#   shift_clock SECONDS               the wall clock, so far from the right time; it is
#                                     right again when the case ends
#   send_answers CLIENT NAME TTL ADDRESS|xCOUNT...
#                                     forged DNS answers from the access point to a
#                                     client; xCOUNT are that many made-up addresses
#
# Chosen answers live for 60 seconds.  They stand in $CHOSEN_ANSWERS, which
# start_upstream_dns reads.

answer_with() {
	local name=$1 address
	shift
	{
		grep -v " $name\$" "$CHOSEN_ANSWERS" || true
		for address; do echo "$address $name"; done
	} >"$CHOSEN_ANSWERS.new"
	# The server follows the file by its name; a signal makes it read, and both servers forget.
	mv "$CHOSEN_ANSWERS.new" "$CHOSEN_ANSWERS"
	kill -HUP "$upstream_dns_process" "$access_point_dns_process"
	wait_until 10 "upstream DNS gives the chosen answer for $name" answers_with "$@"
}

answers_with() {
	[[ $(in_upstream dig +short +tries=1 +time=1 "@$UPSTREAM_DNS" "$name" | sort) == "$(printf '%s\n' "$@" | sort)" ]]
}

listed() {
	select_summary "$1"
	read_summary $((16 << 20)) | awk '
		function entry() { if (address) print address interfaces ":" names; address = "" }
		/^\[[0-9]+\]IP=/ { entry(); address = $0; gsub(/^.*IP=|, timeout=.*$/, "", address); interfaces = names = "" }
		/^  match walled garden:/ { interfaces = substr($0, length("  match walled garden:") + 1) }
		/^  fqdn = / { names = names " " $3 }
		END { entry() }'
}

expect_listed() {
	local target=$1
	shift
	expect_equal "what is listed for $target" "$( (($#)) && printf '%s\n' "$@" | sort)" "$(listed "$target" | sort)"
}

timeout_of() {
	select_summary "$1"
	read_summary | sed -n 's/.*, timeout=//p'
}

send_answers() {
	local client=$1
	shift
	python3 "$LAB/lib/dns_answers.py" "$AP_ADDRESS" "$(address_of "$client")" "$@"
}

# wall_clock_at_boot, to the second; no program is started for it.
read -r REPLY _ </proc/uptime
printf -v wall_clock_at_boot '%(%s)T' -1
wall_clock_at_boot=$((wall_clock_at_boot - ${REPLY%.*}))

set_clock() {
	local uptime
	read -r uptime _ </proc/uptime
	date -s "@$((wall_clock_at_boot + ${uptime%.*} + $1))" >/dev/null
}

shift_clock() {
	trap 'set_clock 0' EXIT
	expect_success set_clock "$1"
}
