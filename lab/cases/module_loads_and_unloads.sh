# The module loads, gives one control device that one program at a time may
# hold open, unloads without a trace, and loads again.
#
#   no network: the machine alone

# A second open while the first is held, and a third after the close.
open_twice() {
	python3 - <<'END'
import errno, os
first = os.open("/dev/CP_dev", os.O_RDWR)
try:
    os.open("/dev/CP_dev", os.O_RDWR)
    raise SystemExit("the second open succeeded")
except OSError as error:
    if error.errno != errno.EBUSY:
        raise SystemExit(f"the second open failed with {errno.errorcode[error.errno]}, not EBUSY")
os.close(first)
os.close(os.open("/dev/CP_dev", os.O_RDWR))
END
}

# The module stays while its device is open.
unload_while_open() {
	python3 - <<'END'
import os, subprocess
device = os.open("/dev/CP_dev", os.O_RDWR)
if subprocess.run(["rmmod", "captive_portal"], stderr=subprocess.DEVNULL).returncode == 0:
    raise SystemExit("the module went away under an open device")
os.close(device)
END
}

expect_failure test -e /dev/CP_dev
for round in first second third; do
	step "$round load"
	load_module
	expect_success open_twice
	expect_success unload_while_open
	step "$round unload"
	unload_module
	expect_failure test -e /dev/CP_dev
	expect_failure module_is_loaded
done
