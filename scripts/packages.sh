#!/usr/bin/env bash
# The Debian packages that the builds need.  Run with the name of a list, it installs what this machine lacks of it;
# the other scripts source it.
# Usage: scripts/packages.sh library|demo|test|coverage|performance|lint|long|places|fuzz|wireshark|browser|debian|abi

library_packages=(g++ cmake make libasio-dev libssl-dev)
demo_packages=("${library_packages[@]}" ninja-build ccache git ca-certificates libcli11-dev libcpp-httplib-dev libedit-dev python3)
test_packages=("${demo_packages[@]}" openssl doxygen clang pkgconf libgtest-dev libbenchmark-dev libprotobuf-dev
               protobuf-compiler rapidjson-dev nlohmann-json3-dev libpugixml-dev libspdlog-dev python3-pip mypy)
coverage_packages=("${test_packages[@]}" gcovr)
lint_packages=("${demo_packages[@]}" clang-format-14 clang-tidy-14)
long_packages=(haproxy stunnel4)
places_packages=("${library_packages[@]}" ninja-build ca-certificates clang g++-aarch64-linux-gnu
                 g++-i686-linux-gnu libc++-14-dev libc++abi-14-dev qemu-user debootstrap libcli11-dev nlohmann-json3-dev openssl)
fuzz_packages=("${library_packages[@]}" ninja-build ccache clang-14 clang libclang-rt-14-dev llvm-14 python3)
wireshark_packages=(tshark python3)
browser_packages=(chromium-headless-shell python3)
debian_packages=("${library_packages[@]}" git libcli11-dev libcpp-httplib-dev python3 pkgconf dpkg-dev debhelper dh-python help2man lintian
                 debootstrap)
abi_packages=("${library_packages[@]}" git abigail-tools)
performance_packages=(binutils gnuplot-nox python3)

# Tells what to ask an administrator for, in a line that can be pasted.
ask_for_packages() {
    {
        echo "packages are missing, and only an administrator can install them.  Please ask for:"
        echo "apt-get update && apt-get install -y --no-install-recommends $*"
    } >&2
    return 1
}

need_packages() {
    # Other systems have other package managers: there the build tells what it does not find.
    command -v dpkg-query >/dev/null || return 0
    local missing=()
    local package
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        # sudo may ask for a password, if there is somebody to answer.
        if command -v sudo >/dev/null && { sudo -n true 2>/dev/null || { [ -t 0 ] && sudo -v; }; }; then
            as_root=(sudo)
        else
            ask_for_packages "${missing[@]}"
            return
        fi
    fi
    echo "installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -q >/dev/null
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
        "${missing[@]}" >/dev/null
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
    set -euo pipefail
    case "${1-}" in
    library | demo | test | coverage | performance | lint | long | places | fuzz | wireshark | browser | debian | abi)
        declare -n list="$1_packages"
        need_packages "${list[@]}"
        ;;
    *)
        echo "usage: scripts/packages.sh library|demo|test|coverage|performance|lint|long|places|fuzz|wireshark|browser|debian|abi" >&2
        exit 2
        ;;
    esac
fi
