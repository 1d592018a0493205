# Expected verdict: fail, with the text: the kernel complained
# The log has lost the line with which the case begins; what came behind it still counts.
dmesg -C
echo "WARNING: CPU: 0 PID: 1 at a/file.c:1" >/dev/kmsg
