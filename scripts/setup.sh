#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Safe to run again: it installs only
# what is missing, and asks apt for its package lists only then.
#
#   scripts/setup.sh         the build, the tests and the main job (no Windows tools)
#   scripts/setup.sh --com   also MinGW-w64 and Wine, for the COM servers and their tests
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
  packages+=(g++-mingw-w64-i686 g++-mingw-w64-x86-64 mingw-w64-tools libwine-dev wine wine64)
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

# 32-bit Wine runs the 32-bit COM server. It needs the i386 package index, which a mirror may
# serve inconsistently for a while; retry, and if it still cannot be installed, go on: the
# 32-bit run then reports itself as skipped and the 64-bit run still gates.
if ! installed wine32:i386; then
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $sudo dpkg --add-architecture i386
  fi
  install_wine32() {
    # apt's resolver may give up on a multi-arch install; naming the i386 packages it says it
    # will not install, on the same command line, lets it through.
    local extra=() output missing
    for _ in 1 2 3 4; do
      if output=$(DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends \
        wine32:i386 "${extra[@]}" 2>&1); then
        return 0
      fi
      mapfile -t missing < <(grep -o '[a-z0-9.+-]*:i386\( ([^)]*)\)\? but it is not' <<<"$output" |
        awk '{print $1}' | sort -u)
      ((${#missing[@]})) || break
      extra+=("${missing[@]}")
    done
    tail -n 5 <<<"$output" >&2
    return 1
  }
  for attempt in 1 2 3; do
    echo "setup: installing wine32:i386 (attempt $attempt)"
    $sudo apt-get update -qq || true
    if install_wine32; then break; fi
    if [ "$attempt" -lt 3 ]; then sleep 30; fi
  done
  if ! installed wine32:i386; then
    echo "setup: WARNING: wine32:i386 could not be installed; the 32-bit COM tests will be skipped" >&2
  fi
fi
