# shellcheck shell=bash
# Sourced by scripts that talk to an agentsim of their own: a work directory
# removed on exit, and an agent on a socket inside it, stopped on exit.
#
#   ov_private_work NAME          makes $work (a temporary directory named
#                                 after NAME) and sets the EXIT trap
#   ov_private_agent CMD...       starts CMD (an agentsim, possibly behind a
#                                 wrapper such as chrt) on the socket directory
#                                 $work/run, exported as OV_PIPE_DIR, and waits
#                                 until it is ready; returns 1 (its stderr
#                                 shown) when it is not

ov_agent_pid=""

ov_private_cleanup() {
  if [ -n "$ov_agent_pid" ]; then
    kill "$ov_agent_pid" 2>/dev/null || true
    wait "$ov_agent_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}

ov_private_work() {
  work=$(mktemp -d "${TMPDIR:-/tmp}/$1.XXXXXX")
  trap ov_private_cleanup EXIT
}

ov_private_agent() {
  export OV_PIPE_DIR="$work/run"
  "$@" --pipe-dir "$OV_PIPE_DIR" --ready-file "$work/ready" 2>"$work/agentsim.err" &
  ov_agent_pid=$!
  for _ in $(seq 1 200); do
    [ -f "$work/ready" ] && return 0
    kill -0 "$ov_agent_pid" 2>/dev/null || break
    sleep 0.05
  done
  [ -f "$work/ready" ] && return 0
  cat "$work/agentsim.err" >&2
  return 1
}
