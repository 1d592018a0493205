# The command line on the real device: its exit codes, what it reads back, how
# it waits for another opener, and what it says where the kernel answers a
# question in the module's place.
#
#   no network: the machine alone

# ends_with STATUS PART COMMAND...   exit status, and a part of all that it said
ends_with() {
	local wanted=$1 part=$2 status=0 said
	shift 2
	said=$("$@" 2>&1) || status=$?
	expect_equal "status of: $*" "$wanted" "$status"
	expect_contains "answer of: $*" "$part" "$said"
}

# hold_device SECONDS   returns when the device is held
hold_device() {
	rm -f "$CASE_DIR/held"
	python3 - "$1" "$CASE_DIR/held" <<-'END' &
		import os, sys, time
		device = os.open("/dev/CP_dev", os.O_RDWR)
		open(sys.argv[2], "w").close()
		time.sleep(float(sys.argv[1]))
	END
	wait_until 20 "another program has the device" test -e "$CASE_DIR/held"
}

step "without the module"
ends_with 3 "there is no such device: load the module" cpctl gateway show
ends_with 1 "no wireless interface" cpctl interface show wlan-1-9
ends_with 3 "standard input cannot be read: Is a directory" cpctl -b - </
ends_with 3 "there is no standard input" sh -c 'exec /payload/bin/cpctl -b - <&-'
ends_with 0 "" cpctl -b - </dev/null

step "clients come and go"
load_module
ends_with 0 "" cpctl client add white 02:00:5e:10:00:01 wlan-2-3
ends_with 0 "already" cpctl client add white 02:00:5e:10:00:01 wlan-2-3
ends_with 0 "is in white of wlan-2-3" cpctl client check white 02:00:5e:10:00:01 wlan-2-3
expect_equal "the table" "02:00:5e:10:00:01 dev wlan-2-3 table white" "$(cpctl client show white)"
ends_with 0 "" cpctl client del white 02:00:5e:10:00:01 wlan-2-3
ends_with 2 "nothing to delete" cpctl client del white 02:00:5e:10:00:01 wlan-2-3
ends_with 2 "is not in white of wlan-2-3" cpctl client check white 02:00:5e:10:00:01 wlan-2-3

step "rules, gateway and companions come back"
ends_with 0 "" cpctl garden replace wlan-1-1 on '*.example.com' 198.51.100.0/24
expect_equal "the garden" $'wlan-1-1: garden on rules 2\n    *.example.com\n    198.51.100.0/24' \
	"$(cpctl garden show wlan-1-1)"
ends_with 0 "" cpctl garden add wlan-1-1 203.0.113.7
ends_with 0 "is among the rules of wlan-1-1 already" cpctl garden add wlan-1-1 203.0.113.7
expect_equal "the garden with one rule more" \
	$'wlan-1-1: garden on rules 3\n    *.example.com\n    198.51.100.0/24\n    203.0.113.7' "$(cpctl garden show wlan-1-1)"
ends_with 0 "opens captive.apple.com (Apple)" cpctl garden add wlan-1-1 '*.apple.com'
ends_with 2 "wlan-1-1: '*.apple.com' opens captive.apple.com (Apple)" cpctl garden check
ends_with 0 "" cpctl garden del wlan-1-1 203.0.113.7 '*.apple.com'
ends_with 0 "" cpctl garden check
ends_with 2 "is not among the rules of wlan-1-1: nothing was changed" cpctl garden del wlan-1-1 203.0.113.7
ends_with 0 "" cpctl mirel garden add m.example
expect_equal "the garden of the MIREL portal" $'mirel: garden off rules 1\n    m.example' "$(cpctl garden show mirel)"
ends_with 0 "" cpctl mirel garden del m.example
ends_with 0 "" cpctl garden default replace portal.example
ends_with 0 "" cpctl garden default add other.example
ends_with 0 "" cpctl garden default del other.example
expect_equal "the default rules" $'default: rules 1\n    portal.example' "$(cpctl garden show default)"
ends_with 0 "" cpctl gateway set 192.0.2.254
expect_equal "the gateway" "gateway 192.0.2.254" "$(cpctl gateway show)"
ends_with 0 "" cpctl interface owe map wlan-1-14 wlan-1-2
expect_equal "the companions" "wlan-1-14 dev wlan-1-2" "$(cpctl interface owe show)"
ends_with 0 "" cpctl debug 3
expect_log "[env_set] set debug_level = 3"
ends_with 0 "" cpctl mirel mode on
expect_log "CAPTIVE_PORTAL iface=27 enable_value=1"

step "settings come back from the status file"
ends_with 0 "" cpctl interface set wlan-1-1 mode drop-tcp block-https redirect logout 192.0.2.1
ends_with 0 "" cpctl interface owe map wlan-1-14 wlan-1-1
expect_equal "the settings" "wlan-1-1: mode drop-tcp block-https redirect garden on rules 2 disconnection drop-all connected \
mark 5200 ap 0.0.0.0 logout 192.0.2.1 owe wlan-1-14" "$(cpctl interface show wlan-1-1 2>&1)"
expect_equal "words about settings that are there" "" "$(cpctl interface set wlan-1-1 mode off block-https block logout none 2>&1)"
expect_equal "words about the filter" "" "$(cpctl dns-filter on 2>&1)"
expect_equal "words about the debug level" "" "$(cpctl debug 1 2>&1)"

step "the file layer answers in the module's place, and there is no status file"
mount -t tmpfs none /proc/captive_portal
ends_with 0 "wlan-1-1: mode could not be verified: /proc/captive_portal/status: there is no such file" \
	cpctl interface set wlan-1-1 mode on
ends_with 0 "FIGETBSZ" cpctl interface show wlan-1-1
expect_equal "the settings" "wlan-1-1: mode unknown block-https unknown garden on rules 2 disconnection drop-all connected \
mark 5200 ap unknown logout unknown owe wlan-1-14" "$(cpctl interface show wlan-1-1 2>/dev/null)"
umount /proc/captive_portal
expect_contains "the mode that could not be verified" "wlan-1-1: mode on " "$(cpctl interface show wlan-1-1)"

step "clients behind the end of the device's answer"
for ((number = 0; number < 1040; number++)); do
	printf 'client add auth 02:00:00:20:%02x:%02x wlan-1-1\n' $((number / 256)) $((number % 256))
done >"$CASE_DIR/clients"
ends_with 0 "" cpctl -b "$CASE_DIR/clients"
expect_equal "words about one more" "" "$(cpctl client add auth 02:00:5e:10:00:01 wlan-1-1 2>&1)"
expect_equal "the list's length" 1041 "$(cpctl client show auth wlan-1-1 | wc -l)"
ends_with 0 "is in auth of wlan-1-1" cpctl client check auth 02:00:5e:10:00:01 wlan-1-1
expect_equal "words about its deletion" "" "$(cpctl client del auth 02:00:5e:10:00:01 wlan-1-1 2>&1)"
ends_with 2 "nothing to delete" cpctl client del auth 02:00:5e:10:00:01 wlan-1-1

step "another program has the device"
hold_device 1
ends_with 0 "gateway 192.0.2.254" cpctl --wait 30 gateway show
wait
hold_device 600
ends_with 3 "in use by another program" cpctl --wait 0.2 gateway show
kill %%
wait || true
ends_with 0 "gateway 192.0.2.254" cpctl gateway show

step "the device may not be opened"
chmod 0600 /dev/CP_dev
ends_with 3 "permission denied" setpriv --reuid 65534 --regid 65534 --clear-groups \
	--inh-caps=-all --bounding-set=-all /payload/bin/cpctl gateway show

step "the device may be opened, and the status files may not"
chgrp 4000 /dev/CP_dev
chmod 0660 /dev/CP_dev
as_member() {
	setpriv --reuid 65534 --regid 65534 --groups 4000 --inh-caps=-all --bounding-set=-all /payload/bin/cpctl "$@"
}
ends_with 0 "gateway 192.0.2.254" as_member gateway show
ends_with 0 "" as_member client add login 02:00:5e:10:00:02 wlan-1-1
ends_with 0 "" as_member client del login 02:00:5e:10:00:02 wlan-1-1
ends_with 0 "" as_member garden replace wlan-1-2 on a.example
for verb in add del; do
	echo "client $verb login 02:00:5e:10:00:02 wlan-1-1" >"$CASE_DIR/$verb"
	ends_with 0 "" as_member -b "$CASE_DIR/$verb"
done
printf 'client add login 02:00:5e:10:00:%s wlan-1-1\n' 02 03 >"$CASE_DIR/commands"
for words in status metrics "explain dev wlan-1-1 from 02:00:5e:10:00:02 arp" "cache show" save \
	"garden add wlan-1-2 b.example" "garden del wlan-1-2 a.example" "garden check" "garden show mirel" \
	"-b $CASE_DIR/commands"; do
	# shellcheck disable=SC2086 # words
	ends_with 3 "permission denied" as_member $words
done
unload_module
