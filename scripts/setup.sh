#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Safe to run again: it installs only
# what is missing, and asks apt for its package lists only then.
#
#   scripts/setup.sh         the build, the tests and the main job (no Windows tools)
#   scripts/setup.sh --com   also MinGW-w64 and Wine, for the COM servers and their tests, and
#                            the 32-bit Wine the 32-bit COM tests run in (scripts/setup-com32.sh)
set -euo pipefail

com=false
case "${1:-}" in
  "") ;;
  --com) com=true ;;
  *)
    echo "usage: scripts/setup.sh [--com]" >&2
    exit 2
    ;;
esac

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev clang-format clang-tidy
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev libfmt-dev libasio-dev
  python3 tshark iproute2
)
if $com; then
  packages+=(g++-mingw-w64-i686 g++-mingw-w64-x86-64 mingw-w64-tools libwine-dev wine wine64
    wget debian-archive-keyring)
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

missing=()
for package in "${packages[@]}"; do
  installed "$package" || missing+=("$package")
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  # tshark would ask whether ordinary users may capture; they need not, and nobody is asked.
  echo "wireshark-common wireshark-common/install-setuid boolean false" |
    $sudo debconf-set-selections
  $sudo apt-get update -qq || echo "setup: some package lists could not be updated" >&2
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "setup: all packages present"
fi

$com || exit 0

# The 32-bit COM server needs 32-bit Wine: the machine's own where it can run it, otherwise an
# i386 userland prepared once per machine.
"$(dirname "$0")/setup-com32.sh"
