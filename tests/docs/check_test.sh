#!/usr/bin/env bash
# A page with a block that nobody compiles or runs fails, and the line is told.
# Usage: check_test.sh PROJECT WORK
set -euo pipefail
project=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
check=$project/tests/docs/check.sh

refused() { # TEXT OF THE COMPLAINT, page on standard input
    cat >"$work/page.md"
    # The page is named from the project, as all are.
    if "$check" quick "$project" "$work/blocks" "$(realpath --relative-to "$project" "$work/page.md")" 2>"$work/said"; then
        echo "not refused: $1" >&2
        exit 1
    fi
    grep -q "page.md:[0-9]*: .*$1" "$work/said" || { cat "$work/said" >&2; exit 1; }
}

refused "does not compile" <<'END'
```cpp
int broken = ;
```
END
refused "does not compile" <<'END'
<!-- within: sends -->
```cpp
client.no_such_call();
```
END
refused "there is no" <<'END'
<!-- within: nothing -->
```cpp
int fine = 0;
```
END
refused "says within what it is run" <<'END'
```sh
true
```
END
refused "does not run" <<'END'
<!-- within: presets -->
```sh
scripts/test.sh no_such_preset
```
END
refused "no known language" <<'END'
```
int x = 0;
```
END
refused "a command that nobody runs" <<'END'
```text
tav check template.pml
```
END
refused "a command that nobody runs" <<'END'
```text
$ date
```
END
refused "is not examples/first.cpp" <<'END'
<!-- is: examples/first.cpp -->
```cpp
int fine = 0;
```
END
refused "is not in examples/first.cpp" <<'END'
<!-- in: examples/first.cpp -->
```cpp
int fine = 0;
```
END
refused "indented only" <<'END'
    client.close();
END
refused "indented only" <<'END'
    scripts/demo.sh
END

cat >"$work/page.md" <<'END'
Text, and a block that compiles:
```cpp
int fine = 0;
```

    a  b  c
END
"$check" quick "$project" "$work/blocks" "$(realpath --relative-to "$project" "$work/page.md")"
echo ok
