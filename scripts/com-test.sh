#!/usr/bin/env bash
# Builds the COM servers for Windows with MinGW-w64 and runs the COM client suites under Wine, in
# a fresh prefix each: the VBScript suites through cscript and the C++ client, then unregisters
# both servers and checks that nothing of ours is left. The 64-bit run always gates; the 32-bit
# run needs 32-bit Wine and says loudly when it cannot run.
# Prints "com: N passed, M failed" last; exits non-zero when anything failed.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

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

run_platform() {
  local bits=$1 preset=$2 loader=$3
  echo "== COM servers, ${bits}-bit"
  cmake --preset "$preset" >/dev/null
  cmake --build "build/$preset" -j 2

  local prefix="$root/build/wine-$bits"
  rm -rf "$prefix"
  export WINEPREFIX=$prefix
  WINEARCH=win64 /usr/lib/wine/wine64 wineboot -i >/dev/null 2>&1
  wineserver -w

  local vx sim
  vx=$(windows_path "$root/build/$preset/com/vx/Vx.dll")
  sim=$(windows_path "$root/build/$preset/com/sim/VxSim.dll")
  for dll in "$vx" "$sim"; do
    if "$loader" regsvr32 /s "$dll" >/dev/null 2>&1; then
      passed=$((passed + 1))
    else
      echo "FAILED: regsvr32 $dll"
      failed=$((failed + 1))
    fi
  done

  # Each suite runs with the shared checks in front of it, from the suites' own folder so that
  # relative paths to the repository's data files hold.
  local script output suite
  for script in tests/com/scripts/*.vbs; do
    suite="tests/com/scripts/.run-$(basename "$script")"
    cat tests/com/scripts/check.inc "$script" >"$suite"
    output=$(cd tests/com/scripts && "$loader" cscript //nologo "$(basename "$suite")" 2>&1 || true)
    rm -f "$suite"
    count_suite "$(basename "$script") ($bits-bit)" "$output"
  done
  output=$("$loader" "$(windows_path "$root/build/$preset/tests/com/vx_com_client.exe")" 2>&1 || true)
  count_suite "vx_com_client ($bits-bit)" "$output"

  for dll in "$sim" "$vx"; do "$loader" regsvr32 /u /s "$dll" >/dev/null 2>&1 || true; done
  output=$(cd tests/com && "$loader" cscript //nologo unregistered.vbs 2>&1 || true)
  count_suite "unregistered.vbs ($bits-bit)" "$output"
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
    if "$loader" reg query "$key" >/dev/null 2>&1; then
      echo "FAILED: $key is still registered after regsvr32 /u"
      leftovers=$((leftovers + 1))
    fi
  done
  if [ "$leftovers" -eq 0 ]; then passed=$((passed + 1)); else failed=$((failed + 1)); fi

  wineserver -k || true
  unset WINEPREFIX
}

run_platform 64 mingw64 /usr/lib/wine/wine64

if dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q "install ok installed"; then
  run_platform 32 mingw32 wine
else
  # The 32-bit DLLs are still built, so the i686 build stays warning-free and linkable.
  cmake --preset mingw32 >/dev/null
  cmake --build build/mingw32 -j 2
  skipped+=("32-bit COM tests: 32-bit Wine (wine32:i386) is not installed on this machine")
fi

for reason in "${skipped[@]}"; do
  echo "********************************************************************************"
  echo "SKIPPED: $reason"
  echo "********************************************************************************"
done
echo "com: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
