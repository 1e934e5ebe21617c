#!/usr/bin/env bash
# Installs the Debian packages that building and testing vxrelay needs, if any is missing.
# `install-deps.sh fuzz` adds what `make fuzz` needs: clang with its libFuzzer and
# sanitizer runtimes. `make test` never needs clang. `install-deps.sh bench` adds what
# `make bench-netns` needs beyond the build: valgrind, for its instruction counts.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libpcap-dev libmnl-dev nlohmann-json3-dev libcli11-dev
  iproute2
  # `make demo` and the namespace tests: traffic between hosts, checksums off on veths
  iputils-ping socat ethtool
  # the programs' man pages, made from their --help
  help2man
)
if [ "${1:-}" = fuzz ]; then
  packages+=(clang libclang-rt-dev)
fi
if [ "${1:-}" = bench ]; then
  packages+=(valgrind)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
