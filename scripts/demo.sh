#!/usr/bin/env bash
# Builds the Release build and shows the S3 extension working against a throwaway local S3
# server: the oxs3 tool makes a bucket, uploads a generated file of a few MiB, lists it,
# downloads it and compares the SHA-256 of both, prints a small object, shows an object's
# information, removes everything recursively and removes the bucket.
#
# Usage: scripts/demo.sh
# Environment: OXS3_BUILD_DIR (relative to the repository, default build), OXS3_JOBS.
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$ROOT"
BUILD_DIR=${OXS3_BUILD_DIR:-build}
JOBS=${OXS3_JOBS:-$(nproc 2>/dev/null || echo 2)}

scripts/setup.sh
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build "$BUILD_DIR" -j "$JOBS" --target oxs3-tool
TOOL="$ROOT/$BUILD_DIR/tools/oxs3/oxs3"

WORK=$(mktemp -d /tmp/oxs3-demo.XXXXXX)
SERVER="$WORK/s3server"
cleanup() {
  if [ -d "$SERVER" ]; then "$ROOT/scripts/s3server-stop.sh" "$SERVER" >/dev/null 2>&1 || true; fi
  rm -rf "$WORK"
}
trap cleanup EXIT

step() { echo "==> $*" >&2; }

step "starting a local S3 server in $SERVER"
scripts/s3server-start.sh "$SERVER" >/dev/null  # its env file holds the endpoint and keys
S3_PORT=$(sed -n 's/^S3_PORT=//p' "$SERVER/env")
S3_VHOST_DOMAIN=$(sed -n 's/^S3_VHOST_DOMAIN=//p' "$SERVER/env")
# The server's keys, and a home of our own so no real AWS configuration is read.
AWS_ACCESS_KEY_ID=$(sed -n 's/^S3_ACCESS_KEY=//p' "$SERVER/env")
AWS_SECRET_ACCESS_KEY=$(sed -n 's/^S3_SECRET_KEY=//p' "$SERVER/env")
AWS_DEFAULT_REGION=$(sed -n 's/^S3_REGION=//p' "$SERVER/env")
export AWS_ACCESS_KEY_ID AWS_SECRET_ACCESS_KEY AWS_DEFAULT_REGION
export HOME="$WORK/home"
mkdir -p "$HOME"
unset AWS_CONFIG_FILE AWS_SHARED_CREDENTIALS_FILE AWS_SESSION_TOKEN AWS_DEFAULT_PROFILE AWS_PROFILE

# Buckets are addressed as subdomains of the endpoint's host.
ENDPOINT="http://$S3_VHOST_DOMAIN:$S3_PORT"
BUCKET="oxs3-demo-$$"
oxs3() {
  echo "\$ oxs3 --endpoint $ENDPOINT $*" >&2
  "$TOOL" --endpoint "$ENDPOINT" "$@"
}

step "version"
"$TOOL" version
step "generating an 8 MiB file"
head -c $((8 * 1024 * 1024)) /dev/urandom > "$WORK/data.bin"
echo "hello from oxs3" > "$WORK/hello.txt"

step "make a bucket";         oxs3 mb "s3://$BUCKET"
step "upload";                oxs3 put "$WORK/data.bin" "s3://$BUCKET/demo/data.bin"
                              oxs3 put "$WORK/hello.txt" "s3://$BUCKET/demo/notes/hello.txt"
step "list";                  oxs3 ls
                              oxs3 ls "s3://$BUCKET/demo/"
step "download";              oxs3 get "s3://$BUCKET/demo/data.bin" "$WORK/data.back"
step "compare checksums"
sha256sum "$WORK/data.bin" "$WORK/data.back"
if [ "$(sha256sum < "$WORK/data.bin")" != "$(sha256sum < "$WORK/data.back")" ]; then
  echo "demo: the downloaded file differs from the uploaded one" >&2
  exit 1
fi
echo "checksums match" >&2
step "print a small object";  oxs3 cat "s3://$BUCKET/demo/notes/hello.txt"
step "object information";    oxs3 stat "s3://$BUCKET/demo/data.bin"
step "remove recursively";    oxs3 rm -r "s3://$BUCKET/demo"
                              oxs3 ls "s3://$BUCKET"
step "remove the bucket";     oxs3 rb "s3://$BUCKET"
step "done: the demo succeeded"
