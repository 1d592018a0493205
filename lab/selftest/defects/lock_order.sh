# Expected verdict: fail, with the text: possible circular locking dependency
load_module
python3 -c "import fcntl, os; fcntl.ioctl(os.open('/dev/CP_dev', os.O_RDWR), 11, 9003)"
unload_module
