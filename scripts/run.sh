#!/usr/bin/env bash
# Sets up, builds and runs the main job: a tour of vxctl, the service technician's command-line
# tool, against the family's default controller served on the network by vxsim (LON/IP, UDP port
# 2541, on the loopback address 127.0.0.2). The node outlives each vxctl run, so a change made by
# one run is there in the next. vxsim is stopped when the tour ends, however it ends.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target vxctl vxsim -j "$(nproc)"

vxctl=build/release/tools/vxctl/vxctl
vxsim=build/release/sim/vxsim/vxsim
node=127.0.0.2
state=build/release/vxsim-state.json
log=build/release/vxsim.log

vxsim_pid=""
stop_vxsim() {
  if [ -n "$vxsim_pid" ]; then
    kill "$vxsim_pid" 2>/dev/null || true
    wait "$vxsim_pid" 2>/dev/null || true
    vxsim_pid=""
  fi
}
trap stop_vxsim EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# A fresh node every tour: the state file would bring back the last tour's changes.
rm -f "$state"
"$vxsim" --listen "$node:2541" --device default --state "$state" >"$log" 2>&1 &
vxsim_pid=$!
for _ in $(seq 100); do  # 10 s at most
  if grep -q '^vxsim: serving' "$log"; then break; fi
  if ! kill -0 "$vxsim_pid" 2>/dev/null; then break; fi
  sleep 0.1
done
if ! grep -q '^vxsim: serving' "$log"; then
  echo "run: vxsim did not start serving on $node:2541 within 10 s:" >&2
  cat "$log" >&2
  exit 1
fi

step() { printf '\n== %s\n' "$*"; }
show() {
  printf '$ vxctl %s\n' "$*"
  "$vxctl" "$@"
}
device=(--device "lonip://$node")

echo
cat "$log"
echo "vxctl tour. The controller is vxsim, the simulated controller served as a LON/IP node on"
echo "$node; every vxctl run below is a program of its own that reaches it over the network."

step "Which nodes answer on $node-127.0.0.5"
show discover --range "$node-127.0.0.5"

step "Who is there: identity, state, self-documentation and firmware revision"
show "${device[@]}" info

step "The objects and their variables, every value read and decoded with units and names"
show "${device[@]}" objects --values

step "The same for scripts: one JSON document"
show "${device[@]}" --json get nvoSpaceTemp

step "A setpoint change: occupied cooling to 24.5 degrees, sent in a level-2 configuration download"
show "${device[@]}" set nciSetpoints.occupied_cool 24.5

step "A level-3 configuration download: the values of levels 2 and 3 again, a fresh checksum, and"
echo "   the wait for the application reset (a few seconds)"
show "${device[@]}" config download --level 3

step "An upload of the configuration"
show "${device[@]}" config upload

step "An object request that disables the VAV block, then the status of every object"
show "${device[@]}" request 2 disabled
show "${device[@]}" status

step "A command, then the controller's answer to it, read in a run of its own"
show "${device[@]}" command send-all
show "${device[@]}" command-status

step "Node diagnostics: the status block, and the configuration items where the node keeps them"
show "${device[@]}" query-status
show "${device[@]}" read-memory 0x4200 34

step "Several changes in one session: a batch from standard input, one level-3 download for all"
printf '%s\n' 'set nciMinFlow 40' 'set nciMaxFlow 280' 'config download --level 3' |
  show "${device[@]}" run -

step "The setpoint, read in a later run: the change stayed on the node"
later=$(show "${device[@]}" get nciSetpoints.occupied_cool)
echo "$later"
if [[ "$later" != *"nciSetpoints.occupied_cool = 24.5"* ]]; then
  echo "run: the node did not keep the setpoint" >&2
  exit 1
fi

stop_vxsim
echo
echo "vxsim stopped; $state holds the node as the tour left it."
