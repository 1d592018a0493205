# The status files say what the module has stored: to root and the files' group,
# without the control device, and without disturbing the cache's listing.
#
#   no network: the machine alone

STATUS=/proc/captive_portal
field() { grep -o " $2=[^ ]*" <<<"$1" | sed 's/^[^=]*=//'; }
line_of() { grep "^interface .* name=$1 " "$STATUS/status"; }
read_as_nobody() { setpriv --reuid 65534 --regid 65534 --clear-groups cat "$STATUS/status" 2>/dev/null; }

expect_failure test -e $STATUS
load_module
step "a directory of its own, files that nobody else may read"
expect_equal "the files" "cache clients counters garden status" "$(echo $(ls -A $STATUS))"
for file in cache clients counters garden status; do
	expect_equal "$file" "-r--r----- root root 0" "$(stat -c '%A %U %G %s' $STATUS/$file)"
done
expect_failure read_as_nobody
expect_equal "lines of status" $((1 + 28 + 9)) "$(wc -l <$STATUS/status)"
expect_equal "clients and rules" "" "$(cat $STATUS/clients $STATUS/garden)"

step "what is set is there"
cpctl interface set wlan-2-3 mode internet-passes block-https redirect logout 192.0.2.1 disconnection pass-dhcp disconnected
cpctl mirel mode drop-tcp
cpctl gateway set 192.168.100.254
cpctl dns-filter on
cpctl debug 2
cpctl garden replace wlan-2-3 on '*.example.com' 203.0.113.0/24
cpctl mirel garden replace on m.example
cpctl garden default replace d.example
cpctl interface owe map wlan-2-16 wlan-2-3
module=$(head -n 1 $STATUS/status)
for pair in "format 1" "debug_level 2" "dns_filter 1" "gateway 192.168.100.254" "cached_addresses 0"; do
	expect_equal "${pair% *}" "${pair#* }" "$(field "$module" "${pair% *}")"
done
row=$(line_of wlan-2-3)
for pair in "index 10" "mark 0x1466" "http_port 20083" "mode 7" "block_https 2" "logout 192.0.2.1" "garden 1" "rules 2" \
	"disconnection_behavior 2" "disconnection_status 2" "login 0"; do
	expect_equal "${pair% *}" "${pair#* }" "$(field "$row" "${pair% *}")"
done
expect_equal "mode of the MIREL row" 8 "$(field "$(line_of mirel)" mode)"
expect_equal "OWE" "owe name=wlan-2-16 interface=wlan-2-3" "$(grep ' name=wlan-2-16 ' $STATUS/status)"
expect_equal "the rules" "default-rule slot=0 name=d.example
rule interface=wlan-2-3 type=0 pattern=*.example.com
rule interface=wlan-2-3 type=1 address=203.0.113.0 netmask=255.255.255.0 pattern=
rule interface=mirel type=0 pattern=m.example" "$(cat $STATUS/garden)"

step "lists longer than any buffer are there whole, while the device is in use"
python3 - <<'END'
import fcntl, struct
device = open("/dev/CP_dev")
for number in range(3000):
    mac = b"\x02\0" + struct.pack(">I", number)
    # ADD_LOGIN_MAC: sub-command, behaviour, status, interface, OWE interface, address.
    fcntl.ioctl(device, 8, struct.pack("<III16s16s6s2x", 4, 0, 0, b"wlan-1-1", b"", mac))
for attempt in range(3):
    lines = open("/proc/captive_portal/clients").read().splitlines()
    wanted = [f"client table=login mac=02:00:00:00:{number >> 8:02x}:{number & 255:02x} interface=wlan-1-1"
              for number in range(3000)]
    if lines != wanted:
        raise SystemExit(f"{len(lines)} lines; the first that differs: "
                         f"{next((pair for pair in zip(wanted, lines) if pair[0] != pair[1]), None)}")
END
expect_equal "their number" 3000 "$(field "$(line_of wlan-1-1)" login)"
expect_equal "a read in small pieces" "$(md5sum <$STATUS/clients)" "$(dd if=$STATUS/clients bs=7 status=none | md5sum)"

step "the cache's listing is as it was"
select_summary mirel
cat $STATUS/* >/dev/null
expect_equal "the listing" "$(empty_summary mirel)" "$(cat "$SUMMARY")"

step "they go with the module, also under readers, and from under an open file"
for _ in 1 2 3; do
	while :; do cat $STATUS/clients $STATUS/status $STATUS/garden || true; done >/dev/null 2>&1 &
	reader=$!
	expect_success python3 - <<-'END'
		import errno, os, subprocess
		file = os.open("/proc/captive_portal/clients", os.O_RDONLY)
		os.read(file, 100)
		subprocess.run(["rmmod", "captive_portal"], check=True)
		try:
		    os.read(file, 1 << 20)
		    raise SystemExit("a read succeeded after the module had gone")
		except OSError as error:
		    if error.errno != errno.EIO:
		        raise
	END
	expect_failure test -e $STATUS
	load_module
	kill "$reader"
	wait "$reader" || true
done

step "where the name is taken, the module does without"
# The same module under names of its own, but for one text that is this name alone. Another is the module's own name, in
# a section that comes before the texts or behind them.
second=/run/captive_portaX.ko
expect_success python3 - "$MODULE" "$second" <<-'END'
	import re, struct, sys
	with open(sys.argv[1], "rb") as file:
	    module = file.read()
	sections, = struct.unpack_from("<Q", module, 0x28)
	size, count, names = struct.unpack_from("<HHH", module, 0x3A)
	headers = [struct.unpack_from("<IIQQQQ", module, sections + size * i) for i in range(count)]
	for name, _, _, _, start, length in headers:
	    name += headers[names][4]
	    if module[name:module.index(b"\0", name)] == b".gnu.linkonce.this_module":
	        own = range(start, start + length)
	module = module.replace(b"captive_portal", b"captive_portaX").replace(b"CP_dev", b"CP_deX")
	texts = [found.start() for found in re.finditer(rb"(?<=\0)captive_portaX(?=\0)", module) if found.start() not in own]
	if len(texts) != 1:
	    raise SystemExit(f"{len(texts)} texts are the directory's name")
	with open(sys.argv[2], "wb") as file:
	    file.write(module[:texts[0]] + b"captive_portal" + module[texts[0] + 14:])
END
before=$(cat $STATUS/status)
insmod "$second"
wait_until 10 "its device is there" test -c /dev/CP_deX
expect_failure test -e /proc/captive_portaX
expect_equal "the files" "cache clients counters garden status" "$(echo $(ls -A $STATUS))"
rmmod captive_portaX
expect_equal "the first one's" "$before" "$(cat $STATUS/status)"
