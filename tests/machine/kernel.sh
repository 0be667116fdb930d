# Gets the emulated machine's kernel, its busybox and the PC's shell, sourced by board.sh. All are Debian
# armhf packages, had through a private apt directory: the architectures, package lists and installed
# packages of this machine stay as they are.
#
# $cache      where they are kept: ready, boot/, lib/modules/, bin/busybox, board.dtb, dash/
# shellcheck shell=bash

# shellcheck source=SCRIPTDIR/../../cmake/private-apt.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../cmake/private-apt.sh"

fetch_debs() {
    local to=$1 conf=$cache/apt/apt.conf image
    private_apt armhf "$cache/apt" || return 1
    # A list that fails matters only when the packages are then not found.
    apt-get -c "$conf" -qq update >&2 || echo "board: some package lists failed, going on" >&2
    image=$(apt-cache -c "$conf" depends linux-image-armmp 2> /dev/null |
        sed -n 's/^ *Depends: \(linux-image-[^ :]*\).*/\1/p' | head -n 1)
    [ -n "$image" ] || { echo "board: no armhf kernel in the package lists" >&2; return 1; }
    (cd "$to" && apt-get -c "$conf" -qq download "$image" busybox-static dash libc6 >&2)
}

# boot_image FILE ADDRESS TO: the kernel behind the 64-byte boot image header that tells the emulator
# where it expects to run.
boot_image() {
    local size address
    size=$(printf '\\x%02x' $(bytes_of "$(stat -c %s "$1")"))
    address=$(printf '\\x%02x' $(bytes_of "$2"))
    {
        printf '\x27\x05\x19\x56\0\0\0\0\0\0\0\0'
        printf "$size$address$address"'\0\0\0\0\x05\x02\x02\0'
        head -c 32 /dev/zero
        cat "$1"
    } > "$3"
}

bytes_of() { echo $(($1 >> 24 & 255)) $(($1 >> 16 & 255)) $(($1 >> 8 & 255)) $(($1 & 255)); }

# Half of a boot would go into the kernel unpacking itself under emulation. This unpacks file $1
# into $2 instead, and into $2.nor for the board whose memory begins elsewhere. It runs 0x208000
# above the start of memory for the set of chips that Debian builds it for.
unpack_kernel() {
    local at size
    for at in $(grep -aboF $'\xfd7zXZ' "$1" | cut -d: -f1); do
        tail -c +$((at + 1)) "$1" | xz -d -c --single-stream > "$2.raw" 2> /dev/null
        [ "${PIPESTATUS[1]}" = 0 ] && break
    done
    size=$(stat -c %s "$2.raw" 2> /dev/null) && [ "$size" -gt 4000000 ] || return 1
    boot_image "$2.raw" $((0x40208000)) "$2" && boot_image "$2.raw" $((0x80208000)) "$2.nor" || return 1
    rm -f "$2.raw"
}

# Unpacks the packages into a folder that takes its name only when it is whole.
unpack_debs() {
    local debs=$1 deb new=$cache/new
    rm -rf "$new" && mkdir -p "$new" || return 1
    for deb in "$debs"/linux-image-*-armmp_*.deb "$debs"/{busybox-static,dash,libc6}_*.deb; do
        [ -f "$deb" ] || { echo "board: $deb is missing" >&2; return 1; }
        case $deb in
        */busybox*) dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$new" ./bin/busybox || return 1 ;;
        */dash* | */libc6*)
            mkdir -p "$new/dash" && dpkg-deb --fsys-tarfile "$deb" |
                tar -x -C "$new/dash" --wildcards "./bin/dash" "./lib/ld-linux-armhf.so.3" \
                    "./lib/arm-linux-gnueabihf/ld-linux-armhf.so.3" "./lib/arm-linux-gnueabihf/libc.so.6" 2> /dev/null
            ;;
        *)
            dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$new" ./boot ./lib/modules &&
                dpkg-deb --fsys-tarfile "$deb" |
                tar -x -O --wildcards "./usr/lib/linux-image-*/aspeed-ast2600-evb.dtb" > "$new/board.dtb" || return 1
            ;;
        esac
    done
    [ -f "$new/dash/lib/arm-linux-gnueabihf/libc.so.6" ] && [ -f "$new/dash/bin/dash" ] ||
        { echo "board: no shell in its packages" >&2; return 1; }
    rm -rf "$cache/sys" && mv "$new" "$cache/sys"
}

# Leaves $cache/sys/{boot,lib,bin,dash,board.dtb}.
prepare_sys() {
    local debs=$cache/debs
    rm -rf "$debs" && mkdir -p "$debs" && fetch_debs "$debs" && unpack_debs "$debs" || return 1
    rm -rf "$debs" "$cache/apt/lists"
}
