#!/bin/bash
# Runs an ARM executable on an emulated machine with a real Linux kernel: flash in four partitions,
# JFFS2, a watchdog that resets, packet sockets. The flash is NAND that forgets at a reset, or with -f
# NOR that lasts.
#
#   board.sh [options] EXE ROOT_FOLDER SCRIPT
#   board.sh --shell [options] EXE ROOT_FOLDER
#   board.sh --prepare
#
#   EXE           static ARM executable; becomes /board/bin/<its name>, in PATH
#   ROOT_FOLDER   copied over the root of the machine's file system ("" for none)
#   SCRIPT        run there as root, by its #! line
#
#   -n PARAMS   nandsim parameters beside the chip of 4 x 1 MiB with 512-byte pages and 16 KiB
#               erase blocks, as "badblocks=70 weakblocks=75:0 weakpages=2632:0"; block and page
#               numbers count from the start of the chip, not of a partition
#   -f FLASH    the board with NOR flash: the content of its chip of 8 MiB, made when it does not
#               exist, lasts past resets, a killed emulator and the end of the run
#   -d          memory and registers of the camera's chip at their addresses, for its device files over
#               /dev/cuse; the PC's shell in /dash
#   -l LOG      with -f, receives every erase and every programmed byte; flash_log.py describes it
#   -i IMAGE    the boot image: used when it exists, else made there from EXE, ROOT_FOLDER and SCRIPT
#   -e WORDS    variables for the script, as "again=1 port=80"
#   -t SECONDS  time limit on this side (default 300)
#   -o FOLDER   receives what the script left in /board/out
#   -v          show the kernel's messages too
#   --shell     a shell on the machine's console; leaving it switches the machine off
#   --prepare   only download and unpack the kernel
#
# Time in the machine follows the instructions executed and skips idle waits: a sleep of a minute
# costs nothing, and a busy host cannot make a watchdog fire. With --shell it is the host's.
#
# Exit status: the script's own, or
#   122  the machine was powered off before the script ended
#   123  the machine was reset before the script ended (watchdog, reboot, panic)
#   124  the time limit was reached
#   125  the machine could not be prepared or started
# A script had better keep below these. The last line on standard error, "board: ...", says which
# it was. In the machine $BOARD_EXE names the executable and modprobe loads and unloads what was
# packed. Its busybox shell prefers its own applets to files of the same name in PATH, not to files
# named by their path.
#
# Needs qemu-system-arm, cpio, dpkg and setpriv and flock of util-linux, for NOR flash fdtput and
# python3, and is quicker with xz.
# $ZEP_CACHE (default ~/.cache/zep) keeps the kernel.
set -u -o pipefail
export LC_ALL=C

here=$(cd "${BASH_SOURCE[0]%/*}" && pwd)
cache=${ZEP_CACHE:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/zep}/machine
chip="id_bytes=0x98,0x73 overridesize=8 parts=64,64,64,64"
modules="mtdblock jffs2 softdog veth"
nand="" limit=300 outdir="" verbose="" prepare="" shell="" script=""
flash="" log="" image="" words="" devices=""

die() { echo "board: $*" >&2; exit 125; }

. "$here/kernel.sh"
. "$here/nor.sh"

# --- modules --------------------------------------------------------------------

declare -A ko=() deps=()
wanted=()

# Puts module $1 and all it needs in $wanted, in the order to load them, and the files that each
# one needs in $deps.
want_module() {
    local name=${1//-/_} file d all=""
    file=${ko[$name]-}
    if [ -z "$file" ]; then
        sed 's/-/_/g' "$moddir/modules.builtin" | grep -q "/$name\.ko" && return 0
        die "the kernel has no module $1"
    fi
    [ -z "${deps[$file]+x}" ] || return 0
    deps[$file]=""
    for d in $(tr '\0' '\n' < "$moddir/$file" | sed -n 's/^depends=//p' | tr ',' ' '); do
        want_module "$d"
        d=${ko[${d//-/_}]-}
        [ -z "$d" ] || all="$all $d${deps[$d]:+ ${deps[$d]}}"
    done
    deps[$file]=${all# }
    wanted+=("$file")
}

copy_modules() {
    local base=$1 m f
    while IFS= read -r f; do
        m=${f##*/}
        m=${m%.ko}
        ko[${m//-/_}]=$f
    done < <(cd "$moddir" && find kernel -name '*.ko')
    for m in ${nand:+nandsim} $modules; do want_module "$m"; done
    for f in "${wanted[@]}"; do
        mkdir -p "$base/${f%/*}" && cp "$moddir/$f" "$base/$f" || return 1
        echo "$f: ${deps[$f]}"
    done > "$base/modules.dep"
}

# --- the machine's first file system ----------------------------------------------

build_root() {
    local root=$work/root base
    base=$root/lib/modules/$version
    # Real folders first: a link of that name in the overlay must not lead the files below out of
    # the work folder.
    mkdir -p "$base" "$root"/{bin,sbin,usr/bin,usr/sbin,dev,etc,mnt,proc,root,sys,tmp,var,board/bin,board/out} || return 1
    [ -z "$overlay" ] || cp -a "$overlay/." "$root/" || return 1
    copy_modules "$base" &&
        install -m 755 "$cache/sys/bin/busybox" "$root/bin/busybox" &&
        install -m 755 "$exe" "$root/board/bin/${exe##*/}" &&
        install -m 755 "$here/init" "$root/init" &&
        install -m 755 "$here/send" "$root/board/send" &&
        install -m 644 "$here/guest.sh" "$root/board/guest.sh" &&
        install -m 755 "$here/reboot" "$root/sbin/reboot" || return 1
    [ -z "$devices" ] || cp -a "$cache/sys/dash" "$root/dash" || return 1
    [ -z "$script" ] || install -m 755 "$script" "$root/board/script" || return 1
    printf '%s\n' "modules='$modules'" "nand='$nand'" "flash='$flash'" "shell='$shell'" \
        "export BOARD_EXE='/board/bin/${exe##*/}'" > "$root/board/settings"
    (cd "$root" && find . | cpio --quiet -o -H newc -R 0:0 | gzip -1) > "$initrd"
}

# --- boot ---------------------------------------------------------------------------

# Sets $machine, the emulator's words for the board with NAND flash. highmem=off keeps the PCI bridge
# where a kernel without LPAE can reach it.
nand_machine() {
    machine=(-M "virt,highmem=off" -cpu cortex-a15 -m 128 -serial chardev:console
        -device pci-serial,chardev=status -device pci-serial,chardev=files)
    append="console=ttyAMA0"
    [ -z "$devices" ] || device_memory
}

# The kernel takes 256 MiB and leaves the camera's memory at 0x80000000 alone. Two stretches at 0x10000000 and
# 0x20000000 stand for the chip's registers: the kernel lays devices of that size there, after the serial lines.
device_memory() {
    local n
    for n in low high; do
        truncate -s 256M "$work/$n" || return 1
        machine+=(-object "memory-backend-file,id=$n,share=on,mem-path=$work/$n,size=256M"
            -device "ivshmem-plain,memdev=$n,addr=$([ $n = low ] && echo 0x1d || echo 0x1e)")
    done
    machine+=(-m 2048)
    append="$append mem=256M"
}

# Prints what the machine prints; the status is the emulator's. The kernel's crypto self-tests would
# take two seconds. A variable on its command line goes to the environment of the first process.
emulate() {
    local append pace clock=vm input=/dev/null machine=()
    pace="-icount shift=2,sleep=off"
    [ -z "$shell" ] || { pace="" clock=host input=/dev/stdin; }
    if [ -n "$flash" ]; then nor_machine || die "cannot build the board with NOR flash"; else nand_machine; fi
    append="$append panic=-1 oops=panic cryptomgr.notests loglevel=1${verbose:+ ignore_loglevel} $words"
    rm -f "$work"/{status,files,trace}
    # The emulator ends with this script, however that ends.
    # shellcheck disable=SC2086
    setpriv --pdeathsig TERM timeout --foreground -k 5 "$limit" qemu-system-arm -accel tcg $pace \
        -nodefaults -no-user-config -display none -monitor none -no-reboot \
        -rtc base=utc,clock="$clock" \
        -chardev stdio,id=console,signal=off -chardev file,id=status,path="$work/status" \
        -chardev file,id=files,path="$work/files" "${machine[@]}" \
        -trace qemu_system_shutdown_request -D "$work/trace" \
        -kernel "$kernel" -initrd "$initrd" -append "$append" < "$input" 2> >(grep -v 'ftgmac100.* has no peer' >&2) |
        if [ -n "$shell" ]; then cat; else sed -u 's/\r*$//'; fi
    set -- "${PIPESTATUS[0]}"
    [ -z "$log" ] || "$here/flash_log.py" "$work/trace" "$log" || die "no log of the flash"
    return "$1"
}

# What the machine said its script ended with; nothing if it never got there.
verdict() { sed -n 's/^exit \([0-9][0-9]*\)\r*$/\1/p' "$work/status" 2> /dev/null; }

# Keeps the unpacked kernel only if the machine really starts from it.
try_unpacked_kernel() {
    local exe=$cache/sys/bin/busybox overlay="" script=$work/probe initrd=$work/probe.gz
    local limit=60 kernel=$cache/sys/boot/unpacked nand=$chip shell="" flash="" log=""
    unpack_kernel "$1" "$kernel" && printf '#!/bin/busybox sh\nexit 42\n' > "$script" && build_root &&
        emulate > /dev/null 2>&1 && [ "$(verdict)" = 42 ] && rm -rf "$work/root" && return
    echo "board: the unpacked kernel does not start, using the packed one" >&2
    rm -rf "$kernel" "$kernel.raw" "$kernel.nor" "$work/root"
}

# --- command line ---------------------------------------------------------------------

while [ $# -gt 0 ]; do
    case $1 in
    -n) nand=${2-} && shift ;;
    -d) devices=1 ;;
    -f) flash=${2-} && shift ;;
    -l) log=${2-} && shift ;;
    -i) image=${2-} && shift ;;
    -e) words=${2-} && shift ;;
    -t) limit=${2-} && shift ;;
    -o) outdir=${2-} && shift ;;
    -v) verbose=1 ;;
    --shell) shell=1 limit=0 ;;
    --prepare) prepare=1 ;;
    -*) die "unknown option $1" ;;
    *) break ;;
    esac
    [ $# -gt 0 ] && shift
done
if [ -z "$prepare" ]; then
    [ $# -eq $((shell ? 2 : 3)) ] || die "usage: board.sh [options] EXE ROOT_FOLDER SCRIPT"
    exe=$1 overlay=$2 script=${3-}
    [ -f "$exe" ] || die "no executable $exe"
    [ -n "$shell" ] || [ -f "$script" ] || die "no script $script"
    [ -z "$overlay" ] || [ -d "$overlay" ] || die "no folder $overlay"
    # ELF, 32 bits, little-endian, machine 40 (ARM)
    [ "$(od -A n -t x1 -N 6 "$exe" | tr -d ' ')$(od -A n -t x1 -j 18 -N 2 "$exe" | tr -d ' ')" = 7f454c4601012800 ] ||
        die "$exe is no ARM executable"
fi
for tool in qemu-system-arm cpio dpkg-deb flock setpriv ${flash:+fdtput python3}; do
    [ -n "$(command -v $tool)" ] || die "$tool is not installed"
done

work=$(mktemp -d "${TMPDIR:-/tmp}/board.XXXXXX") || die "no work folder"
trap 'rm -rf "$work"' EXIT

mkdir -p "$cache" && cache=$(cd "$cache" && pwd) || die "cannot make $cache"
exec 9> "$cache/lock"
flock 9 || die "cannot lock $cache"
[ -f "$cache/sys/ready" ] && [ -f "$cache/sys/board.dtb" ] && [ -d "$cache/sys/dash" ] || prepare_sys || die "no kernel to boot"
kernel=$(echo "$cache"/sys/boot/vmlinuz-*)
version=${kernel##*/vmlinuz-}
moddir=$cache/sys/lib/modules/$version
[ -f "$kernel" ] && [ -d "$moddir" ] || die "$cache holds no usable kernel; remove it to start afresh"
if [ ! -f "$cache/sys/ready" ]; then
    [ -z "$(command -v xz)" ] || try_unpacked_kernel "$kernel"
    touch "$cache/sys/ready"
fi
exec 9>&-
[ ! -f "$cache/sys/boot/unpacked" ] || kernel=$cache/sys/boot/unpacked${flash:+.nor}
[ -z "$prepare" ] || exit 0
if [ -n "$flash" ]; then modules=$nor_modules; else nand="$chip $nand"; fi
[ -z "$devices" ] || modules="$modules fuse cuse"

initrd=${image:-$work/initrd.gz}
[ -f "$initrd" ] || build_root || die "cannot build the root file system"
emulate
ended=$?

if [ -n "$outdir" ] && [ -s "$work/files" ]; then
    mkdir -p "$outdir" && tar -x -z -m -f "$work/files" -C "$outdir" || die "the machine's files did not arrive whole"
fi
status=$(verdict)
if [ -n "$status" ]; then
    echo "board: the script ended with $status" >&2
    exit "$status"
elif [ "$ended" = 124 ] || [ "$ended" = 137 ]; then
    echo "board: time limit of $limit s reached" >&2
    exit 124
elif [ "$ended" != 0 ]; then
    die "the emulator failed with status $ended"
elif grep -q 'qemu_system_shutdown_request reason=6' "$work/trace" 2> /dev/null; then
    echo "board: powered off before the script ended" >&2
    exit 122
fi
echo "board: reset before the script ended" >&2
exit 123
