# Expected verdict: fail, with the text: KASAN: slab-out-of-bounds in
load_module
python3 -c "import fcntl, os; fcntl.ioctl(os.open('/dev/CP_dev', os.O_RDWR), 11, 9002)"
unload_module
