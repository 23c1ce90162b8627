#!/usr/bin/env bash
# What tells of versions tells of this one: the changes begin with it, and say so when a tag of it is missing or there.
# Usage: versions.sh PROJECT VERSION
set -euo pipefail
project=$1
version=$2
head=$(grep -m1 '^## ' "$project/CHANGELOG.md")
waits="## $version (not tagged yet)"
[ "$head" = "## $version" ] || [ "$head" = "$waits" ] ||
    { echo "CHANGELOG.md begins with \"$head\", and the version is $version" >&2; exit 1; }
# Sources without a history have no tags.
if [ "$head" = "$waits" ] && git -C "$project" rev-parse -q --verify "refs/tags/v$version" >/dev/null 2>&1; then
    echo "CHANGELOG.md says that $version is not tagged yet, and there is a tag v$version" >&2
    exit 1
fi
for major in $(grep -o 'libtav_im_nbr\.so\.[0-9]*' "$project/docs/versions.md" | sed 's/.*\.//'); do
    [ "$major" = "${version%%.*}" ] || { echo "docs/versions.md names libtav_im_nbr.so.$major" >&2; exit 1; }
done
