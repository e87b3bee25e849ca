#!/usr/bin/env bash
# Installs what the build, tests and tools need from Debian's packages.
# Does nothing when everything is already there.
set -euo pipefail

packages=(cmake ninja-build g++ make libgtest-dev libbenchmark-dev nlohmann-json3-dev
          g++-aarch64-linux-gnu qemu-user clang libclang-rt-14-dev binutils valgrind
          pkg-config libpcap-dev libtins-dev libhttp-parser-dev)
[ "${ORVANE_WITH_BROWSER:-0}" = 1 ] && packages+=(chromium)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi
echo "installing: ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
