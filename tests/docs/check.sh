#!/usr/bin/env bash
# Compiles or runs every block of C++, C and shell of a page.
#
# Usage: check.sh quick|long PROJECT WORK PAGE...      with CXX, CC and INCLUDE (a list of -I flags) in the environment
#
# A block of C++ or C is compiled as it stands.  One that is a part of something has a comment in the line above it,
#     <!-- within: NAME -->
# and is compiled as a part of tests/docs/within/NAME.cpp (.c, .sh), in the place of the line that holds BLOCK alone.
# A block of shell always needs such a file, which says how it is run; those whose second line is "# long" are run
# by "long" alone.  And
#     <!-- is: FILE -->
# says that the block is that file, to the letter, and
#     <!-- in: FILE -->
# that it stands in that file, which is compiled.  Other blocks name their language: text, pml, json, xml, cmake.
set -euo pipefail
mode=$1
project=$2
work=$3
shift 3
here=$project/tests/docs
export PROJECT=$project
rm -rf "$work"
mkdir -p "$work"
failures=0

fail() {
    echo "$1:$2: $3" >&2
    failures=$((failures + 1))
}

# Writes each block of PAGE to a file, and a line for it: number of its first line, language, comment.
extract() {
    awk -v out="$2/block" '
        !inside && /^ *```/ {
            inside = 1; language = $0; gsub(/[` ]/, "", language)
            count++; file = out count; printf "" > file
            print NR + 1, (language == "" ? "-" : language), comment
            next
        }
        inside && /^ *```$/ { inside = 0; comment = ""; close(file); next }
        inside { print > file; next }
        /^<!-- .* -->$/ { comment = $0; gsub(/^<!-- | -->$/, "", comment); next }
        { comment = "" }
        # Code that is only indented would be seen by nobody.
        /^    +(scripts\/|cmake |ctest |build\/|sudo |apt-get |git |pkg-config |g\+\+ |#include)/ || /^    .*;$/ {
            print NR, "indented", ""
        }' "$1"
}

# Puts BLOCK of PAGE at LINE into the file it stands within, or into one of its own.
assemble() { # PAGE LINE BLOCK WITHIN
    if [ -z "$4" ]; then
        printf '#line %s "%s"\n' "$2" "$1"
        cat "$3"
    else
        awk -v block="$3" -v mark="#line $2 \"$1\"" -v shell="${4##*.}" '
            $1 == "BLOCK" && NF == 1 {
                if (shell != "sh") print mark
                while ((getline line < block) > 0) print line
                next
            }
            { print }' "$4"
    fi
}

check_block() { # PAGE LINE LANGUAGE BLOCK COMMENT
    local page=$1 line=$2 language=$3 block=$4 comment=$5
    local within=
    case $comment in
    is:*)
        [ "$mode" = long ] || cmp -s "$block" "$project/${comment#is: }" || fail "$page" "$line" "is not ${comment#is: }"
        return
        ;;
    in:*)
        [ "$mode" = long ] || [[ "$(<"$project/${comment#in: }")" == *"$(<"$block")"* ]] ||
            fail "$page" "$line" "is not in ${comment#in: }"
        return
        ;;
    within:*)
        within=$here/within/${comment#within: }.$language
        [ -f "$within" ] || { fail "$page" "$line" "there is no $within"; return; }
        ;;
    esac
    local file=$block.$language
    case $language in
    cpp | c)
        [ "$mode" = quick ] || return 0
        assemble "$page" "$line" "$block" "$within" >"$file"
        local compiler=(${CXX} -std=c++17)
        [ "$language" = cpp ] || compiler=(${CC} -std=gnu99)
        "${compiler[@]}" -Wall -Wextra -Werror -Wno-unused -fsyntax-only $INCLUDE "$file" ||
            fail "$page" "$line" "this block does not compile"
        ;;
    sh)
        [ -n "$within" ] || { fail "$page" "$line" "a block of shell says within what it is run"; return; }
        local length=quick
        [ "$(sed -n 2p "$within")" != "# long" ] || length=long
        [ "$mode" = "$length" ] || return 0
        assemble "$page" "$line" "$block" "$within" >"$file"
        WORK=$block.work bash -euo pipefail "$file" || fail "$page" "$line" "this block does not run"
        ;;
    text)
        local typed='^(tav|cmake|ctest|sudo|apt-get|git|pkg-config|openssl|python3|scripts/[^ ]*|build/[^ ]*) '
        # What stands behind "$ " on the pages of the tool is run by their own tests.
        [[ $page == docs/tool/* ]] || typed="$typed|^[$] "
        ! grep -qE "$typed" "$block" || fail "$page" "$line" "a command that nobody runs"
        ;;
    pml | json | xml | cmake) ;;
    indented) fail "$page" "$line" "code that is indented only: give it a fence and a language" ;;
    *) fail "$page" "$line" "a block of no known language: $language" ;;
    esac
}

for page in "$@"; do
    folder=$work/$(basename "$page")
    mkdir -p "$folder"
    count=0
    while read -r line language comment; do
        [ "$language" = indented ] || count=$((count + 1))
        check_block "$page" "$line" "$language" "$folder/block$count" "$comment"
    done < <(extract "$project/$page" "$folder")
done
[ "$failures" -eq 0 ] || { echo "$failures blocks failed" >&2; exit 1; }
