# What lab/cases/registrations_fail.sh leaves out. The device: every number is taken by copies of the module under other
# names, the load fails, its hooks are gone, and a later load is whole (kernels before 6.2 have 128 numbers; later ones
# never run out). And where the kernel can let allocations fail, each one that the load makes fails once: the load
# fails, or is without its hooks, its thread or its proc file; every registration is among those that failed.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_frame_bench 1-1
frames=$CASE_DIR/frames
cat >"$frames" <<'END_OF_TABLE'
                             | off  | on
tcp/203.0.113.10/80          | same | redirect:10081
icmp/203.0.113.10            | same | drop
dns/203.0.113.53             | same | same
END_OF_TABLE
from_client 1-1
record_frames "$frames"

whole_again() {
	load_module
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
	check_frames "$frames" off
	whole_again
	figure "the device is refused when ${#copies[@]} others have every number"
else
	step "not shown: a device without a number, as this kernel never runs out of them"
fi

if [[ -e /proc/self/fail-nth && -d /sys/kernel/debug/failslab ]]; then
	step "each allocation of the load fails once"
	echo N >/sys/kernel/debug/failslab/ignore-gfp-wait
	# Its trace is no complaint about the module.
	echo 0 >/sys/kernel/debug/failslab/verbose
	failed=0 hooks=0 device=0 thread=0 proc=0 whole=0
	for ((number = 1; ; number++)); do
		echo "lab: allocation $number" >/dev/kmsg
		result=$(python3 -S "$LAB/lib/load_module.py" "$MODULE" allocation "$number")
		said=$(dmesg | sed "1,/ lab: allocation $number\$/d")
		[[ $said != *"nf_register_hook fail"* ]] || hooks=$((hooks + 1))
		case $result in
		"loaded not reached")
			unload_module
			break
			;;
		loaded)
			without=
			[[ $said == *"nf_register_hook fail"* ]] && without=hooks
			[[ $said == *"wake_up_process"* ]] || { thread=$((thread + 1)) && without=thread; }
			[[ -e $SUMMARY ]] || { proc=$((proc + 1)) && without=proc; }
			[[ $without ]] || whole=$((whole + 1))
			unload_module
			;;
		*)
			failed=$((failed + 1))
			[[ $said != *"cannot register miscdev"* ]] || device=$((device + 1))
			expect_failure module_is_loaded
			;;
		esac
		[[ ! -e /proc/cp_dns_aRecord && ! -e /dev/CP_dev ]] || fail "allocation $number: something stayed"
	done
	figure "$((number - 1)) allocations failed: $failed loads failed, $device of them for the device;" \
		"$hooks were without hooks, $thread without the thread, $proc without the proc file, $whole whole"
	for count in "$hooks" "$device" "$thread" "$proc"; do ((count > 0)) || fail "a registration never failed"; done
	whole_again
else
	step "not shown: failing allocations, which this kernel was not built for"
fi
