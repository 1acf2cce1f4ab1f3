#!/usr/bin/env bash
# Builds and runs every test: the Release build in build/ and the AddressSanitizer +
# UndefinedBehaviorSanitizer build in build-asan/. Each ctest run starts its own S3 server
# (build*/s3server) for the integration tests and stops it afterwards.
#
# Usage: scripts/test.sh [extra ctest arguments, e.g. -L unit or -R Pool]
#
# Environment: OXS3_BUILD_DIR, OXS3_ASAN_BUILD_DIR (build directories relative to the
# repository, default build and build-asan), OXS3_JOBS (default: the number of cores),
# OXS3_TEST_TIMEOUT (seconds per test, default 120).
#
# Exits non-zero when any step fails; prints a summary at the end. Installs missing Debian
# packages first (scripts/setup.sh; needs root only when something is missing).
set -uo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$ROOT" || exit 1
. scripts/lib.sh

BUILD_DIR=${OXS3_BUILD_DIR:-build}
ASAN_BUILD_DIR=${OXS3_ASAN_BUILD_DIR:-build-asan}
JOBS=${OXS3_JOBS:-$(nproc 2>/dev/null || echo 2)}
CTEST_TIMEOUT=${OXS3_TEST_TIMEOUT:-120}   # per test, seconds; the server start has its own

# Sanitizer settings: stop at the first error, report leaks, keep stacks readable.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:halt_on_error=1:abort_on_error=0:detect_stack_use_after_return=1:check_initialization_order=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-}
export CTEST_OUTPUT_ON_FAILURE=1

summary=()
failed=0
T_ALL=$(ox_now_ms)

step() {  # step NAME COMMAND...: runs it, records the outcome and its duration
  local name=$1 t0 rc
  shift
  echo "==> $name" >&2
  t0=$(ox_now_ms)
  "$@"
  rc=$?
  if [ "$rc" = 0 ]; then
    summary+=("$(printf '  %-28s ok      %6ss' "$name" "$(ox_since "$t0")")")
  else
    summary+=("$(printf '  %-28s FAILED  %6ss  (exit %d)' "$name" "$(ox_since "$t0")" "$rc")")
    failed=1
  fi
  return "$rc"
}

configure_and_build() {  # DIR CMAKE-ARGS...
  local dir=$1
  shift
  cmake -S "$ROOT" -B "$ROOT/$dir" -G Ninja "$@" && cmake --build "$ROOT/$dir" -j "$JOBS"
}

run_ctest() {  # DIR
  # OXS3_TEST_ENV names the env file the build's s3server fixture writes.
  OXS3_TEST_ENV="$ROOT/$1/s3server/env" \
    ctest --test-dir "$ROOT/$1" --output-on-failure -j "$JOBS" --timeout "$CTEST_TIMEOUT" "${CTEST_ARGS[@]}"
}

CTEST_ARGS=("$@")

if step "setup (packages)" scripts/setup.sh; then
  if step "build Release" configure_and_build "$BUILD_DIR" -DCMAKE_BUILD_TYPE=Release; then
    step "test Release" run_ctest "$BUILD_DIR"
  fi
  if step "build ASan+UBSan" configure_and_build "$ASAN_BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
       -DOX_SANITIZE=ON -DOX_BENCH=OFF; then
    step "test ASan+UBSan" run_ctest "$ASAN_BUILD_DIR"
  fi
fi

echo
echo "Summary ($(ox_since "$T_ALL")s):"
printf '%s\n' "${summary[@]}"
if [ "$failed" != 0 ]; then
  echo "FAILED (test logs: build*/Testing/Temporary/LastTest.log)"
  exit 1
fi
echo "ALL PASSED"
