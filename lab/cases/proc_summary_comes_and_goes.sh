# The proc file is there while the module is loaded, may be read by everybody,
# and gives the whole listing to the first read after an open. A process that
# holds it open does not keep the module, and gets an error afterwards.
#
#   no network: the machine alone

expect_failure test -e /proc/cp_dns_aRecord
load_module
step "directory, file, modes"
expect_equal "the directory" "summary" "$(ls -A /proc/cp_dns_aRecord)"
expect_equal "the directory's mode and owner" "dr-xr-xr-x root" "$(stat -c '%A %U' /proc/cp_dns_aRecord)"
expect_equal "the file's mode and owner" "-r--r--r-- root" "$(stat -c '%A %U' "$SUMMARY")"
expect_failure test -e /proc/summary

step "what a read gives"
expect_equal "the empty listing" "$(empty_summary all)" "$(cat "$SUMMARY")"
expect_equal "the listing for another user" "$(empty_summary all)" \
	"$(setpriv --reuid 65534 --regid 65534 --clear-groups cat "$SUMMARY")"
expect_failure setpriv --reuid 65534 --regid 65534 --clear-groups sh -c "printf all >$SUMMARY" 2>/dev/null
header="Captive Portal DNS A Record Info, target=all"
for size in 1 2 44; do expect_equal "a read of $size bytes" "${header:0:size}" "$(read_summary "$size")"; done
for size in 45 46 56; do expect_equal "a read of $size bytes" "$header" "$(read_summary "$size")"; done
for size in 57 4096 1048576; do expect_equal "a read of $size bytes" "$(empty_summary all)" "$(read_summary "$size")"; done

step "position: one read to a file, and again from its beginning"
expect_success python3 - "$SUMMARY" <<'END'
import os, sys
file = os.open(sys.argv[1], os.O_RDWR)
def expect(what, wanted, got):
    if wanted != got:
        raise SystemExit(f"{what}: wanted {wanted!r}, got {got!r}")
header = b"Captive Portal DNS A Record Info, target=all\n"
expect("a read of nothing", b"", os.read(file, 0))
expect("the first read", header[:10], os.read(file, 10))
expect("the second read", b"", os.read(file, 4096))
expect("the position", 10, os.lseek(file, 0, os.SEEK_CUR))
expect("a write", 3, os.write(file, b"all"))
expect("the position after a write", 10, os.lseek(file, 0, os.SEEK_CUR))
expect("a read at 1", b"", os.pread(file, 4096, 1))
expect("a read at 0", header + b"Finished...\n", os.pread(file, 4096, 0))
os.lseek(file, 0, os.SEEK_SET)
expect("a read from the beginning", header + b"Finished...\n", os.read(file, 4096))
END

step "unload with the file open"
expect_success python3 - "$SUMMARY" <<'END'
import errno, os, subprocess, sys
file = os.open(sys.argv[1], os.O_RDWR)
subprocess.run(["rmmod", "captive_portal"], check=True)
for name, call in (("read", lambda: os.read(file, 4096)), ("write", lambda: os.write(file, b"all"))):
    try:
        call()
        raise SystemExit(f"{name} succeeded after the module had gone")
    except OSError as error:
        if error.errno != errno.EIO:
            raise SystemExit(f"{name} failed with {errno.errorcode[error.errno]}, not EIO")
os.close(file)
END
expect_failure test -e /proc/cp_dns_aRecord

step "the selection is forgotten by a new load, the file is there again"
load_module
select_summary mirel
expect_equal "the selection" "$(empty_summary mirel)" "$(cat "$SUMMARY")"
unload_module
load_module
expect_equal "the listing" "$(empty_summary all)" "$(cat "$SUMMARY")"
