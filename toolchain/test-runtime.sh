#!/bin/sh
# The release toolchain with a C++ runtime library, so that test programs can use all of C++ on the device's C
# library; the product never links it. Built from the distribution's gcc-VERSION-source (80 MB).
#
#   toolchain/test-runtime.sh
#
# The result stands beside the release toolchain (see build.sh), in a folder whose name carries a hash of both
# recipes. The last line of the output is that folder; its compilers are bin/arm-uclibc-gcc and -g++.
set -eu
export LC_ALL=C
unset CFLAGS CPPFLAGS CXXFLAGS LDFLAGS ARCH CROSS_COMPILE MAKEFLAGS MAKELEVEL || :

recipe=$(cd "$(dirname "$0")" && pwd)
triplet=arm-linux-gnueabi
die() {
    printf 'toolchain: %s\n' "$*" >&2
    exit 1
}
said=$("$recipe/build.sh") || { echo "$said"; exit 1; }
release=${said##*
}
[ "$said" = "$release" ] || echo "${said%
*}"
key=$({ echo "$release"; cat "$recipe/test-runtime.sh"; } | sha256sum | cut -c1-16)
prefix=${release%/*}/arm-uclibc-test-$key
done_already() {
    [ -e "$prefix/ready" ] || return 0
    echo "$prefix"
    exit 0
}
done_already
exec 9> "$prefix.lock"
flock 9 # another build may be at it
done_already
work=$prefix.work
rm -rf "$work" "$prefix"
mkdir -p "$work/obj" "$prefix/bin"
cd "$work"

# --- sources --------------------------------------------------------------------

version=$($triplet-gcc -dumpversion)
echo "toolchain: downloading gcc-$version-source"
apt-cache show "gcc-$version-source" > apt.log 2>&1 || apt-get update >> apt.log 2>&1 || :
sandbox=
[ "$(id -u)" != 0 ] || sandbox="-o APT::Sandbox::User=root"
# shellcheck disable=SC2086 # none or two words
apt-get $sandbox download "gcc-$version-source" >> apt.log 2>&1 || {
    cat apt.log >&2
    die "cannot download gcc-$version-source; is the network there?"
}
dpkg-deb -x gcc-*-source_*.deb deb
mkdir gcc
tar -C gcc --strip-components=1 -xJf deb/usr/src/gcc-*/gcc-*.tar.xz --wildcards \
    --exclude='gcc-*/libstdc++-v3/testsuite/*/*' 'gcc-*/libstdc++-v3/*' 'gcc-*/libgcc/gthr*' 'gcc-*/libgcc/unwind*' \
    'gcc-*/include/*' 'gcc-*/libiberty/*.[ch]' 'gcc-*/config/*.m4' 'gcc-*/config.*' 'gcc-*/install-sh' \
    'gcc-*/ltmain.sh' 'gcc-*/missing' 'gcc-*/depcomp' 'gcc-*/mkinstalldirs' 'gcc-*/config-ml.in' \
    'gcc-*/move-if-change' 'gcc-*/gcc/BASE-VER' 'gcc-*/gcc/DATESTAMP' 'gcc-*/gcc/DEV-PHASE'
# Threads by pthread, and by strong names: a static program would leave weak ones out.
{
    printf '#undef GTHREAD_USE_WEAK\n#define GTHREAD_USE_WEAK 0\n'
    cat gcc/libgcc/gthr-posix.h
} > gthr.h
mv gthr.h gcc/libgcc/gthr-posix.h
cp gcc/libgcc/gthr-posix.h gcc/libgcc/gthr-default.h

# --- compilers ------------------------------------------------------------------

# The toolchain's specs without its C++ headers, which are configured for no runtime library.
sed '/^%rename cc1plus/d; /^\*cc1plus:/,/^$/d' "$release/specs" > "$prefix/specs"
cpu=$(sed -n 's/.*-muclibc \(-march.*\) -fno-pie.*/\1/p' "$release/bin/arm-uclibc-gcc")
wrapper() { # name, driver, flags
    printf '#!/bin/sh\nexec %s-%s -specs=%s/specs -muclibc %s -fno-pie -no-pie -static%s "$@"\n' \
        $triplet "$2" "$prefix" "$cpu" "$3" > "$prefix/bin/$1"
    chmod 755 "$prefix/bin/$1"
}
for tool in ar nm ranlib strip objcopy objdump readelf size addr2line; do
    ln -s "$release/bin/arm-uclibc-$tool" "$prefix/bin/"
done
wrapper arm-uclibc-gcc gcc ""
wrapper arm-uclibc-g++ g++ ""

# --- build ----------------------------------------------------------------------

echo "toolchain: building the C++ runtime library for tests (about a minute on two processors)"
cd obj
{
    CC=$prefix/bin/arm-uclibc-gcc CXX=$prefix/bin/arm-uclibc-g++ CFLAGS=-Os CXXFLAGS=-Os \
        AR=$triplet-ar RANLIB=$triplet-ranlib ../gcc/libstdc++-v3/configure --build="$(gcc -dumpmachine)" \
        --host=arm-linux-uclibcgnueabi --prefix="$prefix" --disable-shared --disable-nls --disable-multilib \
        --disable-libstdcxx-pch --with-gxx-include-dir="$prefix/include" &&
        make -j"${ZEP_JOBS:-2}" && make install
} > ../build.log 2>&1 || {
    tail -n 30 ../build.log >&2
    die "the C++ runtime library cannot be built; the whole log is $work/build.log"
}
i=$prefix/include
wrapper arm-uclibc-g++ g++ " -nostdinc++ -isystem $i -isystem $i/arm-linux-uclibcgnueabi -isystem $i/backward -L$prefix/lib"

# --- check ----------------------------------------------------------------------

cat > check.cpp <<'CHECK'
#include <chrono>
#include <iostream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
int main()
{
    std::mutex lock;
    std::ostringstream text;
    std::thread other([&] { std::lock_guard hold(lock); text << "test runtime" << ' '; });
    other.join();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    try {
        throw std::runtime_error("ready");
    } catch (const std::exception& e) {
        text << e.what();
    }
    std::cout << text.str() << std::endl;
    return text.str() != "test runtime ready";
}
CHECK
"$prefix/bin/arm-uclibc-g++" -std=c++20 -Os check.cpp -o check
if command -v qemu-arm-static >/dev/null; then
    qemu-arm-static -cpu arm926 ./check || die "the check program fails: status $?"
fi
cd /
rm -r "$work"
touch "$prefix/ready"
echo "$prefix"
