# Expected verdict: fail, with the text: memory that nobody points to
load_module
python3 -c "import fcntl, os; fcntl.ioctl(os.open('/dev/CP_dev', os.O_RDWR), 11, 9004)"
unload_module
