#!/usr/bin/env bash
# Prepares the 32-bit Windows runtime the 32-bit COM tests run in; scripts/setup.sh --com calls it.
#
# On a machine that executes 32-bit x86 code it installs Debian's 32-bit Wine (wine32:i386). On
# one that does not, it prepares, in $VX_COM32_DIR (default /var/cache/vx-com32):
#   qemu-i386-binfmt-P  qemu's static user-mode emulator for i386, from Debian 13's qemu-user
#   chroot/             an i386 Debian 12 userland with 32-bit Wine
# The packages for the first are fetched through a private apt configuration of its own (sources,
# lists, status and cache in that folder); the machine's apt sources and packages stay as they
# were. Each step leaves a stamp when it is complete, so a second run takes seconds and an
# interrupted one goes on from the last complete step, redoing a half-done one from its start.
# It exits 0 even when the runtime cannot be prepared: the 32-bit run then reports itself as
# skipped with the reason, and the 64-bit run still gates.
set -euo pipefail
# Started in the background by another script, it would ignore SIGINT, and an ignored signal
# cannot be trapped: start again with it restored, so that an interrupt always ends it cleanly.
if [ -n "$(trap -p INT)" ] && [ -z "${VX_COM32_SIGNALS:-}" ]; then
  VX_COM32_SIGNALS=restored exec env --default-signal=INT "$0" "$@"
fi
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/com32.sh
source scripts/lib/com32.sh

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

note() { echo "setup: $*"; }

# Gives up: the reason is kept for the test run's banner.
warn() {
  echo "setup: WARNING: $*; the 32-bit COM tests will be skipped" >&2
  if mkdir -p "$com32_dir" 2>/dev/null; then echo "$*" >"$com32_dir/unavailable"; fi
  exit 0
}

install_wine32() {
  # It needs the i386 package index, which a mirror may serve inconsistently; when it cannot be
  # installed, the i386 userland below serves instead.
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    dpkg --add-architecture i386
  fi
  install_once() {
    # apt's resolver may give up on a multi-arch install; naming the i386 packages it says it
    # will not install, on the same command line, lets it through.
    local extra=() output missing
    for _ in 1 2 3 4; do
      # Nothing of the machine's is removed for it.
      if output=$(DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
        --no-remove wine32:i386 "${extra[@]}" 2>&1); then
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
  note "installing wine32:i386"
  apt-get update -qq || true
  install_once
}

if [ "$(id -u)" -ne 0 ]; then
  # Registering the emulator, debootstrap and chroot all need root; so does apt for wine32.
  if command -v sudo >/dev/null; then
    exec sudo --preserve-env=VX_COM32_DIR,VX_COM32_EMULATE "$PWD/scripts/setup-com32.sh" "$@"
  fi
  warn "preparing the 32-bit runtime needs root"
fi

native=false
if com32_runs_natively; then native=true; fi
if $native && installed wine32:i386; then exit 0; fi
if com32_prepared; then
  note "32-bit runtime (i386 userland with 32-bit Wine) present in $com32_dir"
  exit 0
fi
# Where the processor runs 32-bit code, the machine's own 32-bit Wine is the way; the i386
# userland is the way where it does not, and where the machine's package index cannot install it.
if $native; then
  if install_wine32; then exit 0; fi
  note "wine32:i386 could not be installed; preparing an i386 userland with 32-bit Wine instead"
fi

mkdir -p "$com32_dir"
# One preparation at a time; a second one waits for the first and then finds it done.
exec 9>"$com32_dir/.lock"
flock -w 1800 9 || warn "another preparation of $com32_dir holds it for more than 30 minutes"
if com32_prepared; then exit 0; fi
started=$SECONDS
how="run natively"
$native || how="run through qemu's i386 emulator"
note "preparing an i386 userland with 32-bit Wine in $com32_dir, $how;" \
  "this takes a few minutes, once"
rm -f "$com32_dir/unavailable"

done_step() { touch "$com32_dir/.done-$1"; }
is_done() { [ -f "$com32_dir/.done-$1" ]; }

# The machine's Debian mirror, from its own apt sources (one-line or deb822 form).
find_mirror() {
  local file uri
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$file" ] || continue
    uri=$(awk '$1 == "deb" {
        for (i = 2; i <= NF; i++) if ($i ~ /^[a-z]+:\/\//) { print $i; exit }
      }' \
      "$file" | grep -E '/debian/?$' | head -n 1 || true)
    if [ -n "$uri" ]; then
      echo "${uri%/}"
      return
    fi
  done
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] || continue
    uri=$(awk 'tolower($1) == "uris:" { for (i = 2; i <= NF; i++) print $i }' "$file" |
      grep -E '/debian/?$' | head -n 1 || true)
    if [ -n "$uri" ]; then
      echo "${uri%/}"
      return
    fi
  done
}
mirror=$(find_mirror)
[ -n "$mirror" ] || warn "no Debian mirror found in the machine's apt sources"
keyring=/usr/share/keyrings/debian-archive-keyring.gpg

# The long steps run in the background, waited for, so that a signal to this script is acted on
# at once; their output goes to the given log, whose end is shown when they fail.
attend() {
  local log=$1
  shift
  local status=0
  com32_attend "$@" >>"$log" 2>&1 </dev/null || status=$?
  if [ "$status" -ne 0 ]; then tail -n 20 "$log" >&2; fi
  return "$status"
}

# Takes back whatever this script started, on every way out.
cleanup() {
  com32_stop
  com32_unregister
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# 1. The emulator and debootstrap, as files from Debian 13's packages: a private apt that knows
#    only that suite, for amd64, and keeps everything it fetches in the runtime's folder.
if ! is_done tools; then
  apt_dir=$com32_dir/apt
  rm -rf "$apt_dir" "$com32_dir/tools.log"
  mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial" "$apt_dir/sources.list.d" \
    "$apt_dir/preferences.d" "$apt_dir/debs"
  touch "$apt_dir/status"
  echo "deb [arch=amd64 signed-by=$keyring] $mirror trixie main" >"$apt_dir/sources.list"
  apt_private=(
    -o "Dir::Etc::SourceList=$apt_dir/sources.list"
    -o "Dir::Etc::SourceParts=$apt_dir/sources.list.d"
    -o "Dir::Etc::Preferences=$apt_dir/preferences"
    -o "Dir::Etc::PreferencesParts=$apt_dir/preferences.d"
    -o "Dir::State::Lists=$apt_dir/lists"
    -o "Dir::State::Status=$apt_dir/status"
    -o "Dir::Cache=$apt_dir/cache"
    -o "APT::Architecture=amd64"
    -o "APT::Architectures::=amd64"
    -o "APT::Sandbox::User=root"
  )
  note "fetching qemu-user and debootstrap from $mirror (trixie)"
  attend "$com32_dir/tools.log" apt-get "${apt_private[@]}" update ||
    warn "the package lists for trixie could not be fetched from $mirror"
  cd "$apt_dir/debs"
  attend "$com32_dir/tools.log" apt-get "${apt_private[@]}" download qemu-user debootstrap ||
    warn "qemu-user or debootstrap could not be fetched from $mirror"
  cd - >/dev/null
  rm -rf "$com32_dir/debootstrap"
  mkdir -p "$com32_dir/debootstrap"
  dpkg-deb --fsys-tarfile "$apt_dir"/debs/qemu-user_*.deb |
    tar -xO ./usr/bin/qemu-i386 >"$com32_qemu.new"
  chmod 755 "$com32_qemu.new"
  mv "$com32_qemu.new" "$com32_qemu"
  dpkg-deb -x "$apt_dir"/debs/debootstrap_*.deb "$com32_dir/debootstrap"
  rm -rf "$apt_dir"
  done_step tools
fi

debootstrap=(env "DEBOOTSTRAP_DIR=$com32_dir/debootstrap/usr/share/debootstrap"
  "$com32_dir/debootstrap/usr/sbin/debootstrap")

# 2. The i386 userland's packages, unpacked. Either debootstrap stage cut short is not taken up
#    again: the userland is made anew.
if ! is_done stage2 && [ -f "$com32_dir/.started-stage2" ]; then
  rm -f "$com32_dir/.done-stage1"
fi
if ! is_done stage1; then
  rm -f "$com32_dir/.started-stage2" "$com32_dir/.done-stage2" "$com32_dir/.done-wine"
  rm -rf "$com32_chroot"
  rm -f "$com32_dir/debootstrap.log"
  note "debootstrap, first stage (bookworm, i386, from $mirror)"
  attend "$com32_dir/debootstrap.log" "${debootstrap[@]}" --variant=minbase --arch=i386 --foreign \
    --keyring="$keyring" bookworm "$com32_chroot" "$mirror" ||
    warn "debootstrap's first stage failed (log: $com32_dir/debootstrap.log)"
  done_step stage1
fi

# From here on the userland's own programs run (through the emulator where the processor cannot),
# in a namespace of their own.
$native || com32_register
# shellcheck disable=SC2119 # nothing of the host's is needed inside
com32_enter
cd /

# 3. The userland's packages, configured.
if ! is_done stage2; then
  note "debootstrap, second stage"
  touch "$com32_dir/.started-stage2"
  attend "$com32_dir/debootstrap.log" com32_run /debootstrap/debootstrap --second-stage ||
    warn "debootstrap's second stage failed (log: $com32_dir/debootstrap.log)"
  done_step stage2
fi

# 4. 32-bit Wine in it. apt and dpkg take up again after an interruption.
if ! is_done wine; then
  note "installing 32-bit Wine in the i386 userland"
  # The archive serves an inconsistent i386 index for the security suite; main and the updates
  # suite are consistent.
  printf 'deb %s bookworm main\ndeb %s bookworm-updates main\n' "$mirror" "$mirror" \
    >"$com32_chroot/etc/apt/sources.list"
  cp /etc/resolv.conf "$com32_chroot/etc/resolv.conf" 2>/dev/null || true
  export DEBIAN_FRONTEND=noninteractive
  log=$com32_dir/wine.log
  rm -f "$log"
  {
    attend "$log" com32_run dpkg --configure -a &&
      attend "$log" com32_run apt-get update &&
      attend "$log" com32_run apt-get install -y --no-install-recommends wine &&
      attend "$log" com32_run apt-get clean
  } || warn "32-bit Wine could not be installed in the i386 userland (log: $log)"
  done_step wine
fi

note "32-bit runtime prepared in $((SECONDS - started)) s"
