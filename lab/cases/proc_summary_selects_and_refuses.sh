# What may be written to the proc file becomes the selection; everything else
# is refused with EINVAL and a line in the kernel's log, and changes nothing.
#
#   no network: the machine alone

load_module
cpctl debug 3

step "selections"
for target in mirel wlan-1-1 wlan-3-8 wlan-1-9 10.0.0.1 255.255.255.255 wlan-1-1.5 all; do
	select_summary "$target"
	expect_equal "the listing for $target" "$(empty_summary "$target")" "$(cat "$SUMMARY")"
	expect_log "]: summary_target:$target"
done
printf 'wlan-2-2\n' >"$SUMMARY"
expect_contains "the listing" "target=wlan-2-2"$'\n\n'"Finished..." "$(cat "$SUMMARY")"
select_summary all

# refuses TEXT LINE
refuses() {
	expect_failure select_summary "$1" 2>/dev/null
	wait_until 10 "the kernel's log has the refusal: $2" refusal_is_logged "$2"
	expect_equal "the selection" "$(empty_summary all)" "$(cat "$SUMMARY")"
}
refusal_is_logged() { log_since_start | grep -E "summary_write \[[0-9]+\]: $1\$" >/dev/null; }

step "refusals"
refuses wlan-x 'sscanf iface\(wlan-x\) failed!'
refuses wlan-4-1 'iface\(wlan-4-1\) is wrong!'
refuses wlan-0-1 'iface\(wlan-0-1\) is wrong!'
refuses 10.0.0.256 'ip address\(10\.0\.0\.256\) is wrong!'
refuses 10.0.-1.2 'ip address\(10\.0\.-1\.2\) is wrong!'
refuses everything 'iface\(everything\) is wrong!'
refuses "all " 'iface\(all \) is wrong!'
refuses 01234567890123456789 'iface\(0123456789012345678\) is wrong!'
refuses "$(printf 'w%.0s' {1..4096})" 'iface\(w{19}\) is wrong!'

step "a line end, NULs, lengths, addresses that are not the caller's"
expect_success python3 - "$SUMMARY" <<'END'
import ctypes, errno, mmap, os, sys
file = os.open(sys.argv[1], os.O_RDWR)
libc = ctypes.CDLL(None, use_errno=True)
libc.write.argtypes = libc.read.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_size_t]
libc.write.restype = libc.read.restype = ctypes.c_ssize_t
libc.munmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t]

def expect(what, wanted, got):
    if wanted != got:
        raise SystemExit(f"{what}: wanted {wanted!r}, got {got!r}")

def written(address, size):
    ctypes.set_errno(0)
    result = libc.write(file, address, size)
    return result if result >= 0 else errno.errorcode[ctypes.get_errno()]

def text(bytes_):
    return written(ctypes.cast(ctypes.create_string_buffer(bytes_, len(bytes_) + 1), ctypes.c_void_p), len(bytes_))

for refused in (b"all\n", b"mirel\n", b"\n", b"", b"\0", b"\0all", b"all" + bytes(17), bytes(20), b"x" * 65536):
    expect(f"a write of {refused[:30]!r}", "EINVAL", text(refused))
for accepted in (b"all\0", b"wlan-1-1" + bytes(11), b"192.0.2.1, for one.", b"all"):
    expect(f"a write of {accepted!r}", len(accepted), text(accepted))

# Two pages, of which the second is taken away.
pages = mmap.mmap(-1, 2 * mmap.PAGESIZE)
start = ctypes.addressof(ctypes.c_char.from_buffer(pages))
border = start + mmap.PAGESIZE
expect("munmap", 0, libc.munmap(border, mmap.PAGESIZE))
for address in (None, 1, border):
    for size in (1, 3, 19, 20):
        expect(f"a write of {size} bytes at {address}", "EINVAL", written(address, size))

whole = b"Captive Portal DNS A Record Info, target=all\nFinished...\n"
def read(address, size):
    os.lseek(file, 0, os.SEEK_SET)
    return libc.read(file, address, size)
expect("a read to nowhere", len(whole), read(None, 4096))
expect("a read to a page that is gone", len(whole), read(border, 4096))
expect("a read that ends there", len(whole), read(border - 20, 4096))
expect("what came of it", whole[:20], ctypes.string_at(border - 20, 20))
os._exit(0)
END
expect_equal "the selection" "$(empty_summary all)" "$(read_summary 65536)"
expect_log "]: total_read=57, len=65479"
