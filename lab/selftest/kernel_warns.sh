# Expected verdict: fail, with the text: the kernel complained
echo "WARNING: CPU: 0 PID: 1 at a/file.c:1" >/dev/kmsg
