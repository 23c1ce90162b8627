#!/usr/bin/env bash
# Builds the library for other machines and with the oldest tools that it promises to work with, warnings as errors, and
# runs a small program against it: on 64-bit ARM, on 32-bit x86, with g++ 10, with clang's own standard library, and
# with CMake 3.18.  What Debian 12 does not have comes from Debian 11, unpacked below build/places; nothing of it is
# installed.
# Usage: scripts/places.sh [aarch64|i686|gcc10|libcxx|cmake318 ...]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need_packages "${places_packages[@]}"

project=$PWD
places=("$@")
[ ${#places[@]} -gt 0 ] || places=(aarch64 i686 gcc10 libcxx cmake318)
top=$project/build/places
mkdir -p "$top/asio"
# asio alone: the folder that it is in holds this machine's other headers too.
ln -sfn /usr/include/asio "$top/asio/asio"
ln -sfn /usr/include/asio.hpp "$top/asio/asio.hpp"

# fetch SUITE ARCHITECTURE FOLDER PACKAGE...: unpacks the packages of this suite into the folder.
fetch() {
    local suite=$1 architecture=$2 folder=$3
    shift 3
    [ ! -e "$folder/complete" ] || return 0
    local state=$top/apt-$suite-$architecture
    rm -rf "$folder"
    mkdir -p "$folder/archives" "$state/lists/partial" "$state/cache/archives/partial"
    : >"$state/status"
    local site
    site=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | grep -m1 '/debian/*$')
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $site $suite main" >"$state/sources.list"
    local apt=(apt-get -qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture"
               -o APT::Sandbox::User= -o Dir::Etc::sourcelist="$state/sources.list" -o Dir::Etc::sourceparts=-
               -o Dir::State::lists="$state/lists" -o Dir::State::status="$state/status"
               -o Dir::Cache="$state/cache")
    "${apt[@]}" update
    (cd "$folder/archives" && "${apt[@]}" download "$@")
    local archive
    for archive in "$folder"/archives/*.deb; do
        dpkg-deb -x "$archive" "$folder"
    done
    touch "$folder/complete"
}

cmake=cmake
# build NAME COMPILER-FLAGS CMAKE-OPTION...: the library; and the consumer of the install tests against it.
build() {
    local name=$1 flags=$2
    shift 2
    "$cmake" -S . -B "$top/$name" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O1 -Werror" \
        -DCMAKE_CXX_FLAGS="$flags" -DTAV_ASIO_INCLUDE_DIR="$top/asio" "$@" >/dev/null
    "$cmake" --build "$top/$name"
}

# try NAME COMPILER-COMMAND RUNNER...
try() {
    local name=$1 compiler=$2
    shift 2
    $compiler -std=c++17 -Iinclude tests/install/consumer.cpp -o "$top/$name/consumer" -L"$top/$name/src" -ltav_im_nbr
    "$@" "$top/$name/consumer"
}

# cross PROCESSOR TRIPLET DEBIAN-ARCHITECTURE EMULATOR
cross() {
    local processor=$1 triplet=$2 architecture=$3 emulator=$4
    local root=$top/root-$architecture
    # Debian's names of folders: i386-linux-gnu where the compiler says i686-linux-gnu.
    local folder=${triplet/i686/i386}
    fetch bookworm "$architecture" "$root" libssl-dev libssl3
    build "$processor" "-isystem $root/usr/include/$folder" -DCMAKE_SYSTEM_NAME=Linux \
        -DCMAKE_SYSTEM_PROCESSOR="$processor" -DCMAKE_C_COMPILER="$triplet-gcc" -DCMAKE_CXX_COMPILER="$triplet-g++" \
        -DOPENSSL_INCLUDE_DIR="$root/usr/include" -DOPENSSL_SSL_LIBRARY="$root/usr/lib/$folder/libssl.so" \
        -DOPENSSL_CRYPTO_LIBRARY="$root/usr/lib/$folder/libcrypto.so"
    # The C library of the loader's own folder, ahead of any that this machine has for its 32-bit programs: the two
    # must be of one build.
    try "$processor" "$triplet-g++ -Wl,-rpath-link,$root/usr/lib/$folder" "$emulator" -L "/usr/$triplet" \
        -E "LD_LIBRARY_PATH=$top/$processor/src:/usr/$triplet/lib:$root/usr/lib/$folder"
}

for place in "${places[@]}"; do
    echo "== $place"
    case $place in
    aarch64) cross aarch64 aarch64-linux-gnu arm64 qemu-aarch64 ;;
    i686) cross i686 i686-linux-gnu i386 qemu-i386 ;;
    gcc10)
        gcc10=$top/gcc10-root
        fetch bullseye amd64 "$gcc10" g++-10 gcc-10 cpp-10 libgcc-10-dev libstdc++-10-dev libisl23
        build gcc10 "" -DCMAKE_C_COMPILER="$gcc10/usr/bin/gcc-10" -DCMAKE_CXX_COMPILER="$gcc10/usr/bin/g++-10"
        try gcc10 "$gcc10/usr/bin/g++-10" env "LD_LIBRARY_PATH=$top/gcc10/src"
        ;;
    libcxx)
        build libcxx "-stdlib=libc++" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
        try libcxx "clang++ -stdlib=libc++" env "LD_LIBRARY_PATH=$top/libcxx/src"
        ;;
    cmake318)
        old=$top/cmake318-root
        fetch bullseye amd64 "$old" cmake cmake-data libjsoncpp24 libssl1.1 libldap-2.4-2 libicu67 libffi7
        printf '#!/bin/sh\nLD_LIBRARY_PATH=%s exec %s "$@"\n' "$old/usr/lib/x86_64-linux-gnu" "$old/usr/bin/cmake" \
            >"$old/run-cmake"
        chmod +x "$old/run-cmake"
        cmake=$old/run-cmake
        build cmake318 ""
        try cmake318 g++ env "LD_LIBRARY_PATH=$top/cmake318/src"
        cmake=cmake
        ;;
    *)
        echo "no such place: $place" >&2
        exit 2
        ;;
    esac
done
