#!/usr/bin/env bash
# Installs the Debian 12 packages the project needs to build and test, skipping those already
# present. Runs `apt-get update` once, and only when something is missing.
#
# Usage: scripts/setup.sh            every package the project needs
#        scripts/setup.sh PKG...     only these (the server scripts use this for their own)
#
# Package scripts are kept from starting system services (ceph, tinyproxy): a temporary
# /usr/sbin/policy-rc.d answers "not allowed" while apt runs and is removed afterwards.
set -euo pipefail

ALL_PACKAGES=(
  # compilers and build tools
  build-essential cmake ninja-build ccache pkg-config clang libclang-rt-14-dev
  # libraries the code links against
  libssl-dev libexpat1-dev nlohmann-json3-dev libcli11-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  # the S3 server, the proxy and the tools the scripts use
  ceph-mon ceph-osd radosgw tinyproxy curl openssl uuid-runtime python3
)

log() { echo "[setup] $*" >&2; }

if [ $# -gt 0 ]; then wanted=("$@"); else wanted=("${ALL_PACKAGES[@]}"); fi

installed() {
  [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null || true)" = "install ok installed" ]
}

missing=()
for pkg in "${wanted[@]}"; do
  installed "$pkg" || missing+=("$pkg")
done
if [ ${#missing[@]} -eq 0 ]; then
  log "all ${#wanted[@]} packages present"
  exit 0
fi

if [ "$(id -u)" != 0 ]; then
  log "ERROR: missing packages: ${missing[*]}; run this script as root to install them"
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
APT_LOG=$(mktemp /tmp/oxs3-apt.XXXXXX.log)
made_policy=0
cleanup() {
  if [ "$made_policy" = 1 ]; then rm -f /usr/sbin/policy-rc.d; fi
}
trap cleanup EXIT
if [ ! -e /usr/sbin/policy-rc.d ]; then
  printf '#!/bin/sh\n# installed by oxs3 scripts/setup.sh while apt runs\nexit 101\n' >/usr/sbin/policy-rc.d
  chmod 755 /usr/sbin/policy-rc.d
  made_policy=1
fi

apt_get() { apt-get -o DPkg::Lock::Timeout=600 -q "$@" >>"$APT_LOG" 2>&1; }

log "installing ${missing[*]}"
t0=$(date +%s)
if ! apt_get update; then
  tail -n 20 "$APT_LOG" >&2
  log "ERROR: apt-get update failed (log: $APT_LOG)"
  exit 1
fi
if ! apt_get install -y --no-install-recommends "${missing[@]}"; then
  tail -n 30 "$APT_LOG" >&2
  log "ERROR: apt-get install failed (log: $APT_LOG)"
  exit 1
fi
for pkg in "${missing[@]}"; do
  installed "$pkg" || { log "ERROR: $pkg is still not installed (log: $APT_LOG)"; exit 1; }
done
rm -f "$APT_LOG"
log "installed ${#missing[@]} packages in $(( $(date +%s) - t0 ))s"
