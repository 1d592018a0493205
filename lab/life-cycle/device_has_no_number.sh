# What registrations_fail leaves out, the device: every number is taken by copies of the module under other
# names, the load fails, its hooks are gone, and a later load is whole. Kernels before 6.2 have 128 numbers; later ones
# never run out.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_portal_bench
# A firewall's mark between the module's hooks has the second one redirect, whatever is set: so a frame tells of a hook
# that is left.
mark_between_hooks
marked=$CASE_DIR/marked
cat >"$marked" <<'END_OF_TABLE'
                    | without | loaded
tcp/203.0.113.30/80 | same    | redirect:1025
END_OF_TABLE
record_frames "$marked"

whole_again() {
	load_module
	check_frames "$marked" loaded
	cpctl interface set wlan-1-1 mode on
	check_frames "$frames" on
	unload_module
}

numbers_run_out() {
	local release
	release=$(uname -r)
	release=${release%%-*}
	[[ $(printf '%s\n' 6.2 "$release" | sort -V | head -n 1) != 6.2 ]]
}

if numbers_run_out; then
	step "no number is left for the device"
	copies=()
	while :; do
		printf -v id %02x "${#copies[@]}"
		sed "s/captive_portal/captive_port$id/g; s/CP_dev/CP_d$id/g" "$MODULE" >/run/copy.ko
		insmod /run/copy.ko 2>/run/refusal || break
		copies+=("captive_port$id")
		((${#copies[@]} < 200)) || fail "${#copies[@]} devices, and numbers are left"
	done
	expect_contains "the refusal" "resource busy" "$(</run/refusal)"
	((${#copies[@]} > 30)) || fail "only ${#copies[@]} copies"
	said=$(insmod "$MODULE" 2>&1) && fail "the module loaded without a device"
	expect_contains "the refusal" "resource busy" "$said"
	expect_log "[captive portal] cannot register miscdev on minor=255 (err=-16)"
	expect_log "[captive portal] captive_portal_misc_dev failed!!"
	expect_failure module_is_loaded
	for copy in "${copies[@]}"; do rmmod "$copy"; done
	check_frames "$marked" without
	check_frames "$frames" off
	whole_again
	figure "the device is refused when ${#copies[@]} others have every number"
else
	skip "this kernel never runs out of numbers for devices"
fi
