# The whole configuration is saved, flushed and restored: the module then has
# stored what it had before, and a restore of what is there sends nothing.
#
#   no network: the machine alone

STATUS=/proc/captive_portal
stored() { cat $STATUS/status $STATUS/garden $STATUS/clients; }
commands_since_mark() {
	log_since_start | awk -v mark=" $1" 'seen && /if_device_write/ { count++ }
		substr($0, length($0) - length(mark) + 1) == mark { seen = 1 }
		END { if (seen) print count + 0; else print "the log has lost its mark" }'
}
mark() { echo "$1" >/dev/kmsg; }

load_module
fresh=$(stored)

step "everything that commands set"
cpctl -b - <<'END'
debug 2
gateway set 192.168.100.254
dns-filter on
garden default replace d.example e.example
garden replace wlan-2-3 on '*.example.com' 203.0.113.0/24 10.0.0.0/255.0.255.0
garden replace social-login 1 s.example
mirel garden replace on m.example
interface owe map wlan-2-16 wlan-2-3
client add white 02:00:00:04:00:02 wlan-1-1
client add white 02:00:00:04:00:01 wlan-1-1
client add auth 02:00:00:04:00:01 wlan-3-8
client add login 02:00:00:04:00:03 wlan-2-3
client add ga-white 02:00:00:04:00:04 wlan-2-3
client add mac-auth-fallback 02:00:00:04:00:05 wlan-2-3
client add mirel-white 02:00:00:04:00:06
client add mirel-black 02:00:00:04:00:06
interface set wlan-2-3 mode internet-passes block-https redirect logout 192.0.2.1 cp-walled-garden 3
interface set wlan-1-1 mode on disconnection pass-dhcp disconnected
interface set mode-7 cp-walled-garden 2
mirel mode drop-tcp
END
before=$(stored)
saved=$CASE_DIR/saved
cpctl save "$saved"
cat "$saved"
expect_equal "mode of the file" 600 "$(stat -c %a "$saved")"
expect_equal "the answer without a file" "$(<"$saved")" "$(cpctl save)"

step "restored on itself"
mark "first mark"
expect_equal "changes" "" "$(cpctl restore "$saved" --dry-run)"
expect_success cpctl restore "$saved"
expect_equal "commands that write" 0 "$(commands_since_mark "first mark")"
expect_equal "what is stored" "$before" "$(stored)"

step "flushed, by a configuration without a command"
sed -n '/^#/p' "$saved" >"$CASE_DIR/empty"
expect_contains "changes" "- client add login 02:00:00:04:00:03 wlan-2-3" "$(cpctl restore "$CASE_DIR/empty" --dry-run)"
expect_success cpctl restore "$CASE_DIR/empty"
expect_equal "what is stored" "$fresh" "$(stored)"

step "restored"
expect_success cpctl restore "$saved"
expect_equal "what is stored" "$before" "$(stored)"

step "restored after the module was loaded again"
unload_module
load_module
cpctl debug 2
mark "mark of a restore"
expect_success cpctl restore - <"$saved"
expect_equal "what is stored" "$before" "$(stored)"
(($(commands_since_mark "mark of a restore") > 0)) || fail "commands that write leave no line"

step "a mistake in the last line changes nothing"
mark "second mark"
{ sed '$d' "$saved" && echo "debug 9" && tail -n 1 "$saved"; } >"$CASE_DIR/wrong"
status=0
said=$(cpctl restore "$CASE_DIR/wrong" 2>&1) || status=$?
expect_equal "exit status" 1 "$status"
expect_contains "what it says" "$CASE_DIR/wrong:$(($(wc -l <"$CASE_DIR/wrong") - 1)): debug level 9: the highest is 3" "$said"
expect_equal "commands that write" 0 "$(commands_since_mark "second mark")"
expect_equal "what is stored" "$before" "$(stored)"
unload_module
