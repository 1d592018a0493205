# A second module that finds the proc directory's name taken does without the
# file, says nothing of it, and leaves the first one's alone, whichever of the
# two goes first.
#
#   no network: the machine alone

# The same module under names of its own, all of the same length.
second=/run/captive_portaX.ko
sed 's/captive_portal/captive_portaX/g; s/CP_dev/CP_deX/g' "$MODULE" >"$second"

load_module
select_summary mirel
step "the second module loads beside the first"
insmod "$second"
wait_until 10 "its device is there" test -c /dev/CP_deX
expect_equal "the directory" "summary" "$(ls -A /proc/cp_dns_aRecord)"
expect_equal "the directories" 1 "$(find /proc -maxdepth 1 -name 'cp_dns_aRecord*' | wc -l)"
expect_failure test -e /proc/summary
expect_equal "the first one's listing" "$(empty_summary mirel)" "$(cat "$SUMMARY")"

step "the second goes, the first one's file stays"
rmmod captive_portaX
expect_equal "the first one's listing" "$(empty_summary mirel)" "$(cat "$SUMMARY")"

step "the first goes first, with its file"
insmod "$second"
unload_module
expect_failure test -e /proc/cp_dns_aRecord
rmmod captive_portaX
expect_failure test -e /proc/cp_dns_aRecord
load_module
expect_equal "the listing" "$(empty_summary all)" "$(cat "$SUMMARY")"
