# The kernel's log of one case.  Sourced by the cases and by who runs them.
#
#   log_of_case NAME          what the kernel said since the case began; all that is left of its log when it has lost the
#                             beginning: better a line too many than a complaint that nobody sees

log_of_case() {
	dmesg | awk -v marker=" lab: case $1 begins" '
		substr($0, length($0) - length(marker) + 1) == marker { count = 0; next }
		{ lines[count++] = $0 }
		END { for (i = 0; i < count; i++) print lines[i] }'
}
