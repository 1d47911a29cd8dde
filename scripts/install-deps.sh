#!/bin/sh
# Installs the Debian 12 packages the build, the tests and the demo need.
# Runs as root, or through sudo when it is available.
set -eu
packages="build-essential cmake pkg-config libhdf5-dev hdf5-tools libgtest-dev libgmock-dev \
libbenchmark-dev clang libclang-rt-14-dev zlib1g-dev valgrind \
libcli11-dev nlohmann-json3-dev graphviz clang-format \
python3-dev python3-numpy python3-pytest pybind11-dev \
python3-venv python3-pip python3-setuptools python3-wheel"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
as_root=""
[ "$(id -u)" -ne 0 ] && as_root="sudo"
$as_root apt-get update
# shellcheck disable=SC2086
DEBIAN_FRONTEND=noninteractive $as_root apt-get install -y --no-install-recommends $missing
