#!/usr/bin/env bash
# Builds the Release build and shows the S3 extension working: the oxs3 tool loads
# liboxs3.so through the host and prints its version.
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
echo "==> $BUILD_DIR/tools/oxs3/oxs3 version" >&2
"$BUILD_DIR/tools/oxs3/oxs3" version
