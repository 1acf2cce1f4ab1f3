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

log() { echo "[s3server-stop] $*" >&2; }
ox_stop_setup .oxs3-s3server "a server directory of s3server-start.sh" "$@"

MARK="-c $DIR/ceph.conf "
mapfile -t rgw < <(ox_live_pids "$DIR" "$MARK" client.rgw)
mapfile -t rest < <(ox_live_pids "$DIR" "$MARK" osd.0; ox_live_pids "$DIR" "$MARK" mon.a)
ox_term_then_kill 50 "$MARK" "${rgw[@]}"
if [ ${#rest[@]} -gt 0 ]; then
  kill -KILL "${rest[@]}" 2>/dev/null
fi
all=("${rgw[@]}" "${rest[@]}")
if [ ${#all[@]} -gt 0 ] && ! ox_wait_gone 100 "$MARK" "${all[@]}"; then
  log "daemons of $DIR did not exit: ${all[*]}"
  exit 1
fi

ox_stop_finish "${#all[@]} daemons"
