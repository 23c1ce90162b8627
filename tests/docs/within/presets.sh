# Commands that work on this tree: each script that they call is there, and so is each preset that they name and each
# program that a build has.
BUILD=${WORK%/tests/docs-work/*}
cd "$PROJECT"
while read -r command; do
    set -- ${command%%#*}
    case $1 in
    scripts/*) [ -x "$1" ] || { echo "no script: $1"; exit 1; } ;;
    ctest | cmake) [ "$2" = --preset ] || [ "$3" = --preset ] || { echo "no preset: $command"; exit 1; } ;;
    build/*) grep -qE "^build ${1#build/*/}( |:)" "$BUILD/build.ninja" || { echo "no program of this tree: $1"; exit 1; } ;;
    *) echo "what is $1?"; exit 1 ;;
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
