#!/usr/bin/env bash
# Builds the library, warnings as errors, with the systems, compilers and standards that it promises to work with, and tries it
# there: a table is in docs/testing.md.
#   debian11, debian12, debian13: in a root of that release alone, by its g++ and its clang, in each of the standards 17,
#       20 and 23 that the compiler has.  With g++ and 17: gateway, tool, examples and all test programs, optimised;
#       otherwise the libraries and a few programs, some of each layer, not optimised.
#   aarch64: by a cross compiler, the tests of all layers but the client by an emulator.  i686, gcc10, libcxx, cmake318: the library and a
#       small program on Debian 12, with what that does not have unpacked from Debian 11.
# Roots are made below build/places, by root only; nothing of it is installed on this machine.
# Usage: scripts/places.sh [aarch64|i686|gcc10|libcxx|cmake318|debian11|debian12|debian13 ...]
#        scripts/places.sh debian13/clang++/20      with one compiler and one standard
# TAV_PLACE_TESTS="PROGRAM ..." are the test programs that are built and run in place of those; or all.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
. scripts/root.sh
need_packages "${places_packages[@]}"

project=$PWD
places=("$@")
[ ${#places[@]} -gt 0 ] || places=(aarch64 i686 gcc10 libcxx cmake318 debian11 debian12 debian13)
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

# cross PROCESSOR TRIPLET DEBIAN-ARCHITECTURE EMULATOR [TESTS]
cross() {
    local processor=$1 triplet=$2 architecture=$3 emulator=$4 tests=${5-}
    local root=$top/root-$architecture
    # Debian's names of folders: i386-linux-gnu where the compiler says i686-linux-gnu.
    local folder=${triplet/i686/i386}
    fetch bookworm "$architecture" "$root" libssl-dev libssl3
    local flags="-isystem $root/usr/include/$folder" links="-Wl,-rpath-link,$root/usr/lib/$folder"
    local options=(-DCMAKE_SYSTEM_NAME=Linux
        -DCMAKE_SYSTEM_PROCESSOR="$processor" -DCMAKE_C_COMPILER="$triplet-gcc" -DCMAKE_CXX_COMPILER="$triplet-g++"
        -DOPENSSL_INCLUDE_DIR="$root/usr/include" -DOPENSSL_SSL_LIBRARY="$root/usr/lib/$folder/libssl.so"
        -DOPENSSL_CRYPTO_LIBRARY="$root/usr/lib/$folder/libcrypto.so")
    # The C library of the loader's own folder, ahead of any that this machine has for its 32-bit programs: the two
    # must be of one build.
    emulator="$emulator -L /usr/$triplet -E LD_LIBRARY_PATH=$top/$processor/src:/usr/$triplet/lib:$root/usr/lib/$folder"
    if [ -z "$tests" ]; then
        build "$processor" "$flags" "${options[@]}"
        try "$processor" "$triplet-g++ $links" $emulator
        return
    fi
    fetch bookworm "$architecture" "$root-tests" libgtest-dev
    EMULATOR=$emulator scripts/place.sh "$top/$processor" "$tests" "${options[@]}" -DCMAKE_CXX_FLAGS="$flags" \
        -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$links" -DTAV_ASIO_INCLUDE_DIR="$top/asio" \
        -DGTest_DIR="$root-tests/usr/lib/$folder/cmake/GTest" -DCMAKE_CROSSCOMPILING_EMULATOR="${emulator// /;}" \
        -DTAV_HTTPLIB_LIBRARY=OFF -DTAV_EDIT_LIBRARY=OFF
}

# The test programs of these folders of tests.
programs_of() {
    local folder
    for folder in "$@"; do
        find "tests/$folder" -name '*_test.cpp' -printf '%f\n'
    done | sed 's/\.cpp$//' | sort | tr '\n' ' '
}

# Some of each layer, and the client against TLS peers of many kinds.
few="istr_test number_text_test time_zone_test task_queue_test timer_thread_test nbr_document_test json_values_test pml_text_test
xml_parser_test log_file_test encodings_test json2nbr_values_test packet_pc_test client_send_test client_policy_test
worst_certificate_test worst_handshake_test kit_message_test kit_talk_test json_client_test"

# debian RELEASE [COMPILER [STANDARD]]
debian() {
    local release=$1 compilers=${2:-g++ clang++} standards=${3:-17 20 23}
    local suites=([11]=bullseye [12]=bookworm [13]=trixie)
    local suite=${suites[$release]}
    local root=$top/root-$suite
    local packages=(g++ clang cmake ninja-build ccache libasio-dev libssl-dev openssl ca-certificates libgtest-dev libedit-dev
                    nlohmann-json3-dev python3)
    # Debian 11 has neither; the first is headers alone, and those of Debian 12 do.
    [ "$release" = 11 ] || packages+=(libcli11-dev libcpp-httplib-dev)
    if [ ! -e "$root/complete" ]; then
        rm -rf "$root"
        unpack_root "$suite" "$top/$suite.tar" "$root"
        run_in_root "$root" -- sh -c 'apt-get update -q && apt-get install -y -q --no-install-recommends "$@" && apt-get clean' \
            sh "${packages[@]}" >"$root/packages.log" 2>&1 || { cat "$root/packages.log" >&2; return 1; }
        if [ "$release" = 11 ]; then
            fetch bookworm amd64 "$top/headers" libcli11-dev
            cp -r "$top/headers/usr/include/CLI" "$root/usr/include/"
            cp -r "$top/headers/usr/share/cmake/CLI11" "$root/usr/share/cmake/"
        fi
        touch "$root/complete"
    fi
    mkdir -p "$top/debian$release" "$top/ccache"
    local compiler standard
    for compiler in $compilers; do
        for standard in $standards; do
            debian_with "$release" "$root" "$compiler" "$standard"
        done
    done
}

# debian_with RELEASE ROOT COMPILER STANDARD
debian_with() {
    local release=$1 root=$2 compiler=$3 standard=$4
    local c=gcc
    [ "$compiler" != clang++ ] || c=clang
    # CMake of Debian 11 knows no 23, as neither of its compilers does.
    if ! run_in_root "$root" -- sh -c "echo 'static_assert(true);' | $compiler -std=c++$standard -x c++ -fsyntax-only - ||
            echo 'static_assert(true);' | $compiler -std=c++2b -x c++ -fsyntax-only -" 2>/dev/null; then
        echo "== debian$release $compiler: it has no C++$standard"
        return 0
    fi
    local tests=$few
    [ "$compiler/$standard" != g++/17 ] || tests=all
    tests=${TAV_PLACE_TESTS:-$tests}
    echo "== debian$release $(run_in_root "$root" -- "$compiler" -dumpversion) $compiler C++$standard"
    run_in_root "$root" "$project:/project:ro" "$top/debian$release:/build" "$top/ccache:/ccache" -- \
        env CCACHE_DIR=/ccache CCACHE_NOHASHDIR=1 /project/scripts/place.sh "/build/$compiler-$standard" "$tests" \
        -DCMAKE_C_COMPILER="$c" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_STANDARD="$standard"
}

for place in "${places[@]}"; do
    echo "== $place"
    case $place in
    aarch64)
        # A process that the emulator runs can't start another one: those of the tool, the kit's and the bindings' do.
        cross aarch64 aarch64-linux-gnu arm64 qemu-aarch64 \
            "${TAV_PLACE_TESTS:-$(programs_of foundation runtime codec formats log object model packet)}"
        ;;
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
    debian11 | debian12 | debian13 | debian1[123]/*)
        IFS=/ read -r release compiler standard <<<"${place#debian}"
        debian "$release" "$compiler" "$standard"
        ;;
    *)
        echo "no such place: $place" >&2
        exit 2
        ;;
    esac
done
