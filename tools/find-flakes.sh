#!/usr/bin/env bash
# Runs the suite of an existing build several times under ctest -j2 and lists
# every test that failed at least once, with how often. Finds flaky tests
# before CI does.
#
#   bash tools/find-flakes.sh [RUNS] [BUILD_DIR] [-- extra ctest options]
#
# RUNS defaults to 20, BUILD_DIR to build (made by tools/run-tests.sh). For the
# sanitizer build, pass build-asan: the ASAN/UBSAN/LSAN options of
# tools/run-tests.sh are set here too, and its "nosan" label is left out.
# Exits 0 when every run was green, 1 otherwise.
set -uo pipefail
cd "$(dirname "$0")/.."

runs=${1:-20}
build=${2:-build}
shift $(( $# < 2 ? $# : 2 ))
[ "${1:-}" = "--" ] && shift
extra=("$@")

if [ ! -f "$build/CTestTestfile.cmake" ]; then
  echo "find-flakes: $build is not a configured build; run tools/run-tests.sh first" >&2
  exit 2
fi
case "$build" in
  *asan*)
    export ASAN_OPTIONS="handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0:allow_user_segv_handler=1:detect_leaks=1:abort_on_error=0"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp"
    extra+=(-LE nosan)
    ;;
esac

log_dir=$(mktemp -d "${TMPDIR:-/tmp}/find-flakes.XXXXXX")
declare -A failures=()
green=0
for ((run = 1; run <= runs; run++)); do
  started=$SECONDS
  if (cd "$build" && ctest -j2 --timeout 300 "${extra[@]}" >"$log_dir/run-$run.log" 2>&1); then
    green=$((green + 1))
    echo "run $run/$runs: green ($((SECONDS - started)) s)"
  else
    echo "run $run/$runs: RED ($((SECONDS - started)) s), output in $log_dir/run-$run.log"
    # ctest lists the failed tests of its last run as "NUMBER:NAME" lines.
    while IFS=: read -r _ name; do
      [ -n "$name" ] && failures["$name"]=$(( ${failures["$name"]:-0} + 1 ))
    done < "$build/Testing/Temporary/LastTestsFailed.log"
  fi
done

echo
echo "$green of $runs runs green"
if [ ${#failures[@]} -eq 0 ]; then
  rm -rf "$log_dir"
  exit 0
fi
echo "tests that failed at least once (failures, name):"
for name in "${!failures[@]}"; do printf '%4d  %s\n' "${failures[$name]}" "$name"; done | sort -rn
echo "logs of the red runs: $log_dir"
exit 1
