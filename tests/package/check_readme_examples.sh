#!/usr/bin/env bash
# Builds every C++ example of README.md, exactly as printed, against an installed package with the
# README's own CMakeLists.txt, and runs each one. The package's own vxsim serves the simulated
# controller on a loopback address of this run, which each example gets as its only argument (the
# address of the node to read; an example without a network ignores it).
#
#   check_readme_examples.sh PREFIX WORK-DIR [CMAKE-ARGUMENT...]
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 PREFIX WORK-DIR [CMAKE-ARGUMENT...]" >&2; exit 2; }
prefix=$(cd "$1" && pwd)
work=$2
shift 2
readme="$(cd "$(dirname "$0")/../.." && pwd)/README.md"

# The package's config finds no Asio and no nlohmann-json, so no installed header may need them.
if grep -rlE '#include *[<"](asio|nlohmann)' "$prefix/include"; then
  echo "installed headers above include Asio or nlohmann-json, which the package does not bring" >&2
  exit 1
fi

rm -rf "$work"
mkdir -p "$work"
# Each ```cpp block becomes example-N/main.cpp; the ```cmake block with find_package(vx) is the
# CMakeLists.txt of every example.
awk -v work="$work" '
  /^```cpp$/ { n++; dir = work "/example-" n; system("mkdir -p \"" dir "\""); file = dir "/main.cpp"; cpp = 1; next }
  /^```cmake$/ { cmake = 1; text = ""; next }
  /^```$/ {
    if (cpp) close(file)
    if (cmake && text ~ /find_package\(vx /) { printf "%s", text > (work "/CMakeLists.txt"); lists++ }
    cpp = 0; cmake = 0; next
  }
  cpp { print > file }
  cmake { text = text $0 "\n" }
  END { if (n == 0 || lists != 1) { print "README.md: " n " C++ examples, " lists " CMakeLists with find_package(vx)" > "/dev/stderr"; exit 1 } }
' "$readme"

sim_pid=""
stop_sim() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    sim_pid=""
  fi
}
trap stop_sim EXIT

# An address of its own (127.50-99.x.y, away from the unit tests' 127.100-199), so that runs on
# one machine do not meet; another one when it is taken.
address=""
for attempt in 1 2 3 4 5; do
  candidate="127.$((50 + ($$ + attempt) % 50)).$(($$ / 50 % 250 + 1)).$((RANDOM % 250 + 1))"
  "$prefix/bin/vxsim" --listen "$candidate" --device default >"$work/vxsim.out" 2>"$work/vxsim.err" &
  sim_pid=$!
  for _ in $(seq 100); do
    grep -q '^vxsim: serving' "$work/vxsim.out" && break
    kill -0 "$sim_pid" 2>/dev/null || break
    sleep 0.05
  done
  if grep -q '^vxsim: serving' "$work/vxsim.out"; then
    address=$candidate
    break
  fi
  stop_sim
done
if [ -z "$address" ]; then
  echo "the installed vxsim did not start:" >&2
  cat "$work/vxsim.err" >&2
  exit 1
fi

for dir in "$work"/example-*; do
  name="README example $(basename "$dir" | cut -d- -f2)"
  cp "$work/CMakeLists.txt" "$dir/"
  if ! cmake -S "$dir" -B "$dir/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
      "$@" >"$dir/configure.log" 2>&1; then
    cat "$dir/configure.log" >&2
    echo "$name: find_package(vx) from $prefix failed" >&2
    exit 1
  fi
  cmake --build "$dir/build" -j 2 >"$dir/build.log" 2>&1 || {
    cat "$dir/build.log" >&2
    echo "$name: does not build against $prefix" >&2
    exit 1
  }
  if ! "$dir/build/my_tool" "$address" >"$dir/run.out" 2>&1; then
    cat "$dir/run.out" >&2
    echo "$name: failed" >&2
    exit 1
  fi
  echo "$name: built from the install and ran: $(tr '\n' ' ' <"$dir/run.out")"
done
