# Roots of Debian, which are made and entered by root only; sourced by what builds or tries something on a fresh system.

# unpack_root SUITE ARCHIVE ROOT: a base system, which is made once, and unpacked for each use.
unpack_root() {
    local suite=$1 archive=$2 root=$3
    [ "$(id -u)" -eq 0 ] || { echo "a root of its own is made by root only: sudo $0" >&2; return 1; }
    mkdir -p "$root"
    if [ ! -e "$archive" ]; then
        local site
        site=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | awk '/\/debian\/*$/ && !found { print; found = 1 }')
        mkdir -p "$(dirname "$archive")"
        # What is mounted there while it is made ends with this.
        unshare --mount debootstrap --variant=minbase "$suite" "$root.base" "$site"
        tar --create --directory "$root.base" --file "$archive.part" .
        mv "$archive.part" "$archive"
        rm -rf "$root.base"
    fi
    tar --extract --directory "$root" --file "$archive"
    # An installer writes this, and every machine has it.
    printf '127.0.0.1\tlocalhost\n' >"$root/etc/hosts"
}

# run_in_root ROOT [FOLDER:PLACE[:ro] ...] -- COMMAND...: with these folders of this system in their places.  Processes
# that the root's programs leave end with it.
run_in_root() {
    local root=$1
    shift
    local mounts="mount -t devpts -o newinstance,ptmxmode=0666 devpts '$root/dev/pts'"
    while [ "$1" != -- ]; do
        local folder place options
        IFS=: read -r folder place options <<<"$1"
        mkdir -p "$root$place"
        mounts+=" && mount --bind '$folder' '$root$place'"
        [ "$options" != ro ] || mounts+=" && mount -o remount,bind,ro '$root$place'"
        shift
    done
    shift
    unshare --mount --pid --fork --kill-child --mount-proc="$root/proc" sh -c "$mounts"' && exec "$@"' sh \
        chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}
