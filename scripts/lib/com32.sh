# shellcheck shell=bash
# The 32-bit Windows runtime for the COM tests, shared by scripts/setup-com32.sh (which prepares
# it) and scripts/com-test.sh (which runs the 32-bit suites in it). Sourced, not run.
#
# Where a machine executes 32-bit x86 code, Debian's own 32-bit Wine (wine32:i386) runs the
# 32-bit servers. Where it executes none (a hypervisor that offers no 32-bit user code segment),
# an i386 Debian userland with 32-bit Wine runs under qemu's user-mode emulator instead: the
# emulator is known to the kernel through a binfmt_misc entry that exists only while it is
# needed, and everything runs in a private mount and process namespace, so that its mounts and
# processes end with it however the run ends.

# Everything prepared lives outside the checkout, so that every clone on the machine shares it.
com32_dir=${VX_COM32_DIR:-/var/cache/vx-com32}
case $com32_dir in /*) ;; *) com32_dir=$PWD/$com32_dir ;; esac
com32_chroot=$com32_dir/chroot
# qemu reads its name to learn that the kernel hands it the program's own argv[0] (the P flag).
com32_qemu=$com32_dir/qemu-i386-binfmt-P
com32_binfmt=/proc/sys/fs/binfmt_misc
com32_entry=""
com32_holder=""
com32_init=""

# The shape of an i386 executable as the kernel is told to hand it to the emulator: an ELF file
# of 32-bit little-endian class, executable or shared object, for the 80386.
com32_magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
com32_mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'

# True when the machine itself executes i386 code as 32-bit Wine needs it: in 32-bit mode, with a
# segment of its own in the local descriptor table (where Wine keeps each thread's block). The
# probe is a 152-byte static program that sets up such a segment, reads 41 through it, adds one
# with an instruction that is a mere prefix in 64-bit mode, and exits with the sum; anything short
# of that exits otherwise or crashes. A padding byte of its ELF identification is not zero, which
# the kernel's own loader ignores but which keeps an emulator's binfmt_misc entry from claiming
# it, so only the processor can pass. VX_COM32_EMULATE=1 answers no, to run the emulated way on a
# machine that would not need it.
com32_runs_natively() {
  [ "${VX_COM32_EMULATE:-0}" = 1 ] && return 1
  local probe status=0
  probe=$(mktemp)
  printf '%b' \
    '\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x01' \
    '\x02\x00\x03\x00\x01\x00\x00\x00\x54\x80\x04\x08\x34\x00\x00\x00' \
    '\x00\x00\x00\x00\x00\x00\x00\x00\x34\x00\x20\x00\x01\x00\x00\x00\x00\x00\x00\x00' \
    '\x01\x00\x00\x00\x00\x00\x00\x00\x00\x80\x04\x08\x00\x80\x04\x08' \
    '\x98\x00\x00\x00\x98\x00\x00\x00\x05\x00\x00\x00\x00\x10\x00\x00' \
    '\xb8\x7b\x00\x00\x00' '\xbb\x01\x00\x00\x00' '\xb9\x84\x80\x04\x08' '\xba\x10\x00\x00\x00' \
    '\xcd\x80' '\x66\xb8\x07\x00' '\x8e\xe0' '\x64\x8b\x1d\x00\x00\x00\x00' '\x43' '\x31\xc0' \
    '\xb8\x01\x00\x00\x00' '\xcd\x80' '\x00\x00\x00' \
    '\x00\x00\x00\x00\x94\x80\x04\x08\x0f\x00\x00\x00\x41\x00\x00\x00' '\x29\x00\x00\x00' >"$probe"
  # mov eax, 123 (modify_ldt); mov ebx, 1; mov ecx, descriptor; mov edx, 16; int 0x80;
  # mov ax, 7; mov fs, ax; mov ebx, [fs:0]; inc ebx; xor eax, eax; mov eax, 1 (exit); int 0x80;
  # the descriptor: entry 0, base at the number, 16 bytes, 32-bit data; the number, 41.
  chmod +x "$probe"
  # Its own shell reports a crash, to nowhere.
  bash -c '"$1"; exit $?' probe "$probe" >/dev/null 2>&1 || status=$?
  rm -f "$probe"
  [ "$status" -eq 42 ]
}

# Why the 32-bit suites cannot run here: what the last preparation ran into, or that it never ran.
com32_unavailable_reason() {
  if [ -s "$com32_dir/unavailable" ]; then
    cat "$com32_dir/unavailable"
  else
    echo "32-bit Wine is not installed and the i386 userland in $com32_dir was not prepared" \
      "(scripts/setup.sh --com prepares it)"
  fi
}

# True when the i386 userland has been prepared completely.
com32_prepared() { [ -f "$com32_dir/.done-wine" ] && [ -x "$com32_qemu" ]; }

# Removes entries left by runs that are gone (killed before their trap could run); an entry's
# name carries the id of the process that registered it.
com32_remove_stale_entries() {
  local entry pid
  [ -d "$com32_binfmt" ] || return 0
  for entry in "$com32_binfmt"/vx-i386-*; do
    [ -e "$entry" ] || continue
    pid=${entry##*-}
    if ! kill -0 "$pid" 2>/dev/null; then
      echo -1 >"$entry" 2>/dev/null || true
    fi
  done
}

# Tells the kernel to run i386 programs through the emulator, under a name of this process's own:
# several runs at once each hold their own entry, and each removes only its own.
com32_register() {
  if [ ! -e "$com32_binfmt/register" ]; then
    mount -t binfmt_misc binfmt_misc "$com32_binfmt"
  fi
  com32_remove_stale_entries
  com32_entry=vx-i386-$$
  if [ ! -e "$com32_binfmt/$com32_entry" ]; then
    # F: the kernel opens the emulator now, so it is found from inside the chroot too.
    printf ':%s:M::%s:%s:%s:PF\n' "$com32_entry" "$com32_magic" "$com32_mask" "$com32_qemu" \
      >"$com32_binfmt/register"
  fi
}

com32_unregister() {
  if [ -n "$com32_entry" ] && [ -e "$com32_binfmt/$com32_entry" ]; then
    echo -1 >"$com32_binfmt/$com32_entry" || true
  fi
  com32_entry=""
}

# Starts the namespace the chroot's processes run in: its first process mounts proc and binds the
# given host folders at the same paths inside the chroot, then waits. When that process ends, the
# kernel ends every process in the namespace and drops its mounts; it ends with unshare, and
# unshare with this shell, also when this shell is killed outright.
com32_enter() {
  local dir
  for dir in "$@"; do mkdir -p "$com32_chroot$dir"; done
  # The namespace's first process lives at most this long, should everything else fail.
  local lifetime=7200
  # shellcheck disable=SC2016 # expanded by the namespace's shell
  # unshare itself says nothing worth reading when it is taken down; the mounts' errors show.
  setpriv --pdeathsig KILL -- \
    unshare --mount --propagation private --pid --fork --kill-child -- bash -c '
    exec 2>&3 3>&-
    set -e
    lifetime=$1 root=$2
    shift 2
    mount -t proc proc "$root/proc"
    for dir in "$@"; do mount --bind "$dir" "$root$dir"; done
    exec sleep "$lifetime"
  ' vx-com32 "$lifetime" "$com32_chroot" "$@" </dev/null 3>&2 2>/dev/null &
  com32_holder=$!
  local child=""
  for _ in $(seq 1 200); do
    child=$(cat "/proc/$com32_holder/task/$com32_holder/children" 2>/dev/null || true)
    child=${child%% *}
    if [ -n "$child" ] && [ "$(cat "/proc/$child/comm" 2>/dev/null)" = sleep ]; then
      com32_init=$child
      return 0
    fi
    kill -0 "$com32_holder" 2>/dev/null || break
    sleep 0.05
  done
  echo "com32: the chroot's namespace did not come up" >&2
  com32_leave
  return 1
}

# Runs a command inside the chroot's namespace, in the current folder (which must be one of the
# folders bound into it, or exist in the chroot). The chroot is entered from inside the namespace,
# where its mounts are.
com32_run() {
  nsenter --target "$com32_init" --mount --pid -- unshare --root="$com32_chroot" --wd="$PWD" -- "$@"
}

# Ends the namespace: every process started in it, and its mounts. Its first process is killed
# outright (it takes no other signal from outside); unshare, without a child, exits.
# Runs a step in the background and waits for it, so that a signal to the script is acted on at
# once rather than when the step ends. The caller's redirections apply to the step.
com32_step=""
com32_attend() {
  "$@" &
  com32_step=$!
  local status=0
  wait "$com32_step" || status=$?
  com32_step=""
  return "$status"
}

# Ends the namespace, then the step that was running: what ran in the namespace has ended by the
# time the step is stopped and waited for.
com32_stop() {
  com32_leave
  if [ -n "$com32_step" ]; then
    kill "$com32_step" 2>/dev/null || true
    wait "$com32_step" 2>/dev/null || true
  fi
}

com32_leave() {
  if [ -n "$com32_init" ]; then
    kill -KILL "$com32_init" 2>/dev/null || true
  elif [ -n "$com32_holder" ]; then
    kill -KILL "$com32_holder" 2>/dev/null || true
  fi
  if [ -n "$com32_holder" ]; then wait "$com32_holder" 2>/dev/null || true; fi
  com32_holder=""
  com32_init=""
}
