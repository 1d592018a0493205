# Sourced by lab/kernels/prepare, whose functions it uses.
#
#   tree_kernel_name TREE      the lab's name for the kernel of a source tree: tree-VERSION-HASH
#   prepare_tree NAME [TREE]   builds it outside of TREE, which is only read; without TREE it must be there already

tree_build_packages=(make gcc g++ libc6-dev flex bison bc libelf-dev perl kmod xz-utils rsync)

# Old host tools define a variable in two files, which compilers of today refuse; and their warnings are errors.
tree_make_words=(ARCH=x86_64 "HOSTCFLAGS=-O2 -fcommon" WERROR=0)

tree_version() { make -s -C "$1" kernelversion 2>/dev/null | tail -n 1; }

tree_kernel_name() { echo "tree-$(tree_version "$1")-$(sha256sum <<<"$1" | cut -c1-6)"; }

# Compilers since gcc 10 make the function that starts the second processor check a stack protector that it has just set
# anew, and the machine panics, unless the tree keeps the check out of it.
survives_stack_protector() {
	[[ $(printf '%s\n' 5.7 "$(tree_version "$1")" | sort -V | sed -n 1p) == 5.7 ]] ||
		grep -q prevent_tail_call_optimization "$1/arch/x86/kernel/smpboot.c"
}

# Assemblers since binutils 2.36 leave out symbols that older stack checkers ask for: those complain of every object, and
# the unwinder that feeds on them has nothing. Such a kernel unwinds by frame pointers.
stack_checker_is_too_old() { grep -qs 'missing symbol for section' "$1/tools/objtool/orc_gen.c"; }

tree_configuration() {
	cat "$here/tree.config" "$here/tree-if-offered.config"
	! stack_checker_is_too_old "$1" || echo CONFIG_UNWINDER_FRAME_POINTER=y
	! survives_stack_protector "$1" ||
		printf 'CONFIG_%s=y\n' STACKPROTECTOR STACKPROTECTOR_STRONG CC_STACKPROTECTOR_STRONG
}

prepare_tree() {
	local name=$1 tree=${2-} dir=$cache_dir/kernels/$1 wanted make line
	if [[ ! $tree ]]; then
		[[ -s $dir/stamp ]] || die "$name: ./run kernel-check makes this kernel from its source tree"
		return 0
	fi
	need_packages "${tree_build_packages[@]}"
	make=(make -C "$tree" O="$dir/build" "${tree_make_words[@]}")
	wanted="$tree $(dpkg-query -W -f '${Package} ${Version}\n' gcc binutils) $(tree_configuration "$tree" | sha256sum)"
	# What was changed in the tree since is built again, and that alone.
	[[ $(cat "$dir/stamp" 2>/dev/null) != "$wanted" || $(find "$tree" -newer "$dir/stamp" -type f -print -quit) ]] ||
		return 0

	rm -f "$dir/stamp"
	mkdir -p "$dir/build"
	tree_configuration "$tree" >"$dir/wanted.config"
	say "$name: building a kernel from $tree (5 minutes and more; it says how in $dir/build.log)"
	{
		KCONFIG_ALLCONFIG=$dir/wanted.config "${make[@]}" allnoconfig &&
			nice "${make[@]}" -j"$(nproc)" bzImage modules
	} >"$dir/build.log" 2>&1 || failed_build "$dir/build.log"
	# An option that kconfig dropped in silence would take a case with it.
	while read -r line; do
		grep -qxF "$line" "$dir/build/.config" || die "$name: the kernel was built without $line"
	done < <(grep '^CONFIG_' "$here/tree.config")

	cat "$dir/build/include/config/kernel.release" >"$dir/release"
	echo x86_64 >"$dir/arch"
	ln -sfn build/arch/x86/boot/bzImage "$dir/image"
	rm -rf "$dir/modules"
	mkdir -p "$dir/modules" "$dir/depmod/lib"
	ln -sfn ../../modules "$dir/depmod/lib/modules"
	"${make[@]}" INSTALL_MOD_PATH="$dir/depmod" modules_install >"$dir/install.log" 2>&1 ||
		failed_build "$dir/install.log"
	rm -f "$dir/modules/$(<"$dir/release")"/{build,source}
	echo "$wanted" >"$dir/stamp"
}
