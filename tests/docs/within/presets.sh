# Commands that work on this tree, but take too long to be run: each script that they call is there, and so is each preset that
# they name, each program that a build has, each fuzz target, and at least one test for each filter.
BUILD=${WORK%/tests/docs-work/*}
cd "$PROJECT"
while read -r command; do
    eval "set -- ${command%%#*}"
    case $1 in
    scripts/fuzz.sh)
        [ -x "$1" ] || { echo "no script: $1"; exit 1; }
        for target in "${@:3}"; do
            [ -e "fuzz/targets/$target.cpp" ] || { echo "no fuzz target: $target"; exit 1; }
        done
        ;;
    scripts/*) [ -x "$1" ] || { echo "no script: $1"; exit 1; } ;;
    ctest | cmake) [ "$2" = --preset ] || [ "$3" = --preset ] || { echo "no preset: $command"; exit 1; } ;;
    build/*) grep -qE "^build ${1#build/*/}( |:)" "$BUILD/build.ninja" || { echo "no program of this tree: $1"; exit 1; } ;;
    *) echo "what is $1?"; exit 1 ;;
    esac
    case $command in
    build/*--gtest_filter=*)
        "$BUILD/${1#build/*/}" "${@:2}" --gtest_list_tests | grep -q '^  ' || { echo "no such test: $command"; exit 1; }
        ;;
    esac
    presets=
    case $1 in
    scripts/test.sh) shift; presets=$* ;;
    ctest) presets=$3 ;;
    cmake) [ "$2" = --preset ] && presets=$3 || presets=$4 ;;
    esac
    for preset in $presets; do
        grep -q "\"name\": \"$preset\"" CMakePresets.json || { echo "no preset $preset: $command"; exit 1; }
    done
done <<'END'
BLOCK
END
