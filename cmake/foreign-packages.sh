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
mkdir -p "$apt/lists/partial" "$apt/archives/partial" "$apt/none"
apt=$(cd "$apt" && pwd)
: > "$apt/status"
cat > "$apt/apt.conf" <<EOF
APT::Architecture "$arch";
#clear APT::Architectures;
APT::Architectures { "$arch"; };
APT::Sandbox::User "root";
Dir::State "$apt";
Dir::State::lists "$apt/lists/";
Dir::State::status "$apt/status";
Dir::Cache "$apt";
Dir::Cache::archives "$apt/archives/";
Dir::Etc::Preferences "/dev/null";
Dir::Etc::PreferencesParts "$apt/none";
Acquire::Languages "none";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear DPkg::Post-Invoke;
EOF

# The release's main list is enough; lists of other vendors may lack the architecture.
sign=
key=/usr/share/keyrings/debian-archive-keyring.gpg
[ ! -f "$key" ] || sign="[signed-by=$key] "
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
apt-get indextargets --format '$(CREATED_BY) $(ORIGIN) $(RELEASE) $(COMPONENT) $(REPO_URI)' 2>/dev/null |
    awk -v c="$codename" -v s="$sign" \
        '$1 == "Packages" && $2 == "Debian" && $3 == c && $4 == "main" { print "deb " s $5 " " $3 " main" }' |
    sort -u > "$apt/sources.list"
if [ -s "$apt/sources.list" ]; then
    printf '%s\n' "Dir::Etc::SourceList \"$apt/sources.list\";" "Dir::Etc::SourceParts \"$apt/none\";" >> "$apt/apt.conf"
fi

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
