#!/usr/bin/env bash
# Builds the COM servers for Windows with MinGW-w64 and runs the COM client suites under Wine, in
# a fresh prefix each: the VBScript suites through cscript and the C++ client, then unregisters
# both servers and checks that nothing of ours is left. Both runs gate: the 64-bit one under the
# machine's Wine, the 32-bit one under the machine's 32-bit Wine where it is installed, otherwise
# in the i386 userland that scripts/setup.sh --com prepares (natively where the processor runs
# 32-bit code, through qemu's emulator where it does not). When the 32-bit run is impossible it
# says so loudly, with the reason.
# Prints "com: N passed, M failed" last; exits non-zero when anything failed.
set -euo pipefail
# Started in the background by another script, it would ignore SIGINT, and an ignored signal
# cannot be trapped: start again with it restored, so that an interrupt always ends the run cleanly.
if [ -n "$(trap -p INT)" ] && [ -z "${VX_COM_TEST_SIGNALS:-}" ]; then
  VX_COM_TEST_SIGNALS=restored exec env --default-signal=INT "$0" "$@"
fi
cd "$(dirname "$0")/.."
root=$PWD
# shellcheck source=scripts/lib/com32.sh
source scripts/lib/com32.sh

export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="  # never offer to install Mono or Gecko
unset DISPLAY

passed=0
failed=0
skipped=()

# Adds one suite's "N passed, M failed" line to the totals; a suite without the line failed.
count_suite() {
  local name=$1 output line
  output=$(tr -d '\r' <<<"$2")
  line=$(grep -E '^[0-9]+ passed, [0-9]+ failed$' <<<"$output" | tail -n 1 || true)
  if [ -z "$line" ]; then
    echo "$output"
    echo "FAILED: $name printed no result line"
    failed=$((failed + 1))
    return
  fi
  local p f
  p=${line%% passed*}
  f=${line#*, }
  f=${f%% failed*}
  passed=$((passed + p))
  failed=$((failed + f))
  if [ "$f" -ne 0 ]; then echo "$output"; fi
  echo "$name: $line"
}

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# The suite file written for the command running now and the prefix whose Wine is up: with the
# step itself, what the exit trap takes back, whichever way the script ends.
suite=""
prefix_up=""
run=host

host() { "$@"; }

# Runs a command in the background and waits for it, so that a signal to this script is acted on
# at once rather than when the command ends; its output goes to the given file.
attend() {
  local out=$1 dir=$2
  shift 2
  com32_attend in_folder "$dir" "$@" >"$out" 2>&1 </dev/null
}
in_folder() {
  cd "$1" && shift && "$@"
}

cleanup() {
  com32_stop
  # The host's Wine is stopped through its server; the emulator's entry goes last.
  if [ -n "$prefix_up" ] && [ "$run" = host ]; then
    WINEPREFIX=$prefix_up wineserver -k >/dev/null 2>&1 || true
  fi
  com32_unregister
  if [ -n "$suite" ]; then rm -f "$suite"; fi
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# The runs: bits, CMake preset, the Wine loader and the prefix's architecture. Commands go through
# "$run": the host itself, or the i386 userland.
run_platform() {
  local bits=$1 preset=$2 loader=$3 arch=$4
  echo "== COM servers, ${bits}-bit"

  local prefix="$root/build/wine-$bits" out="$root/build/com-$bits.out"
  rm -rf "$prefix"
  export WINEPREFIX=$prefix
  prefix_up=$prefix
  WINEARCH=$arch attend "$out" "$root" "$run" "$loader" wineboot -i || true
  attend "$out" "$root" "$run" wineserver -w || true

  local vx sim
  vx=$(windows_path "$root/build/$preset/com/vx/Vx.dll")
  sim=$(windows_path "$root/build/$preset/com/sim/VxSim.dll")
  for dll in "$vx" "$sim"; do
    if attend "$out" "$root" "$run" "$loader" regsvr32 /s "$dll"; then
      passed=$((passed + 1))
    else
      echo "FAILED: regsvr32 $dll ($bits-bit)"
      failed=$((failed + 1))
    fi
  done

  # Each suite runs with the shared checks in front of it, from the suites' own folder so that
  # relative paths to the repository's data files hold.
  local script
  for script in tests/com/scripts/*.vbs; do
    suite="tests/com/scripts/.run-$(basename "$script")"
    cat tests/com/scripts/check.inc "$script" >"$suite"
    attend "$out" tests/com/scripts "$run" "$loader" cscript //nologo "$(basename "$suite")" || true
    rm -f "$suite"
    suite=""
    count_suite "$(basename "$script") ($bits-bit)" "$(cat "$out")"
  done
  attend "$out" "$root" "$run" "$loader" \
    "$(windows_path "$root/build/$preset/tests/com/vx_com_client.exe")" || true
  count_suite "vx_com_client ($bits-bit)" "$(cat "$out")"

  for dll in "$sim" "$vx"; do
    attend "$out" "$root" "$run" "$loader" regsvr32 /u /s "$dll" || true
  done
  attend "$out" tests/com "$run" "$loader" cscript //nologo unregistered.vbs || true
  count_suite "unregistered.vbs ($bits-bit)" "$(cat "$out")"
  # Nothing of ours stays in the registry: ProgIDs, classes, type libraries, interfaces.
  local key leftovers=0
  for key in 'HKCR\Vx.VxDef' 'HKCR\VxSim.Node' \
    'HKCR\CLSID\{FCEC0F97-7010-4B63-93CC-3ECB9FD4E010}' \
    'HKCR\CLSID\{E887189B-A35F-44F4-B0C7-EF9452DB0689}' \
    'HKCR\TypeLib\{7F810C56-880D-4BFF-B818-60A5C27F717A}' \
    'HKCR\TypeLib\{B2DA13BA-4C6B-49A9-A6DE-B75E913363EA}' \
    'HKCR\Interface\{9CB4E584-1E1F-4646-B2AF-D773FABE25CA}' \
    'HKCR\Interface\{722D629D-CF4D-45E5-92AB-0407363BAA67}' \
    'HKCR\Interface\{659710F9-8E58-4F4A-8BAA-6A35E4DA299F}' \
    'HKCR\Interface\{A385FCEC-EB7A-4E99-BE43-D88287CA2B61}'; do
    if attend "$out" "$root" "$run" "$loader" reg query "$key"; then
      echo "FAILED: $key is still registered after regsvr32 /u ($bits-bit)"
      leftovers=$((leftovers + 1))
    fi
  done
  if [ "$leftovers" -eq 0 ]; then passed=$((passed + 1)); else failed=$((failed + 1)); fi

  attend "$out" "$root" "$run" wineserver -k || true
  prefix_up=""
  rm -f "$out"
  unset WINEPREFIX
}

build() {
  cmake --preset "$1" >/dev/null
  cmake --build "build/$1" -j 2
}

build mingw64
run_platform 64 mingw64 /usr/lib/wine/wine64 win64

# The 32-bit DLLs are built in any case, so the i686 build stays warning-free and linkable.
build mingw32
if dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q "install ok installed" &&
  com32_runs_natively; then
  run_platform 32 mingw32 wine win32
elif ! com32_prepared; then
  skipped+=("32-bit COM tests: $(com32_unavailable_reason)")
elif [ "$(id -u)" -ne 0 ]; then
  skipped+=("32-bit COM tests: the i386 userland in $com32_dir runs only for root")
elif ! com32_runs_natively && ! com32_register; then
  no_binfmt="qemu's emulator could not be registered with binfmt_misc"
  skipped+=("32-bit COM tests: this machine runs no 32-bit code, and $no_binfmt")
else
  how="natively"
  if [ -n "$com32_entry" ]; then how="through qemu's i386 emulator"; fi
  echo "== 32-bit Wine in the i386 userland $com32_chroot, $how"
  com32_enter "$root"
  run=com32_run
  run_platform 32 mingw32 wine win32
  run=host
  com32_leave
  com32_unregister
fi

for reason in "${skipped[@]}"; do
  echo "********************************************************************************"
  echo "SKIPPED: $reason"
  echo "********************************************************************************"
done
echo "com: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
