# Expected verdict: fail, with the text: WARNING: CPU
load_module
python3 -c "import fcntl, os; fcntl.ioctl(os.open('/dev/CP_dev', os.O_RDWR), 11, 9001)"
unload_module
