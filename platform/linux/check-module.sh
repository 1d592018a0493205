#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: platform/linux/check-module.sh captive_portal.ko
#
# Checks a release build of the module, with its objects still beside it:
# - no static constructor, destructor or thread-local data: production kernels run no constructor of a module;
# - no exception tables: nothing in a kernel would read them;
# - the C++ objects ask for nothing but each other, the seam, and the few names that a compiler calls by itself;
# - no function is in two of them;
# - no test knob: no parameter, and no symbol of one.
# A kernel with the address sanitizer or coverage has constructors of its own making; this check is not for it.
# Exit code: 0 all right, 1 something is wrong, 2 the check could not be made.

set -eu
export LC_ALL=C

cannot() {
	echo "check-module: $*" >&2
	exit 2
}

[ $# -eq 1 ] || cannot "usage: $0 captive_portal.ko"
module=$1
[ -f "$module" ] || cannot "$module is not there"
for tool in nm readelf; do
	command -v "$tool" >/dev/null || cannot "$tool is not installed"
done
directory=$(dirname "$module")
wrong=0

# --- Sections -------------------------------------------------------------------

sections=$(readelf -SW "$module" | sed -n 's/^ *\[ *[0-9]*\] \([^ ]*\) .*/\1/p')
echo "$sections" | grep -qx '\.text' || cannot "$module has no section .text: readelf's output was not understood"
forbidden=$(echo "$sections" |
	grep -E '^(\.rela?)?\.(init_array|fini_array|preinit_array|ctors|dtors|tdata|tbss|gcc_except_table)(\.|$)' || :)
if [ -n "$forbidden" ]; then
	echo "check-module: $module has sections that no production kernel handles:" >&2
	echo "$forbidden" | sed 's/^/	/' >&2
	wrong=1
fi

# --- Test knobs -----------------------------------------------------------------

knobs=$({
	echo "$sections" | grep -x '__param' || :
	nm "$module" | sed -n 's/.* //p' | grep -E 'test_knob|__param' || :
})
if [ -n "$knobs" ]; then
	echo "check-module: $module can be told to fail, which only a test build may be:" >&2
	echo "$knobs" | sed 's/^/	/' >&2
	wrong=1
fi

# --- Symbols that the core asks for -----------------------------------------------

# The seam's names are read from its header, so that a new service needs no second entry here.
here=$(cd "$(dirname "$0")" && pwd)
seam=$(grep -o '\bcp_[a-z0-9_]*(' "$here/../platform.h" | tr -d '(' | sort -u)
[ -n "$seam" ] || cannot "found no function in platform.h"
compiler='mem(cpy|set|move|cmp)|strlen|__stack_chk_(fail|guard)|__x86_(return_thunk|indirect_thunk_[a-z0-9]+)'

objects=$(sed -n 's/^[[:space:]]*\([a-z0-9_/]*\.o\).*/\1/p' "$here/../../sources.mk")
[ -n "$objects" ] || cannot "found no object in sources.mk"
set --
for object in $objects; do
	[ -f "$directory/$object" ] || cannot "$directory/$object is not there: build the module first"
	set -- "$@" "$directory/$object"
done
defined=$(nm -g --defined-only "$@" | sed -n 's/^[0-9a-f]* [A-Za-z] //p' | sort -u)
[ -n "$defined" ] || cannot "the core's objects define nothing"
strange=$(nm -u "$@" | sed -n 's/^ *[Uw] //p' | sort -u |
	grep -vxE "$compiler" | grep -vxF "$seam
$defined" || :)
if [ -n "$strange" ]; then
	echo "check-module: the core asks for symbols that are neither its own nor the seam's:" >&2
	echo "$strange" | sed 's/^/	/' >&2
	wrong=1
fi

# --- Functions that the linker throws out -------------------------------------------

# Where each object is checked by itself, its stack tables are made then, and would speak of a function that another
# object keeps.
twice=$(for object; do readelf -gW "$object"; done |
	awk '/^COMDAT group/ { name = $0; sub(/.*` *\.group. *\[/, "", name); sub(/\].*/, "", name) }
		name != "" && / \.text/ { print name; name = "" }' | sort | uniq -d)
if [ -n "$twice" ]; then
	echo "check-module: functions that are in several of the core's objects:" >&2
	echo "$twice" | sed 's/^/	/' >&2
	wrong=1
fi

exit $wrong
