# Sourced by every script of the project that runs on the host.
# Offers: project_root, cache_dir, say, warn, die, need_packages, use_package_lists_of,
# with_cache_lock, made_and_copied, copy_files, copy_tree, configure_cmake, module_arguments.  Sets strict mode.

set -euo pipefail

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache_dir=${CAPTIVE_PORTAL_CACHE:-/var/cache/captive_portal}

# A user's own Python, compiler wrappers and locale must not change a verdict.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export LC_ALL=C.UTF-8

say() { printf '== %s\n' "$*" >&2; }
warn() { printf 'warning: %s\n' "$*" >&2; }
die() {
	printf 'error: %s\n' "$*" >&2
	exit 1
}

# need_packages PACKAGE...  installs what is missing and says so.  Only the
# first call that finds something missing refreshes the package lists.
need_packages() {
	local package missing=()
	for package; do
		[[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
			missing+=("$package")
	done
	((${#missing[@]})) || return 0
	[[ $EUID == 0 ]] || die "these packages are missing and installing them takes root: ${missing[*]}"
	say "installing packages: ${missing[*]}"
	refresh_package_lists
	DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 -qq -y \
		install --no-install-recommends "${missing[@]}" >&2 ||
		die "apt-get could not install: ${missing[*]}"
}

# Package lists are refreshed once in an hour: a stale list names files that
# the mirror has already thrown away.
refresh_package_lists() {
	local stamp=$cache_dir/package-lists-refreshed
	mkdir -p "$cache_dir"
	[[ -z $(find "$stamp" -mmin -60 2>/dev/null) || -z $(ls /var/lib/apt/lists/*_Packages* 2>/dev/null) ]] ||
		return 0
	DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 -qq update >&2
	touch "$stamp"
}

# use_package_lists_of ARCHITECTURE  from here on apt-get and apt-cache of this shell speak of another architecture's
# packages, from the same sources, in lists of their own: this machine's packages know nothing of it. For downloads only.
use_package_lists_of() {
	local dir=$cache_dir/apt-$1
	with_cache_lock "apt-$1" make_package_lists_of "$1" "$dir"
	export APT_CONFIG=$dir/apt.conf
}

make_package_lists_of() {
	local dir=$2
	[[ -z $(find "$dir/refreshed" -mmin -60 2>/dev/null) ]] || return 0
	mkdir -p "$dir"/{lists/partial,cache/archives/partial}
	: >"$dir/status"
	cat >"$dir/apt.conf" <<-END
		APT::Architecture "$1";
		APT::Architectures { "$1"; };
		APT::Sandbox::User "root";
		Dir::State "$dir";
		Dir::State::lists "$dir/lists";
		Dir::State::status "$dir/status";
		Dir::Cache "$dir/cache";
	END
	APT_CONFIG=$dir/apt.conf apt-get -qq update >&2
	touch "$dir/refreshed"
}

# with_cache_lock NAME COMMAND...  two runs at once must not write the same
# directory of the cache.  The command runs in a subshell.
with_cache_lock() {
	mkdir -p "$cache_dir/locks"
	(
		flock 9
		"${@:2}"
	) 9>"$cache_dir/locks/$1"
}

# made_and_copied DIRECTORY FILE COMMAND...  for with_cache_lock: the command makes FILE, and a copy of it is in DIRECTORY before
# another checkout may make it anew.
made_and_copied() { "${@:3}" && cp "$2" "$1/"; }

# copy_files SOURCE DESTINATION [RSYNC_ARGUMENT...]  by content: what differs is
# as new as the copy is, whichever of two checkouts it came from, and so is built.
copy_files() {
	need_packages rsync
	mkdir -p "$2"
	rsync -rlp --checksum --delete "${@:3}" "$1/" "$2/"
}

# copy_tree DESTINATION  copies what a module build reads, so that objects of
# two kernels never mix and a second build in the copy compiles only what changed.
copy_tree() {
	copy_files "$project_root" "$1" --filter=". $project_root/scripts/module-sources.list"
}

# module_arguments KERNEL DIRECTORY  what make is told beside the tree to build the module for a kernel of the lab, one a
# line. The debug kernels' modules have the test knobs.
module_arguments() {
	echo "ARCH=$(<"$2/arch")"
	[[ ! -f $2/make ]] || grep . "$2/make" || true
	case $1 in um-debug | um-faults) echo CP_TEST_KNOBS=y ;; esac
}

# configure_cmake SOURCE BUILD [ARGUMENT...]  what of the checkout is built is a copy of it beside the build directory
# (BUILD.tree), so that one more checkout compiles again only what differs.
configure_cmake() {
	local source=$1
	if [[ $source/ == "$project_root"/* ]]; then
		copy_files "$project_root" "$2.tree" --exclude .git --exclude '/build*'
		source=$2.tree${source#"$project_root"}
	fi
	if [[ -f $2/CMakeCache.txt ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$source" "$2/CMakeCache.txt"; then
		rm -rf "$2"
	fi
	cmake -S "$source" -B "$2" -G Ninja "${@:3}"
}
