# What fails on order. In softirq context, with the module of the debug kernels
# alone: platform/linux/test_knobs.h.
#
#   expect_failures LEAST COMMAND...   succeeds, and says of so many requests or more
#                          that they failed, as lab/lib/fault_injection.py tells it
#   need_knobs             fails without them; after load_module
#   order KNOB NUMBER      what fails from now on
#   has_failed KNOB        true if all that was ordered did fail; takes the order back

KNOBS=/sys/module/captive_portal/parameters

# What goes without any pages is not counted: it is one call, however many it asks for.
expect_failures() {
	local least=$1 sum
	shift
	"$@" | tee "$CASE_DIR/failures" || fail "should have succeeded: $*"
	sum=$(sed 's/; without.*//' "$CASE_DIR/failures" | grep -oE '[0-9]+ (objects|pages|copies)' |
		awk '{ sum += $1 } END { print sum + 0 }')
	((sum >= least)) || fail "$sum requests failed, not $least"
	echo "    $sum requests failed"
}

need_knobs() { [[ -w $KNOBS/fail_atomic_allocation ]] || fail "the module was built without test knobs"; }

order() { echo "$2" >"$KNOBS/$1"; }

has_failed() {
	local left
	left=$(<"$KNOBS/$1")
	echo 0 >"$KNOBS/$1"
	((left == 0))
}
