#!/usr/bin/env bash
# scripts/abi.sh from end to end, in a repository with tags of its own: what stands behind a tag passes as it is, and is
# refused with an export less, or with a member more in the midst of a public structure.
# Usage: abi_tag_test.sh PROJECT WORK
set -euo pipefail
project=$1
work=$2
rm -rf "$work"
mkdir -p "$work/clone"
trap 'rm -rf "$work"' EXIT
(cd "$project" && git ls-files -z | tar --create --null --files-from=-) | tar --extract --directory "$work/clone"
cd "$work/clone"
git init --quiet
git config user.name test
git config user.email test@example.com
git add --all
git commit --quiet --message "What is to be compared"

# tried PATH EXPRESSION: what abi.sh says of the sources with this change.
tried() {
    git checkout --quiet -- .
    [ $# -eq 0 ] || { sed -i "$2" "$1" && ! git diff --quiet -- "$1"; } || { echo "nothing to change in $1" >&2; exit 1; }
    status=0
    scripts/abi.sh >"$work/out" 2>&1 || status=$?
}
failed() {
    cat "$work/out"
    echo "FAILED: $1" >&2
    exit 1
}

tried
[ "$status" -eq 0 ] && grep -q "no version is tagged yet" "$work/out" || failed "without tags"
git tag v0.9.8
git commit --quiet --allow-empty --message "Behind a tag"
git tag v0.9.9
# A commit that is tagged itself is held against the tag ahead of it.
tried
[ "$status" -eq 0 ] && grep -q "a program of the one runs with the other" "$work/out" || failed "what is as it was"

tried include/tav/vinta/vinta_tls_failure.h 's/^TAV_API \(std::error_code make_error_code\)/__attribute__((visibility("hidden"))) \1/'
[ "$status" -ne 0 ] && grep -q "takes a major version" "$work/out" && grep -q "make_error_code" "$work/out" ||
    failed "an export less"

tried include/tav/vinta/vinta_tls_client_options.h '/^struct TAV_API msginfo {/,/^};/ s/^    unsigned short msgcode;/    int more = 0;\n&/'
[ "$status" -ne 0 ] && grep -q "takes a major version" "$work/out" && grep -q "msginfo" "$work/out" ||
    failed "a member more"
echo "abi: ok"
