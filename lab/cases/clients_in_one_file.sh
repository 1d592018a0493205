# An access point with all of its interfaces full: 25,000 clients come by one
# file, with one opening of the device, and are there after an upgrade.
#
#   no network: the machine alone
#
# The times are those of the machine's clock. With --clock measuring, which
# counts a nanosecond for an instruction, they say how many of these it takes.

CLIENTS=/proc/captive_portal/clients
count=25000

# timed WHAT COMMAND...   it ends well, in less than a minute
timed() {
	local what=$1 started=${EPOCHREALTIME/./} took
	shift
	expect_success "$@"
	took=$(((${EPOCHREALTIME/./} - started) / 1000))
	step "$what: $took ms"
	((took < 60000)) || fail "$what took $took ms"
}

load_module
mac_and_interface='sprintf("02:00:00:20:%02x:%02x wlan-%d-%d", i / 256, i % 256, i % 3 + 1, i % 8 + 1)'
for verb in add del; do
	awk -v n=$count "BEGIN { for (i = 0; i < n; i++) print \"client $verb \" (i < n / 2 ? \"login \" : \"white \") $mac_and_interface }" \
		>"$CASE_DIR/$verb"
done
timed "$count clients" cpctl -b "$CASE_DIR/add"
expect_equal "clients" $count "$(wc -l <$CLIENTS)"
stored=$(sha256sum <$CLIENTS)
timed "the same once more" cpctl -b "$CASE_DIR/add"
expect_equal "sum of the clients" "$stored" "$(sha256sum <$CLIENTS)"
timed "saved" cpctl save "$CASE_DIR/saved"
timed "restored on themselves" cpctl restore "$CASE_DIR/saved"
timed "upgraded" cpctl upgrade "$MODULE" --old "$MODULE" --keep "$CASE_DIR/kept"
expect_equal "sum of the clients" "$stored" "$(sha256sum <$CLIENTS)"
timed "deleted" cpctl -b "$CASE_DIR/del"
expect_equal "clients" 0 "$(wc -l <$CLIENTS)"
rm "$CASE_DIR"/{add,del,saved,kept}
unload_module
