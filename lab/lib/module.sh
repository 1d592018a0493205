# The module, its command line, and the kernel's log.
#
#   load_module [PARAMETER=VALUE...] / unload_module / module_is_loaded
#   cpctl ...                 the command line of the project
#   log_since_start           what the kernel said since the case began
#   expect_log TEXT           waits until a line has TEXT, letter for letter
#   expect_no_log TEXT
#   run_page NAME             what docs/NAME.md shows, as lib/page.py runs it

load_module() {
	insmod "$MODULE" "$@"
	wait_until 10 "the control device is there" test -c /dev/CP_dev
}

unload_module() { rmmod captive_portal; }

module_is_loaded() { [[ -d /sys/module/captive_portal ]]; }

cpctl() { /payload/bin/cpctl "$@"; }

log_since_start() { log_of_case "$CASE"; }

# Reads all of it: who stops at the first match ends what writes the rest, and that counts as a failure.
log_has() { log_since_start | grep -F -- "$1" >/dev/null; }

expect_log() { wait_until 10 "the kernel's log has the line: $1" log_has "$1"; }

expect_no_log() {
	local lines
	lines=$(log_since_start | grep -F -- "$1" || true)
	[[ -z $lines ]] || fail "the kernel's log should not have: $lines"
}

run_page() {
	cd /payload
	PATH=/payload/bin:$PATH expect_success python3 -S "$LAB/lib/page.py" "docs/$1.md"
}
