# Steps, verdicts and comparisons of a lab case.
#
#   step TEXT                         what happens next, for the reader of the log
#   fail TEXT...                      ends the case: failed
#   skip REASON...                    ends the case: skipped, with its reason
#   expect_equal WHAT WANTED GOT
#   expect_contains WHAT PART TEXT    TEXT has PART in it, letter for letter
#   expect_lacks WHAT PART TEXT
#   expect_success COMMAND...         its output goes to the log
#   expect_failure COMMAND...
#   wait_until SECONDS WHAT COMMAND...   polls; fails the case when time is up
#   waiting_is_free               true where the machine's clock leaps over sleep
#
# Exit codes of a case: 0 passed, 4 skipped, anything else failed.

step() { printf '[%8.2f] %s\n' "$(cut -d' ' -f1 /proc/uptime)" "$*"; }

fail() {
	trap - ERR
	printf 'FAILED: %s\n' "$*"
	where_the_case_was
	exit 1
}

skip() {
	trap - ERR
	printf 'SKIPPED: %s\n' "$*"
	echo "$*" >"$CASE_DIR/skip-reason"
	exit 4
}

# The line of the case itself, not of the library that it called.
where_the_case_was() {
	local frame
	for ((frame = 0; frame < ${#BASH_SOURCE[@]}; frame++)); do
		[[ ${BASH_SOURCE[frame]} == "$CASE_FILE" ]] || continue
		printf '        at %s line %s\n' "${BASH_SOURCE[frame]##*/}" "${BASH_LINENO[frame - 1]}"
		return 0
	done
}

report_failed_command() {
	trap - ERR
	printf 'FAILED: "%s" ended with status %s\n' "$1" "$2"
	where_the_case_was
}

expect_equal() { [[ $2 == "$3" ]] || fail "$1: wanted '$2', got '$3'"; }

expect_contains() { [[ $3 == *"$2"* ]] || fail "$1: '$2' is missing in: $3"; }

expect_lacks() { [[ $3 != *"$2"* ]] || fail "$1: '$2' should not be in: $3"; }

expect_success() {
	local status=0
	"$@" || status=$?
	((status == 0)) || fail "should have succeeded, ended with status $status: $*"
}

expect_failure() {
	if "$@"; then fail "should have failed, but succeeded: $*"; fi
}

# wait_until keeps trying for SECONDS, so that a slow machine waits longer and
# a fast one never waits. It tries less often as time goes: where time leaps
# over sleep, trying is all that a wait costs.
wait_until() {
	local seconds=$1 what=$2 deadline naps=(0.05 0.05 0.05 0.05 0.1 0.1 0.2 0.2 0.5 1) tries=0
	shift 2
	deadline=$((SECONDS + seconds))
	until "$@" >/dev/null 2>&1; do
		((SECONDS <= deadline)) || fail "not within $seconds seconds: $what"
		sleep "${naps[tries]}"
		((tries == ${#naps[@]} - 1)) || tries=$((tries + 1))
	done
}

waiting_is_free() { grep -qw time-travel /proc/cmdline; }
