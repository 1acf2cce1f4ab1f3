#!/usr/bin/env bash
# Builds the Release build and shows the S3 extension working: a small program loads
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
if cmake --build "$BUILD_DIR" --target help | grep -q '^oxs3-version:'; then
  cmake --build "$BUILD_DIR" -j "$JOBS" --target oxs3-version
  program=$(find "$BUILD_DIR" -type f -name oxs3-version -perm -u+x | head -n 1)
else
  cmake --build "$BUILD_DIR" -j "$JOBS" --target unit_entry_test
  program=./$BUILD_DIR/tests/unit_entry_test
fi
echo "==> $program" >&2
OXS3_LIBRARY_DIR="$ROOT/$BUILD_DIR" "$program"
