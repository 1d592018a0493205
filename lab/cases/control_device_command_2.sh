# What command 2 (also FIGETBSZ of the file layer) gives a native and a 32-bit
# caller, and that other commands reach the module from both.
#
#   no network: the machine alone

load_module
expect_success python3 "$LAB/lib/command_2.py" native
if [[ -e /proc/sys/abi/vsyscall32 ]] || zcat /proc/config.gz 2>/dev/null | grep '^CONFIG_IA32_EMULATION=y' >/dev/null ||
	grep -qs '^CONFIG_IA32_EMULATION=y' "/boot/config-$(uname -r)"; then
	expect_success python3 "$LAB/lib/command_2.py" compat
	expect_log "[walled garden] start to get compat ioctl"
else
	echo "    this kernel takes no 32-bit calls: the native caller alone was tried"
fi
