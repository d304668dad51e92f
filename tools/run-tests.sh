#!/usr/bin/env bash
# The project's test command: installs what is missing, configures, builds and
# runs every test, then runs the suite once more built with AddressSanitizer
# and UndefinedBehaviorSanitizer. Works on a fresh Debian 12 machine as root.
#
#   bash tools/run-tests.sh            # both passes
#   ML_SKIP_SANITIZERS=1 bash tools/run-tests.sh   # the plain pass only
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/install-deps.sh

jobs=$(nproc 2>/dev/null || echo 2)
export CTEST_OUTPUT_ON_FAILURE=1

echo "== plain build"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DML_SANITIZE=OFF
cmake --build build -j"$jobs"
(cd build && ctest -j"$jobs" --timeout 300)

if [ "${ML_SKIP_SANITIZERS:-0}" != "1" ]; then
  echo "== sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer)"
  cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DML_SANITIZE=ON -DML_BUILD_BENCH=OFF
  cmake --build build-asan -j"$jobs"
  # The capture installs its own fault handlers, so the sanitizer must leave
  # SIGSEGV and friends to it; tests labelled "nosan" measure or trace real
  # processes in ways the sanitizer runtime cannot take part in.
  export ASAN_OPTIONS="handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0:allow_user_segv_handler=1:detect_leaks=1:abort_on_error=0"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
  export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp"
  (cd build-asan && ctest -j"$jobs" --timeout 600 -LE nosan)
fi
echo "== all tests passed"
