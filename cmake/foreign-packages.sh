#!/bin/sh
# Unpacks Debian packages of another architecture into a folder, without telling the host's
# package manager: its architectures, lists and installed packages stay as they are.
#
#   foreign-packages.sh ARCH FOLDER PACKAGE...
set -eu
export LC_ALL=C
[ $# -ge 3 ] || { echo "usage: foreign-packages.sh ARCH FOLDER PACKAGE..." >&2; exit 2; }
arch=$1
folder=$2
shift 2

stamp=$folder/.have
wanted="$arch $*"
[ "$(cat "$stamp" 2>/dev/null)" != "$wanted" ] || exit 0

apt=$folder/.apt
mkdir -p "$apt"
apt=$(cd "$apt" && pwd)
. "$(dirname "$0")/private-apt.sh"
private_apt "$arch" "$apt"

apt-get -c "$apt/apt.conf" -q update >&2 ||
    echo "foreign-packages: some package lists failed, going on" >&2
(cd "$apt/archives" && apt-get -c "$apt/apt.conf" -q download "$@" >&2) || {
    echo "foreign-packages: cannot download $* for $arch; is the network there?" >&2
    exit 1
}
for deb in "$apt"/archives/*.deb; do
    dpkg -x "$deb" "$folder"
done
rm -rf "$apt"
echo "$wanted" > "$stamp"
