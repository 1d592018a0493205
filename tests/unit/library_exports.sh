#!/bin/bash
# Usage: library_exports.sh LIBRARY HEADER
# The shared library offers the functions of its header and nothing else, each in its version, and has its name.
set -euo pipefail
export LC_ALL=C
offered=$(nm -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort)
wanted=$(grep -oE '\bcaptiveportal_[a-z_]+\(' "$2" | tr -d '(' | sort -u)
if ! diff <(echo "$wanted") <(echo "$offered"); then
	echo "< functions of the header; > symbols of the library"
	exit 1
fi
(($(wc -l <<<"$offered") > 40))
if nm -D --defined-only "$1" | awk '$2 != "A" && $3 !~ /@@CAPTIVEPORTAL_0$/' | grep .; then
	echo "these have no version"
	exit 1
fi
readelf -d "$1" | grep -q 'SONAME.*\[libcaptiveportal\.so\.0\]'
