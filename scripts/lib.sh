# shellcheck shell=bash
# Helpers shared by the server scripts (sourced, not run).

# The system's python, not whatever a version manager puts first on PATH.
OX_PYTHON=/usr/bin/python3
[ -x "$OX_PYTHON" ] || OX_PYTHON=python3

# Prints N distinct TCP ports that nothing on loopback (127.0.0.1, ::1) holds now. They are
# taken below the kernel's ephemeral range, so outgoing connections do not grab them, and
# above 10000, away from the ranges daemons search by themselves (the OSD uses 6800-7300).
ox_free_ports() {
  "$OX_PYTHON" - "$1" <<'EOF'
import errno, random, socket, sys
n = int(sys.argv[1])
try:
    low = int(open("/proc/sys/net/ipv4/ip_local_port_range").read().split()[0])
except (OSError, ValueError, IndexError):
    low = 32768
hi = max(low - 1, 20000)
lo = 10000 if hi > 12000 else 8000
def free(port):
    for fam, addr in ((socket.AF_INET, "127.0.0.1"), (socket.AF_INET6, "::1")):
        try:
            s = socket.socket(fam, socket.SOCK_STREAM)
        except OSError:
            continue
        try:
            s.bind((addr, port))
        except OSError as e:
            if fam == socket.AF_INET6 and e.errno in (errno.EADDRNOTAVAIL, errno.EAFNOSUPPORT):
                continue
            return False
        finally:
            s.close()
    return True
got = []
for _ in range(10000):
    if len(got) == n:
        break
    p = random.randint(lo, hi)
    if p not in got and free(p):
        got.append(p)
if len(got) < n:
    sys.exit("no free ports on loopback")
print(" ".join(map(str, got)))
EOF
}

# Is anything listening on TCP port $1 (IPv4 or IPv6)?
ox_port_listened() {
  local hex
  hex=$(printf '%04X' "$1")
  awk -v p=":$hex" '$4 == "0A" && substr($2, length($2) - 4) == p { found = 1 } END { exit !found }' \
    /proc/net/tcp /proc/net/tcp6 2>/dev/null
}

# Does process $1 hold a listening socket on TCP port $2?
ox_owns_port() {
  local pid=$1 hex inodes fd link
  hex=$(printf '%04X' "$2")
  inodes=$(awk -v p=":$hex" '$4 == "0A" && substr($2, length($2) - 4) == p { printf " socket:[%s]", $10 }' \
    /proc/net/tcp /proc/net/tcp6 2>/dev/null)
  [ -n "$inodes" ] || return 1
  for fd in /proc/"$pid"/fd/*; do
    link=$(readlink "$fd" 2>/dev/null) || continue
    case "$inodes " in *" $link "*) return 0;; esac
  done
  return 1
}

# Is pid $1 alive and does its command line contain $2?
ox_pid_runs() {
  local cmd
  cmd=$( { tr '\0' ' ' <"/proc/$1/cmdline"; } 2>/dev/null ) || return 1
  case "$cmd" in *"$2"*) return 0;; esac
  return 1
}

# Waits up to $1 tenths of a second until none of the pids $3... still runs $2.
ox_wait_gone() {
  local tenths=$1 marker=$2 i pid alive
  shift 2
  for ((i = 0; i < tenths; i++)); do
    alive=0
    for pid in "$@"; do ox_pid_runs "$pid" "$marker" && alive=1; done
    [ "$alive" = 0 ] && return 0
    sleep 0.1
  done
  return 1
}

# Directories the scripts must never treat as their own.
ox_refuse_dir() {
  case "$1" in
    /|/tmp|/root|/home|/usr|/var|/etc|/work|"${HOME:-/}") return 0;;
  esac
  return 1
}

# Milliseconds since the epoch and a "1.234" rendering of the time since $1.
ox_now_ms() { echo $(( $(date +%s%N) / 1000000 )); }
ox_since() {
  local ms=$(( $(ox_now_ms) - $1 ))
  printf '%d.%03d' $((ms / 1000)) $((ms % 1000))
}

# The last $1 lines of each non-empty file $2... on stderr, for a failure report.
ox_show_log_tails() {
  local lines=$1 f
  shift
  for f in "$@"; do
    [ -s "$f" ] || continue
    echo "----- last lines of $f" >&2
    tail -n "$lines" "$f" >&2
  done
}

# ---- the stop scripts (each defines log() first)

# Parses "[--keep] DIR" ($3...) into KEEP and DIR, and exits unless DIR is there and holds
# marker file $1 (or nothing) of the start script named $2.
ox_stop_setup() {
  local marker=$1 owner=$2
  shift 2
  KEEP=0
  if [ "${1:-}" = --keep ]; then KEEP=1; shift; fi
  [ $# -eq 1 ] || { echo "usage: $0 [--keep] DIR" >&2; exit 2; }
  DIR=$(realpath -m "$1")
  if ox_refuse_dir "$DIR"; then log "refusing to touch $DIR"; exit 1; fi
  if [ ! -e "$DIR" ]; then
    log "nothing at $DIR"
    exit 0
  fi
  if [ ! -f "$DIR/$marker" ] && [ -n "$(ls -A "$DIR" 2>/dev/null)" ]; then
    log "$DIR is not $owner; left alone"
    exit 1
  fi
}

# The pids recorded in DIR ($1) for daemon $3 (every daemon without $3), in DIR/pids and
# DIR/run/*.pid, that still run with $2 in their command line, so a reused pid is never hit.
ox_live_pids() {
  local dir=$1 marker=$2 name=${3:-} pid files
  files=("$dir"/run/*.pid)
  [ -z "$name" ] || files=("$dir/run/$name.pid")
  { awk -v n="$name" 'n == "" || $1 == n { print $2 }' "$dir/pids" 2>/dev/null
    cat "${files[@]}" 2>/dev/null
    echo
  } | grep -E '^[0-9]+$' | sort -u | while read -r pid; do
    ox_pid_runs "$pid" "$marker" && echo "$pid"
  done
}

# Sends TERM to pids $3..., then KILL to those still running $2 after $1 tenths of a second.
ox_term_then_kill() {
  local tenths=$1 marker=$2
  shift 2
  [ $# -gt 0 ] || return 0
  kill -TERM "$@" 2>/dev/null
  ox_wait_gone "$tenths" "$marker" "$@" || kill -KILL "$@" 2>/dev/null
  return 0
}

# Removes DIR unless KEEP is 1, and says so; $1 tells what was stopped.
ox_stop_finish() {
  if [ "$KEEP" = 1 ]; then
    log "stopped $1, kept $DIR"
  else
    rm -rf "$DIR"
    log "stopped $1 and removed $DIR"
  fi
}
