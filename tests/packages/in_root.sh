#!/usr/bin/env bash
# What tests/packages/debian.sh does in the fresh root.  A pipe is read to its end: who writes into one that is closed has failed.
# Usage: in_root.sh VERSION
set -euo pipefail
version=$1
packages=(libtav-im-nbr1 libtav-im-json1 libtav-im-nbr-dev tav-tools python3-tav-im)
cd /demo

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
installed() { # VERSION
    local package
    for package in "${packages[@]}"; do
        [ "$(dpkg-query -W -f '${Version}' "$package")" = "$1" ] || fail "$package is not of the version $1"
    done
}
# All files but those of the package manager and of the test.
files() {
    find / -xdev \( -path /proc -o -path /demo -o -path /tmp -o -path /var/lib/apt -o -path /var/lib/dpkg -o -path /var/cache \
        -o -path /var/log -o -path /root \) -prune -o -print | sort
}
install() {
    apt-get install -y -q --no-install-recommends "$@" >/demo/apt.log 2>&1 || { cat /demo/apt.log >&2; fail "can't install $*"; }
}

apt-get update -q >/dev/null
# What the packages need, and what their users have: these stay.
install g++ make cmake pkgconf python3 libssl3
files >/demo/files.before

echo "== the version before"
install ./old/*.deb
installed "$version~before"
# README's example, as README has it.
awk '/^<!-- is: examples\/first.cpp -->/ { found = 1; next } found && /^```/ { if (inside) exit; inside = 1; next } inside' README.md >first.cpp
[ "$(wc -l <first.cpp)" -gt 30 ] || fail "README has no example"
read -r -a flags < <(pkg-config --cflags --libs tav_im_nbr)
g++ -std=c++17 first.cpp -o first-of-before "${flags[@]}" -pthread

echo "== this version over it"
install ./new/*.deb
installed "$version"
[ -z "$(find / -xdev -name '*.dpkg-*' -not -path '/var/*' -not -path '/etc/*')" ] || fail "the upgrade leaves files"

echo "== README's example and others, by CMake's package"
examples=(first request pushes template encodings safe)
{
    echo 'cmake_minimum_required(VERSION 3.18)'
    echo 'project(examples LANGUAGES C CXX)'
    echo 'find_package(tav_im_nbr REQUIRED)'
    echo 'add_executable(first /demo/first.cpp)'
    echo 'target_link_libraries(first PRIVATE tav_im_nbr::kit)'
    for name in "${examples[@]:1}"; do
        echo "add_executable($name /usr/share/doc/libtav-im-nbr-dev/examples/$name.cpp)"
        echo "target_link_libraries($name PRIVATE tav_im_nbr::kit)"
    done
    echo 'add_executable(c_first /usr/share/doc/libtav-im-nbr-dev/examples/c_first.c)'
    echo 'target_link_libraries(c_first PRIVATE tav_im_nbr::json)'
    echo 'set(chat /usr/share/doc/libtav-im-nbr-dev/examples/chat)'
    echo 'add_executable(chat ${chat}/main.cpp ${chat}/chat.cpp ${chat}/loop.cpp ${chat}/screen_plain.cpp ${chat}/text.cpp)'
    echo 'add_executable(chat-rooms ${chat}/rooms.cpp ${chat}/loop.cpp)'
    echo 'target_link_libraries(chat PRIVATE tav_im_nbr::kit)'
    echo 'target_link_libraries(chat-rooms PRIVATE tav_im_nbr::kit)'
} >build/examples/CMakeLists.txt
cmake -S build/examples -B build/examples >cmake.log || { cat cmake.log; fail "the package is not found"; }
cmake --build build/examples -- -j"$(nproc)" >cmake.log 2>&1 || { cat cmake.log; fail "the examples do not compile"; }
ln -s /usr/bin/tav-gateway build/gateway/tav-gateway
# The program of the version before runs with this version's library.
cp first-of-before build/examples/by_hand
scripts/examples.sh build "${examples[@]}" c_first by_hand

echo "== the demo's chat"
mkdir -p build/tools
ln -s /usr/bin/tav build/tools/tav
scripts/chat.sh build

echo "== Python"
. scripts/serve.sh
serve gateway tav-gateway --certificates "$work/certificates" --port-file "$work/gateway.port"
python3 /usr/share/doc/libtav-im-nbr-dev/examples/py_first.py 127.0.0.1 "$(cat "$work/gateway.port")" "$work/certificates/ca.pem"

echo "== the tool, its pages, man pages and completion"
for program in tav tav-gateway; do
    [ "$("$program" --version)" = "$program $(sed 's/[~+-].*//' <<<"$version")" ] || fail "$program is of another version"
done
tests/docs/tool_pages.sh /demo /usr/bin/tav /demo/pages
for command in "" -check -dump -convert -diff -gen -tls -send -request -listen -load -gateway; do
    zcat "/usr/share/man/man1/tav$command.1.gz" | grep '^\.TH' >/dev/null || fail "no man page of tav$command"
done
for text in "a message gateway for development" "--rules FILE"; do
    zcat /usr/share/man/man1/tav-gateway.1.gz | tr -d '\\' | grep -e "$text" >/dev/null || fail "the page of tav-gateway has no $text"
done
(. /usr/share/bash-completion/completions/tav && complete -p tav >/dev/null) || fail "no completion for bash"
(. /usr/share/bash-completion/completions/tav-gateway && COMP_WORDS=(tav-gateway --ro) && _tav_gateway tav-gateway --ro &&
    [ "${COMPREPLY[*]}" = --route ]) || fail "no completion for bash of tav-gateway"
for program in tav tav-gateway; do
    [ -s "/usr/share/zsh/site-functions/_$program" ] || fail "no completion for zsh of $program"
done
ls /usr/lib/*/wireshark/plugins/tav.lua >/dev/null
(cd pages && tav gateway --web 0 -t /demo/docs/tool/talk.pml --until-eof </dev/null) >gateway.log 2>&1 || { cat gateway.log; fail "no page"; }
grep -q "the page is at http://127.0.0.1:" gateway.log || fail "the gateway has no page"

echo "== the pages name what is there"
python3 tests/packages/links.py /usr/share/doc/libtav-im-nbr-dev /usr/share/doc/tav-tools

echo "== removed"
apt-get purge --auto-remove -y -q "${packages[@]}" >apt.log 2>&1 || { cat apt.log; fail "can't be removed"; }
for package in "${packages[@]}"; do
    ! dpkg-query -W "$package" 2>/dev/null || fail "$package is still known"
done
files >/demo/files.after
diff /demo/files.before /demo/files.after || fail "the packages leave files, or take some along"
echo "packages: ok"
