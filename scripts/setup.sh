#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Safe to run again: it installs only
# what is missing, and asks apt for its package lists only then.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev clang-format clang-tidy
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev libfmt-dev
  python3
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "setup: all packages present"
fi
