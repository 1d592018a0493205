# The module's proc file, and what its status files count.
#
#   SUMMARY                         its path
#   select_summary TEXT             one write of exactly this text; fails like write()
#   read_summary [BYTES]            opens it and reads once, BYTES at most (64 KiB)
#   empty_summary TARGET            what a read gives when nothing is left to list
#   counted INTERFACE REASON        frames of the interface that came to this
#   connections_of INTERFACE        recorded connections whose end was not seen

SUMMARY=/proc/cp_dns_aRecord/summary

select_summary() {
	python3 - "$SUMMARY" "$1" <<-'END'
		import os, sys
		file = os.open(sys.argv[1], os.O_WRONLY)
		text = os.fsencode(sys.argv[2])
		written = os.write(file, text)
		if written != len(text):
		    raise SystemExit(f"{written} of {len(text)} bytes were taken")
	END
}

read_summary() { dd if="$SUMMARY" bs="${1-65536}" count=1 status=none; }

empty_summary() { printf 'Captive Portal DNS A Record Info, target=%s\nFinished...' "$1"; }

counted() {
	local value
	value=$(sed -n "s/^count interface=$1 reason=$2 value=//p" /proc/captive_portal/counters)
	echo "${value:-0}"
}

connections_of() { sed -n "s/^interface index=[0-9]* name=$1 .* connections=\([0-9]*\).*/\1/p" /proc/captive_portal/status; }
