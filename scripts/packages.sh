# Sourced by the other scripts: installs what the build needs and this machine lacks.

need_packages() {
    local missing=()
    local package
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}"
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get update -q >/dev/null
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
        "${missing[@]}" >/dev/null
}

library_packages=(g++ cmake ninja-build ccache git ca-certificates libasio-dev libssl-dev)
demo_packages=("${library_packages[@]}" libcli11-dev)
test_packages=("${demo_packages[@]}" clang pkgconf libgtest-dev libbenchmark-dev libprotobuf-dev
               protobuf-compiler rapidjson-dev nlohmann-json3-dev libpugixml-dev)
