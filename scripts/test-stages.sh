# The stages of scripts/test, each a function that runs in a shell of its own,
# says what it likes, and calls "record VERDICT NAME" for every single test.

host_packages=(cmake ninja-build g++ libc6-dev libgtest-dev nlohmann-json3-dev python3 libcli11-dev libldns-dev util-linux mandoc zsh fish python3-jsonschema)
style_packages=(clang-format clang-tidy)

install_for_tests() {
	need_packages "${host_packages[@]}" "${style_packages[@]}" make gcc rsync kmod binutils \
		qemu-system-x86 squashfs-tools cpio xz-utils \
		clang llvm libclang-rt-dev patch binutils python3 python3-coverage \
		linux-source-6.1 flex bison bc pahole libelf1 libssl3 zlib1g
}

# record VERDICT NAME  one test's verdict, of the stage that runs.
record() { printf '%s %s\n' "$1" "$2" >>"$reports/$stage.verdicts"; }

# check NAME COMMAND...  one test that is one command.
check() {
	local name=$1
	shift
	if "$@"; then record pass "$name"; else
		echo "$name: failed"
		record fail "$name"
	fi
}

# project_files PATTERN...  the sources, wherever git is not at hand or not trusted.
project_files() {
	local pattern names=()
	for pattern; do names+=(-o -name "$pattern"); done
	find "$project_root" \( -name .git -o -name 'build*' -type d \) -prune -o -type f \( "${names[@]:1}" \) -print
}

# --- style ----------------------------------------------------------------------

shell_syntax() {
	local file bad=0
	while read -r file; do
		bash -n "$file" || bad=1
	done < <(grep -rlE --exclude-dir=.git --exclude-dir='build*' '^#!/bin/(ba)?sh' "$project_root"; project_files '*.sh')
	return "$bad"
}

format() { project_files '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror; }

# Whatever the commit, nothing falls between the thirds in which the lab is run.
each_case_is_in_a_third() {
	diff <(for third in 0 1 2; do third_of_cases "$third"; done | LC_ALL=C sort) \
		<(cd "$project_root/lab/cases" && LC_ALL=C ls | sed 's/\.sh$//')
}

stage_style() {
	need_packages "${style_packages[@]}"
	check shell-syntax shell_syntax
	check clang-format format
	check each-case-is-in-a-third each_case_is_in_a_third
	check unlocked-words "$project_root/scripts/check-unlocked-words"
}

stage_tidy() {
	need_packages "${style_packages[@]}" "${host_packages[@]}"
	with_cache_lock host-address configure_host address
	check clang-tidy tidy "$cache_dir/build/host-address"
}

tidy() {
	find "$1.tree"/{base,core,gatekeeper,portal,garden,platform/host,lib,tools} -name '*.cpp' -print0 |
		xargs -0 "$project_root/scripts/tidy.py" "$1" "$cache_dir/tidy"
}

# --- tests of the tests, and inputs that nobody wrote ----------------------------

# What chooses seeds and parts: another tenth, another seed with every commit.
commit() {
	git -c safe.directory='*' -C "$project_root" rev-parse HEAD 2>/dev/null ||
		project_files '*.cpp' '*.h' | LC_ALL=C sort | xargs cat | sha1sum | cut -d' ' -f1
}

stage_mutants() {
	local output=$reports/$stage.lines status=0
	"$project_root/run" mutants --tenth-of "$(commit)" >"$output" || status=$?
	cat "$output"
	sed -nE 's/^caught +([^ ]+) .*/pass \1/p; s/^SURVIVED +([^ ]+).*/fail \1/p' "$output" >>"$reports/$stage.verdicts"
	return "$status"
}

stage_fuzz() {
	check "every kept input, and the branches that they reach" "$project_root/run" fuzz --replay
	check "half a minute of each target" "$project_root/run" fuzz 30s
}

# The seed is a number, for whoever wants to repeat the run.
seed() { printf '%d\n' "0x$(commit | cut -c1-7)"; }

stage_model() { check "200,000 steps as the model has them" "$project_root/run" model 200000 "$(seed)"; }
stage_model_um() {
	check "10,000 steps of the real module as the model has them" \
		"$project_root/run" model --kernel um 10000 "$(seed)"
}

# --- host tests -------------------------------------------------------------------

configure_host() {
	configure_cmake "$project_root" "$cache_dir/build/host-$1" -DCAPTIVE_PORTAL_SANITIZE="$1"
}

build_host() {
	configure_host "$1"
	cmake --build "$cache_dir/build/host-$1" -j"$(nproc)" -- -k 0
}

# CTest's report names every test case on a line of its own.
host_tests() {
	local sanitizer=$1 build=$cache_dir/build/host-$1 report
	report=$build/ctest.xml
	need_packages "${host_packages[@]}"
	rm -f "$report"
	with_cache_lock "host-$sanitizer" build_host "$sanitizer"
	ctest --test-dir "$build" -j"$(nproc)" --timeout 300 --output-on-failure --no-tests=error \
		--output-junit "$report" >"$build/ctest.log" 2>&1 || tail -n 200 "$build/ctest.log"
	awk -v RS='<testcase ' 'NR > 1 {
		match($0, /name="[^"]*"/); name = substr($0, RSTART + 6, RLENGTH - 7)
		if (/status="run"/) verdict = "pass"
		else if (/SKIP_/) verdict = "skip"
		else verdict = "fail"
		print verdict, name
	}' "$report" >>"$reports/$stage.verdicts"
}

stage_host_address() { host_tests address; }
stage_host_thread() { host_tests thread; }

# --- the module, kernel by kernel ---------------------------------------------------

prepare_kernel() { check "$1 is there to boot" "$project_root/lab/kernels/prepare" "$1"; }

module_build() {
	local kernel=$1 dir copy=$cache_dir/module-builds/$1 arguments
	dir=$("$project_root/lab/kernels/prepare" "$kernel")
	mapfile -t arguments < <(module_arguments "$kernel" "$dir")
	with_cache_lock "module-$kernel" build_and_check_module "$kernel" "$copy" "$dir/build" "${arguments[@]}"
}

# build_and_check_module KERNEL COPY TREE [MAKE_ARGUMENT...]
build_and_check_module() {
	check "module for $1" "$project_root/scripts/build-module" "$3" "$2" "${@:4}"
	# The debug kernel's sanitizer makes constructors of its own.
	[[ $1 == um-debug ]] ||
		check "sections and symbols of the module for $1" "$2/platform/linux/check-module.sh" "$2/captive_portal.ko"
}

stage_kernel_um() { prepare_kernel um; }
stage_kernel_um_debug() { prepare_kernel um-debug; }
stage_module_um() { module_build um; }
stage_module_um_debug() { module_build um-debug; }
stage_module_debian_6_1() { module_build debian-6.1; }
stage_module_debian_6_12() { module_build debian-6.12; }
# One of the two with each commit.
stage_module_arm64() {
	local kernels=(debian-6.1-arm64 debian-6.12-arm64)
	module_build "${kernels[0x$(commit | cut -c40) % 2]}"
}

# --- the lab ------------------------------------------------------------------------

lab() {
	local output=$reports/$stage.cases
	"$project_root/lab/run-cases" --kernel "$@" >"$output" || true
	cat "$output"
	sed -nE 's/^(pass|fail|skip) ([^ ]+) \(.*/\1 \2/p' "$output" >>"$reports/$stage.verdicts"
	# Its last line says that it came to its end.
	tail -n 1 "$output" | grep -qE '^[0-9]+ passed, [0-9]+ failed, [0-9]+ skipped$'
}

# The demo's story is a case as well.
stage_story_um() { LAB_CASES=lab/story lab um; }
stage_load_um() { check "full tables and a short load" "$project_root/run" load --quick --seed "$(seed)"; }

# Emulation is slow, and so is a kernel that checks everything. With each commit the debug kernel runs a third of the cases, and
# User Mode Linux without its checks the rest; of these Debian's two kernels run one half each, a third of all. The commit
# says which. "./run lab --kernel K" runs them all.
third_of_cases() {
	local file number=0 third=$((($1 + 0x$(commit | cut -c37-40)) % 3))
	while read -r file; do
		((number++ % 3 != third)) || echo "${file%.sh}"
	done < <(cd "$project_root/lab/cases" && LC_ALL=C ls)
}

# lab_on KERNEL THIRD...
lab_on() {
	local kernel=$1 third chosen
	mapfile -t chosen < <(for third in "${@:2}"; do third_of_cases "$third"; done)
	echo "note: ${#chosen[@]} cases run on $kernel this time"
	lab "$kernel" "${chosen[@]}"
}

stage_lab_um() { lab_on um 0 1; }
stage_lab_um_debug() { lab_on um-debug 2; }
stage_lab_debian_6_1() { lab_on debian-6.1 0; }
stage_lab_debian_6_12() { lab_on debian-6.12 1; }

# The runner is what all of the above believe in.
stage_runner() {
	local output=$reports/$stage.cases
	"$project_root/lab/selftest/run" um >"$output" || true
	cat "$output"
	sed -nE 's/^(pass|fail) (.*) \(0 s\)$/\1 \2/p' "$output" >>"$reports/$stage.verdicts"
	tail -n 1 "$output" | grep -qE '^[0-9]+ passed, [0-9]+ failed, [0-9]+ skipped$'
}
