#!/bin/bash
# An OCI image of Debian 12 with all packages that ./dev needs, for CI. No registry is asked: mmdebstrap makes the root
# file system from a Debian mirror, buildah packs it.
#
#   packaging/oci/build.sh [NAME]        image NAME (zep-ci) in buildah's storage
#   packaging/oci/build.sh NAME FILE     and as an OCI archive
#
# Needs mmdebstrap and buildah; as root, or as a user with subordinate ids (/etc/subuid).
# Then: buildah run, podman run -v "$PWD:/zep" -w /zep NAME ./dev test --ci
set -eu
here=$(cd "$(dirname "$0")" && pwd)
name=${1:-zep-ci}
packages=$("$here/../../dev" packages | tr '\n' ,)
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

mmdebstrap --variant=minbase --include="ca-certificates,git,$packages" bookworm "$work/root.tar"
container=$(buildah from scratch)
trap 'rm -r "$work"; buildah rm "$container" > /dev/null' EXIT
buildah add "$container" "$work/root.tar" /
buildah config --workingdir /zep --env LC_ALL=C.UTF-8 --cmd /bin/bash \
    --label org.opencontainers.image.title="$name" --label org.opencontainers.image.licenses=MIT "$container"
buildah commit "$container" "$name"
[ $# -lt 2 ] || buildah push "$name" "oci-archive:$2:$name"
