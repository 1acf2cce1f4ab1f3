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

KEEP=0
if [ "${1:-}" = --keep ]; then KEEP=1; shift; fi
[ $# -eq 1 ] || { echo "usage: $0 [--keep] DIR" >&2; exit 2; }
DIR=$(realpath -m "$1")
log() { echo "[proxy-stop] $*" >&2; }

if ox_refuse_dir "$DIR"; then log "refusing to touch $DIR"; exit 1; fi
if [ ! -e "$DIR" ]; then
  log "nothing at $DIR"
  exit 0
fi
if [ ! -f "$DIR/.oxs3-proxy" ] && [ -n "$(ls -A "$DIR" 2>/dev/null)" ]; then
  log "$DIR is not a proxy directory of proxy-start.sh; left alone"
  exit 1
fi

MARK="-c $DIR/"
pids=()
for pid in $( { awk '{ print $2 }' "$DIR/pids" 2>/dev/null; cat "$DIR"/run/*.pid 2>/dev/null; echo; } \
              | grep -E '^[0-9]+$' | sort -u); do
  ox_pid_runs "$pid" "$MARK" && pids+=("$pid")
done
if [ ${#pids[@]} -gt 0 ]; then
  kill -TERM "${pids[@]}" 2>/dev/null
  ox_wait_gone 30 "$MARK" "${pids[@]}" || kill -KILL "${pids[@]}" 2>/dev/null
  ox_wait_gone 50 "$MARK" "${pids[@]}" || { log "proxies of $DIR did not exit: ${pids[*]}"; exit 1; }
fi

if [ "$KEEP" = 1 ]; then
  log "stopped ${#pids[@]} proxies, kept $DIR"
else
  rm -rf "$DIR"
  log "stopped ${#pids[@]} proxies and removed $DIR"
fi
