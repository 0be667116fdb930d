#!/bin/sh
# Builds the release toolchain: a small C library for static ARM programs, from the distribution's
# uclibc-source, and wrappers that make the distribution's cross compiler use it.
#
#   toolchain/build.sh [--config FILE] [--source FOLDER]
#
# The result stands in a cache folder whose name carries a hash of everything it is made from, so
# an edit of this folder or another compiler makes a new one and an old one is never half changed.
# The last line of the output is that folder. --config appends configuration lines, for trials; --source
# takes the C library's source from a folder, where somebody changed it, in place of the distribution's.
#
#   ZEP_TOOLCHAINS  where toolchains are kept (default: ~/.cache/zep)
#   ZEP_JOBS        parallel jobs (default 2)
#
# Needs (Debian): g++-arm-linux-gnueabi gcc libc6-dev make xz-utils util-linux; as user, nothing
# more. Writes nothing outside the cache.
set -eu
export LC_ALL=C
unset CFLAGS CPPFLAGS CXXFLAGS LDFLAGS ARCH CROSS_COMPILE MAKEFLAGS MAKELEVEL O V || :

recipe=$(cd "$(dirname "$0")" && pwd)
triplet=arm-linux-gnueabi
# ARM926EJ-S: ARMv5TE without floating point. The code runs on every later ARM core too.
cpu="-march=armv5te -mtune=arm926ej-s -mfloat-abi=soft"
code=-mthumb # the executable is a fifth smaller than with ARM code

say() { printf 'toolchain: %s\n' "$*"; }
die() {
    printf 'toolchain: %s\n' "$*" >&2
    exit 1
}

extra= changed=
while [ $# -gt 1 ]; do
    case $1 in
    --config) extra=$(realpath -e "$2") ;;
    --source) changed=$(realpath -e "$2") ;;
    *) die "unknown option $1" ;;
    esac
    shift 2
done
[ $# = 0 ] || die "usage: build.sh [--config FILE] [--source FOLDER]"

command -v $triplet-g++ >/dev/null || die "no $triplet-g++ (Debian: g++-arm-linux-gnueabi)"
cxx_include=/usr/$triplet/include/c++/$($triplet-gcc -dumpversion)
[ -d "$cxx_include/$triplet" ] || die "no C++ headers in $cxx_include (Debian: g++-arm-linux-gnueabi)"

# --- the cache ------------------------------------------------------------------

key=$({
    (cd "$recipe" && cat build.sh uclibc.config atomic.h sync.c constants.ld check.cpp c++/bits/*)
    [ -z "$extra" ] || cat "$extra"
    [ -z "$changed" ] || tar -C "$changed" --sort=name --mtime=@0 -cf - .
    $triplet-gcc --version
    $triplet-ld --version
} | sha256sum | cut -c1-16)
home=${ZEP_TOOLCHAINS:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/zep}
mkdir -p "$home"
home=$(cd "$home" && pwd)
prefix=$home/arm-uclibc-$key
case $prefix in *[!A-Za-z0-9_./+-]*) die "unusable character in $prefix" ;; esac
if [ -e "$prefix/ready" ]; then
    echo "$prefix"
    exit 0
fi
exec 9> "$prefix.lock"
flock 9 # another build may be at it
if [ -e "$prefix/ready" ]; then
    echo "$prefix"
    exit 0
fi
work=$prefix.work
rm -rf "$work" "$prefix"
mkdir -p "$work"
cd "$work"

# --- sources --------------------------------------------------------------------

download() {
    say "downloading uclibc-source"
    apt-cache show uclibc-source > apt.log 2>&1 || apt-get update >> apt.log 2>&1 || :
    sandbox=
    [ "$(id -u)" != 0 ] || sandbox="-o APT::Sandbox::User=root"
    # shellcheck disable=SC2086 # none or two words
    apt-get $sandbox download uclibc-source >> apt.log 2>&1 || {
        cat apt.log >&2
        die "cannot download uclibc-source; is the network there?"
    }
    dpkg-deb -x uclibc-source_*.deb deb
    tar -C src --strip-components=1 -xJf deb/usr/src/uClibc-ng-*.tar.xz
    dpkg-deb -f uclibc-source_*.deb Package Version > source
    cat deb/usr/src/uClibc-ng-*.tar.xz | sha256sum >> source
}

mkdir src
if [ -n "$changed" ]; then
    cp -R "$changed/." src/
    echo "changed source" > source
else
    download
fi

own=src/libc/sysdeps/linux/arm/bits/atomic.h
if grep -q __thumb__ "$own"; then # a changed source may have mended it otherwise
    cp "$recipe/atomic.h" "$own"
fi

# The kernel's headers come with the cross compiler.
headers=$(dpkg-query -S "/usr/$triplet/include/linux/version.h" | cut -d: -f1)
dpkg-query -L "$headers" | sed -n "s#^/usr/$triplet/include/\(.*\.h\)\$#\1#p" > headers.list
mkdir kernel
tar -C "/usr/$triplet/include" -chf - -T headers.list | tar -C kernel -xf -

# --- the C library --------------------------------------------------------------

# The cross compiler makes position-independent programs by default. Each function has a section, so that a program
# takes what it uses and not whole files. Nothing of this folder's name may reach the library: its bytes depend on
# the sources alone.
{
    cat "$recipe/uclibc.config"
    printf 'KERNEL_HEADERS="%s/kernel"\n' "$work"
    printf 'UCLIBC_EXTRA_CFLAGS="-fno-pie %s %s -ffunction-sections -fdata-sections -ffile-prefix-map=%s=."\n' "$cpu" "$code" "$work"
    [ -z "$extra" ] || cat "$extra"
} > config
cp config src/.config
library_make() { make -C src ARCH=arm "$@" >> build.log 2>&1 || {
    tail -n 30 build.log >&2
    die "make $* failed; the whole log is $work/build.log"
}; }
library_make olddefconfig

# Unknown and contradictory settings are dropped without a word; the last of a name counts.
grep -E '^(# )?[A-Za-z0-9_]+(=| is not set)' config |
    awk -F'[= ]' '{ name = ($1 == "#") ? $2 : $1; line[name] = $0 } END { for (n in line) print line[n] }' > wanted
while read -r line; do
    case $line in
    '# '*) ! grep -q "^$(echo "$line" | cut -d' ' -f2)=" src/.config || die "cannot be unset: $line" ;;
    *) grep -qxF -e "$line" src/.config || die "not accepted: $line" ;;
    esac
done < wanted

say "building the C library (about two minutes on two processors)"
library_make -j"${ZEP_JOBS:-2}" lib/libc.a lib/crt1.o lib/crti.o lib/crtn.o
$triplet-nm src/lib/libc.a | grep -q 'U __sync_val_compare_and_swap_4$' || die "the C library's locks are no locks"
out=$work/out
library_make PREFIX="$out/sysroot" install_headers

# --- the sysroot ----------------------------------------------------------------

include=$out/sysroot/usr/include
lib=$out/sysroot/usr/lib
mkdir -p "$lib" "$out/bin"
cp -R kernel/. "$include/"
sed -i '/__KERNEL_HEADERS__/d' "$include/bits/uClibc_config.h" # a path of this build
# C11 has static_assert here; the library's header is older.
cat >> "$include/assert.h" <<'ASSERT'
#if !defined __cplusplus && defined __STDC_VERSION__ && __STDC_VERSION__ >= 201112L
#undef static_assert
#define static_assert _Static_assert
#endif
ASSERT
mkdir -p "$include/c++"
cp -R "$recipe/c++/." "$include/c++/"
(cd src/lib && cp libc.a crt1.o crti.o crtn.o "$lib/")
for l in m pthread crypt rt dl util resolv nsl; do # all of them are parts of libc.a
    $triplet-ar rcD "$lib/lib$l.a"
done
cp "$recipe/constants.ld" "$lib/"
cp src/COPYING.LIB source "$out/"

# --- the compilers --------------------------------------------------------------

# Our C headers follow the C++ ones, which reach them through include_next; start files and
# libraries are ours and the compiler's own. A static program needs no relocation read-only: see constants.ld.
s=$prefix/sysroot/usr
cat > "$out/specs" <<SPECS
%rename cpp_unique_options gcc_cpp_unique_options
%rename cc1plus gcc_cc1plus
%rename link gcc_link

*cpp_unique_options:
-nostdinc -idirafter $s/include -idirafter include%s -idirafter include-fixed%s %(gcc_cpp_unique_options)

*cc1plus:
-isystem $s/include/c++ -isystem $cxx_include -isystem $cxx_include/$triplet -isystem $cxx_include/backward %(gcc_cc1plus)

*link:
%(gcc_link) %{!r:-z norelro -T $s/lib/constants.ld}

*link_libgcc:
-L$s/lib -L .%s

*startfile:
$s/lib/crt1.o $s/lib/crti.o crtbeginT.o%s

*endfile:
crtend.o%s $s/lib/crtn.o

*libgcc:
$s/lib/libsync.a libgcc.a%s libgcc_eh.a%s

*lib:
-lc

SPECS
# Both drivers are the C one: it compiles C++ by the file's name and adds no C++ runtime library.
for c in gcc g++; do
    printf '#!/bin/sh\nexec %s-gcc -specs=%s/specs -muclibc %s -fno-pie -no-pie -static "$@"\n' \
        $triplet "$prefix" "$cpu" > "$out/bin/arm-uclibc-$c"
    chmod 755 "$out/bin/arm-uclibc-$c"
done
for t in ar nm ranlib; do ln -s "$(command -v $triplet-gcc-$t)" "$out/bin/arm-uclibc-$t"; done
for t in strip objcopy objdump readelf size addr2line; do
    ln -s "$(command -v $triplet-$t)" "$out/bin/arm-uclibc-$t"
done
mv "$out" "$prefix"
"$prefix/bin/arm-uclibc-gcc" -std=gnu11 $code -Os -Wall -Werror -ffunction-sections -c "$recipe/sync.c" -o sync.o
$triplet-ar rcD "$prefix/sysroot/usr/lib/libsync.a" sync.o

# --- check ----------------------------------------------------------------------

"$prefix/bin/arm-uclibc-g++" -std=c++20 -Os -fno-exceptions -fno-rtti -fno-threadsafe-statics \
    -ffunction-sections -fstack-protector-strong -Wl,--gc-sections -s "$recipe/check.cpp" -o check
if command -v qemu-arm-static >/dev/null; then
    qemu-arm-static -cpu arm926 ./check > check.out || die "the check program fails: status $?"
fi
say "check program: $(stat -c %s check) bytes"
cd /
rm -r "$work"
touch "$prefix/ready"
echo "$prefix"
