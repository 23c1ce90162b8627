#!/usr/bin/env bash
# Builds the Debian packages of these sources, as they are, and has lintian look at them.
# Usage: scripts/debian.sh [FOLDER [VERSION]]      FOLDER: where they go, build/debian if none is given
#                                                  VERSION: in place of that of debian/changelog
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${debian_packages[@]}"

folder=$(realpath -m "${1-build/debian}")
version=${2-$(dpkg-parsechangelog --show-field Version)}
# The folder that the packages are built in has one name for all versions: what is compiled is the same then.
source=$folder/source
rm -rf "$source"
mkdir -p "$source"
git ls-files -z --cached --others --exclude-standard --deduplicate | while IFS= read -r -d '' file; do
    [ ! -e "$file" ] || printf '%s\0' "$file"
done | tar --create --null --files-from=- | tar --extract --directory "$source"
# A version of its own is told in the changelog's first line alone.
sed -i "1s/([^)]*)/($version)/" "$source/debian/changelog"
[ "$(cd "$source" && dpkg-parsechangelog --show-field Version)" = "$version" ]

# debhelper gives the build a home of its own, and ccache would begin with nothing there.
if command -v ccache >/dev/null; then
    CCACHE_DIR=$(ccache --get-config cache_dir)
    export CCACHE_DIR CCACHE_BASEDIR=$source CCACHE_NOHASHDIR=1
fi
export DEB_BUILD_OPTIONS=${DEB_BUILD_OPTIONS-parallel=$(nproc)}
(cd "$source" && dpkg-buildpackage --no-sign)
lintian --fail-on error,warning --display-info --show-overrides "$folder/tav-im-nbr_${version}_$(dpkg --print-architecture).changes"
