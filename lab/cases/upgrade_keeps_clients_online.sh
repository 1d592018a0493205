# The module is upgraded while an admitted client downloads: the download goes
# on, the client stays admitted, and others meet the portal as before. A file
# that is no module of this kernel brings the old one back.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

make_topology 1-1 1-2
start_services
give_address 1-1 61
give_address 1-2 62
load_module
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_portal_page 1-2 http://203.0.113.10/ 10082
kept=$CASE_DIR/kept
new=/run/new-captive_portal.ko
cp "$MODULE" "$new"
# Without what the module learns from frames.
stored() {
	cat /proc/captive_portal/{clients,garden}
	sed -E 's/ (connections|ap_address|ap_mac|cached_addresses)=[^ ]*//g' /proc/captive_portal/status
}
before=$(stored)
upgrade() { cpctl upgrade "$1" --old "$MODULE" --keep "$kept"; }

step "three upgrades during a download"
wanted=$(sha256sum </run/lab-files/upstream/big)
fetch 1-1 http://203.0.113.10/big --max-time 120 --limit-rate 1M >/run/download &
download=$!
wait_until 30 "the download runs" test -s /run/download
for _ in 1 2 3; do
	expect_success upgrade "$new"
	sleep 0.3
done
kill -0 "$download" || fail "the download was over before the upgrades were"
wait "$download"
expect_equal "sum of what came down" "$wanted" "$(sha256sum </run/download)"
expect_equal "what is stored" "$before" "$(stored)"
expect_equal "the kept configuration" "$(cpctl save)" "$(<"$kept")"
expect_real_page 1-1 http://203.0.113.10/after
expect_portal_page 1-2 http://203.0.113.10/after 10082

step "a file that is no module of this kernel"
{ head -c 64 "$MODULE" && echo "nothing more"; } >/run/broken.ko
status=0
said=$(upgrade /run/broken.ko 2>&1) || status=$?
echo "$said"
expect_equal "exit status" 2 "$status"
expect_contains "what it says" "$MODULE is loaded again, with its configuration" "$said"
expect_equal "what is stored" "$before" "$(stored)"
expect_real_page 1-1 http://203.0.113.10/back
expect_portal_page 1-2 http://203.0.113.10/back 10082

step "a module that is in use"
exec 9<>/dev/CP_dev
status=0
said=$(upgrade "$new" 2>&1) || status=$?
exec 9>&-
expect_equal "exit status" 2 "$status"
expect_contains "what it says" "Nothing was changed" "$said"
expect_real_page 1-1 http://203.0.113.10/still
rm -f /run/download /run/broken.ko "$new"
unload_module
