# The module is unloaded and loaded twenty times while processes read and write
# its proc file and the debug level makes every call write to the log. Nothing
# breaks, and a call gets the listing, or an error, and nothing in between.
#
#   no network: the machine alone

cat >"$CASE_DIR/reader.py" <<'END'
# Opens, reads and writes again and again; ends well when it is told to stop.
import errno, os, signal, sys
stopped = False
def stop(*_):
    global stopped
    stopped = True
signal.signal(signal.SIGTERM, stop)
size = int(sys.argv[2])
calls = errors = 0
while not stopped:
    try:
        file = os.open(sys.argv[1], os.O_RDWR)
    except OSError as error:
        if error.errno != errno.ENOENT:
            raise
        errors += 1
        continue
    try:
        for _ in range(50):
            listing = os.pread(file, size, 0)
            whole = [b"Captive Portal DNS A Record Info, target=" + target + b"\nFinished...\n"
                     for target in (b"all", b"mirel")]
            if listing not in (whole[0][:size], whole[1][:size], whole[0][:45], whole[1][:47]):
                raise SystemExit(f"a listing that is none: {listing!r}")
            os.write(file, b"mirel" if calls % 2 else b"all")
            calls += 1
    except OSError as error:
        if error.errno != errno.EIO:
            raise
        errors += 1
    finally:
        os.close(file)
print(f"{calls} calls, {errors} times without the file")
if not calls or not errors:
    raise SystemExit("this reader has not seen both")
END

load_module
readers=()
for size in 30 50 4096 65536; do
	python3 "$CASE_DIR/reader.py" "$SUMMARY" "$size" &
	readers+=($!)
done
for round in {1..20}; do
	wait_until 10 "the file is there" test -e "$SUMMARY"
	cpctl debug 3
	sleep 0.1
	before=$(date +%s%N)
	unload_module
	took=$((($(date +%s%N) - before) / 1000000))
	((took < 15000)) || fail "round $round: unloading took $took ms"
	sleep 0.05
	load_module
done
sleep 0.2
for reader in "${readers[@]}"; do
	kill "$reader"
	wait "$reader" || fail "a reader ended with status $?"
done
