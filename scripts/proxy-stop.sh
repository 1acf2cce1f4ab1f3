#!/usr/bin/env bash
# Stops the proxies that scripts/proxy-start.sh started in DIR and removes DIR.
#
# Usage: scripts/proxy-stop.sh [--keep] DIR
#
# Only the recorded pids (DIR/pids, DIR/run/*.pid) are signalled, and only while their
# command line still names a configuration file in DIR.
set -uo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$HERE/lib.sh"

log() { echo "[proxy-stop] $*" >&2; }
ox_stop_setup .oxs3-proxy "a proxy directory of proxy-start.sh" "$@"

MARK="-c $DIR/"
mapfile -t pids < <(ox_live_pids "$DIR" "$MARK")
ox_term_then_kill 30 "$MARK" "${pids[@]}"
if [ ${#pids[@]} -gt 0 ] && ! ox_wait_gone 50 "$MARK" "${pids[@]}"; then
  log "proxies of $DIR did not exit: ${pids[*]}"
  exit 1
fi

ox_stop_finish "${#pids[@]} proxies"
