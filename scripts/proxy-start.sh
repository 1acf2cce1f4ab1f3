#!/usr/bin/env bash
# Starts two forward HTTP proxies (tinyproxy) on loopback for the proxy tests: one open, one
# asking for Basic authentication. Both forward plain HTTP requests and tunnel CONNECT to any
# port, so they reach the S3 server's HTTP and HTTPS ports.
#
# Usage: scripts/proxy-start.sh DIR
#
# The ports are picked free at start. A proxy pair left in DIR by an earlier run is stopped
# and DIR wiped first. On success DIR/env holds, as KEY=VALUE lines:
#   PROXY_HOST, PROXY_PORT                  the open proxy
#   PROXY_AUTH_PORT, PROXY_USER, PROXY_PASS the authenticating proxy and its only user
#   PROXY_URL, PROXY_AUTH_URL, PROXY_DIR
# Logs (one line per request) are in DIR/log. Stop with scripts/proxy-stop.sh DIR.
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$HERE/lib.sh"

[ $# -eq 1 ] || { echo "usage: $0 DIR" >&2; exit 2; }
DIR=$(realpath -m "$1")
HOST=127.0.0.1
USER_NAME=oxproxy
USER_PASS=proxy-secret-1
ATTEMPTS=3

T0=$(ox_now_ms)
log() { echo "[proxy-start $(ox_since "$T0")s] $*" >&2; }
die() {
  log "ERROR: $*"
  ox_show_log_tails 10 "$DIR"/log/*.log
  exit 1
}

ox_refuse_dir "$DIR" && die "refusing to use $DIR as the proxy directory"
[[ "$DIR" =~ ^[A-Za-z0-9_./+@-]+$ ]] || die "DIR must not contain spaces or shell characters: '$DIR'"

if ! command -v tinyproxy >/dev/null || [ ! -x /usr/bin/python3 ]; then
  [ "${OXS3_NO_INSTALL:-0}" = 1 ] && die "tinyproxy or python3 is missing (run scripts/setup.sh as root)"
  "$HERE/setup.sh" tinyproxy python3 || die "could not install tinyproxy"
  OX_PYTHON=/usr/bin/python3   # lib.sh looked before the install
fi

if [ -e "$DIR" ]; then
  if [ -f "$DIR/.oxs3-proxy" ] || [ -z "$(ls -A "$DIR" 2>/dev/null)" ]; then
    "$HERE/proxy-stop.sh" "$DIR" || die "could not stop the earlier proxies in $DIR"
  else
    die "$DIR exists and is not a proxy directory of this script; refusing to touch it"
  fi
fi

# write_conf NAME PORT [USER PASS]
write_conf() {
  local name=$1 port=$2
  {
    echo "Port $port"
    echo "Listen $HOST"
    echo "Timeout 600"
    echo "PidFile \"$DIR/run/$name.pid\""
    echo "LogFile \"$DIR/log/$name.log\""
    echo "LogLevel Connect"
    echo "MaxClients 200"
    echo "Allow 127.0.0.1"
    echo "Allow ::1"
    # No ConnectPort line: CONNECT is allowed to every port.
    if [ $# -eq 4 ]; then echo "BasicAuth $3 $4"; fi
  } >"$DIR/$name.conf"
}

# start_proxy NAME PORT: starts it and waits until it listens on PORT.
start_proxy() {
  local name=$1 port=$2 pid="" i
  tinyproxy -c "$DIR/$name.conf" </dev/null >>"$DIR/log/$name.out" 2>&1 \
    || { FAIL_REASON="tinyproxy ($name) did not start (see $DIR/log/$name.log)"; return 1; }
  for ((i = 0; i < 100; i++)); do
    pid=$(cat "$DIR/run/$name.pid" 2>/dev/null || true)
    if [ -n "$pid" ]; then
      grep -qx "$name $pid" "$DIR/pids" 2>/dev/null || echo "$name $pid" >>"$DIR/pids"
      ox_owns_port "$pid" "$port" && return 0
      if ! kill -0 "$pid" 2>/dev/null; then break; fi
    fi
    sleep 0.05
  done
  FAIL_REASON="tinyproxy ($name) is not listening on port $port (see $DIR/log/$name.log)"
  return 1
}

FAIL_REASON=
for attempt in $(seq 1 "$ATTEMPTS"); do
  mkdir -p "$DIR/run" "$DIR/log"
  : >"$DIR/.oxs3-proxy"
  : >"$DIR/pids"
  ports=$(ox_free_ports 2) || die "could not find free ports on loopback"
  read -r PORT AUTH_PORT <<<"$ports"
  write_conf open "$PORT"
  write_conf auth "$AUTH_PORT" "$USER_NAME" "$USER_PASS"
  if start_proxy open "$PORT" && start_proxy auth "$AUTH_PORT"; then
    tmp="$DIR/.env.tmp.$$"
    cat >"$tmp" <<EOF
PROXY_HOST=$HOST
PROXY_PORT=$PORT
PROXY_AUTH_PORT=$AUTH_PORT
PROXY_USER=$USER_NAME
PROXY_PASS=$USER_PASS
PROXY_URL=http://$HOST:$PORT
PROXY_AUTH_URL=http://$USER_NAME:$USER_PASS@$HOST:$AUTH_PORT
PROXY_DIR=$DIR
EOF
    mv -f "$tmp" "$DIR/env"
    log "proxies ready: open on $HOST:$PORT, Basic auth on $HOST:$AUTH_PORT (dir $DIR)"
    cat "$DIR/env"
    exit 0
  fi
  if [ "$attempt" -lt "$ATTEMPTS" ] && grep -qs 'Address already in use\|Could not create listening' "$DIR"/log/*.log; then
    log "$FAIL_REASON; starting again on other ports"
    "$HERE/proxy-stop.sh" "$DIR" 2>/dev/null || true
    continue
  fi
  "$HERE/proxy-stop.sh" --keep "$DIR" || true
  die "$FAIL_REASON"
done
