#!/usr/bin/env bash
# The Debian packages as their users meet them, in a root of their own: an earlier version is installed and a program built
# with it, then this version over it; the earlier program runs, README's example and others are built and talk to the
# gateway, Python too; the tool prints what its pages show; and what is removed leaves nothing.
# Usage: debian.sh PROJECT WORK       needs the rights of root, for the root
set -euo pipefail
project=$1
work=$2
. "$project/scripts/packages.sh"
need_packages "${debian_packages[@]}"
[ "$(id -u)" -eq 0 ] || { echo "a root of its own is made by root only: sudo $0 $*" >&2; exit 1; }

build=$project/build/debian
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
site=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | awk '/\/debian\/*$/ && !found { print; found = 1 }')
root=$work/root
rm -rf "$work"
mkdir -p "$work/old" "$root"
trap 'rm -rf "$work"' EXIT

# Nobody here needs what debuggers do.
export DEB_BUILD_OPTIONS="parallel=$(nproc) noautodbgsym"
version=$(cd "$project" && dpkg-parsechangelog --show-field Version)
"$project/scripts/debian.sh" "$build" "$version~before"
mv "$build"/*_"$version~before"_*.deb "$work/old"
"$project/scripts/debian.sh" "$build"

# A base system is made once, and unpacked for each run.
base=$project/build/debian-root/$suite.tar
if [ ! -e "$base" ]; then
    mkdir -p "$(dirname "$base")"
    debootstrap --variant=minbase "$suite" "$work/base" "$site"
    tar --create --directory "$work/base" --file "$base.part" .
    mv "$base.part" "$base"
    rm -rf "$work/base"
fi
tar --extract --directory "$root" --file "$base"
# An installer writes this, and every machine has it.
printf '127.0.0.1\tlocalhost\n' >"$root/etc/hosts"

# Into the root: the packages, and of the project what runs there.
mkdir -p "$root/demo/new" "$root/demo/build/gateway" "$root/demo/build/examples" "$root/demo/tests"
cp -r "$work/old" "$root/demo/old"
cp "$build"/*_"$version"_*.deb "$root/demo/new"
# Of a former build there may be packages for debuggers.
rm -f "$root"/demo/*/*-dbgsym_*
cp -r "$project/scripts" "$project/examples" "$project/docs" "$root/demo"
cp -r "$project/tests/docs" "$project/tests/packages" "$root/demo/tests"
cp "$project/README.md" "$root/demo"

# Processes that the root's programs leave end with it.
unshare --mount --pid --fork --kill-child --mount-proc="$root/proc" \
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    bash /demo/tests/packages/in_root.sh "$version"
