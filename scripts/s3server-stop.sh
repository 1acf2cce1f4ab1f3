#!/usr/bin/env bash
# Stops the S3 server that scripts/s3server-start.sh started in DIR and removes DIR.
#
# Usage: scripts/s3server-stop.sh [--keep] DIR
#   --keep   stop the daemons but keep DIR (their logs are in DIR/log)
#
# Only the recorded daemons are signalled (DIR/pids, DIR/run/*.pid), and only while their
# command line still names DIR's ceph.conf, so a reused pid is never hit. The cluster is
# throwaway: the gateway gets a few seconds to stop cleanly, the OSD and monitor are killed.
set -uo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$HERE/lib.sh"

KEEP=0
if [ "${1:-}" = --keep ]; then KEEP=1; shift; fi
[ $# -eq 1 ] || { echo "usage: $0 [--keep] DIR" >&2; exit 2; }
DIR=$(realpath -m "$1")
log() { echo "[s3server-stop] $*" >&2; }

if ox_refuse_dir "$DIR"; then log "refusing to touch $DIR"; exit 1; fi
if [ ! -e "$DIR" ]; then
  log "nothing at $DIR"
  exit 0
fi
if [ ! -f "$DIR/.oxs3-s3server" ] && [ -n "$(ls -A "$DIR" 2>/dev/null)" ]; then
  log "$DIR is not a server directory of s3server-start.sh; left alone"
  exit 1
fi

MARK="-c $DIR/ceph.conf "

# The live pids recorded for daemon $1.
pids_of() {
  local pid
  { [ -f "$DIR/pids" ] && awk -v n="$1" '$1 == n { print $2 }' "$DIR/pids"
    cat "$DIR/run/$1.pid" 2>/dev/null
    echo
  } | grep -E '^[0-9]+$' | sort -u | while read -r pid; do
    ox_pid_runs "$pid" "$MARK" && echo "$pid"
  done
}

mapfile -t rgw < <(pids_of client.rgw)
mapfile -t rest < <(pids_of osd.0; pids_of mon.a)
if [ ${#rgw[@]} -gt 0 ]; then
  kill -TERM "${rgw[@]}" 2>/dev/null
  ox_wait_gone 50 "$MARK" "${rgw[@]}" || kill -KILL "${rgw[@]}" 2>/dev/null
fi
if [ ${#rest[@]} -gt 0 ]; then
  kill -KILL "${rest[@]}" 2>/dev/null
fi
all=("${rgw[@]}" "${rest[@]}")
if [ ${#all[@]} -gt 0 ] && ! ox_wait_gone 100 "$MARK" "${all[@]}"; then
  log "daemons of $DIR did not exit: ${all[*]}"
  exit 1
fi

if [ "$KEEP" = 1 ]; then
  log "stopped ${#all[@]} daemons, kept $DIR"
else
  rm -rf "$DIR"
  log "stopped ${#all[@]} daemons and removed $DIR"
fi
