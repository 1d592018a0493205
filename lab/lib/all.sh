# What a lab case sees: sourced before the case, in the guest, by lab/guest/session.
#
# Set: LAB (this tree), CASE (the case's name), CASE_FILE, CASE_DIR (what the
# host gets back of it), MODULE (captive_portal.ko).

set -Eeuo pipefail
LAB=/payload/lab
MODULE=/payload/captive_portal.ko
: "${CASE:?}" "${CASE_DIR:?}" "${CASE_FILE:?}"

# The guest's Python has no compiled library, and no place for one: what one program compiles, the next finds here.
export PYTHONPYCACHEPREFIX=/run/lab-python

. "$LAB/lib/assert.sh"
. "$LAB/lib/topology.sh"
. "$LAB/lib/services.sh"
. "$LAB/lib/traffic.sh"
. "$LAB/lib/capture.sh"
. "$LAB/lib/kernel-log.sh"
. "$LAB/lib/module.sh"
. "$LAB/lib/proc_file.sh"
. "$LAB/lib/garden.sh"
. "$LAB/lib/frames.sh"
. "$LAB/lib/knobs.sh"
. "$LAB/lib/life_cycle.sh"
. "$LAB/lib/bridges.sh"

trap 'report_failed_command "$BASH_COMMAND" $?' ERR
