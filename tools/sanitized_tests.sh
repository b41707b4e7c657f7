#!/usr/bin/env bash
# Builds the engine with AddressSanitizer and UndefinedBehaviorSanitizer into
# build/asan and runs the test suite against that build. Any sanitizer report,
# in pytest itself or in a child process a test starts, fails the run.
#
#   bash tools/sanitized_tests.sh [extra pytest arguments]
#   bash tools/sanitized_tests.sh --run COMMAND...   (any command in the same
#        environment instead of pytest, e.g. a fuzz harness under fuzz/)
#
# The build tools come from PyPI (installed here, so a fresh machine has them).
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT="$PWD"
BUILD="$ROOT/build/asan"

python -m pip install --quiet nanobind cmake ninja

# The Python scripts directory holds the pip-installed cmake and ninja.
SCRIPTS="$(python -c 'import sysconfig; print(sysconfig.get_path("scripts"))')"
export PATH="$SCRIPTS:$PATH"

# -O1 -g1: line numbers in reports at a third of the compile time of -O2 -g
# (ASan makes optimised compiles slow and the CI budget is shared).
if [ ! -f "$BUILD/build.ninja" ]; then
  cmake -S . -B "$BUILD" -G Ninja -DSKBUILD=ON -DKOLVA_SANITIZE=ON \
    -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-O1 -g1" \
    -DPython_EXECUTABLE="$(python -c 'import sys; print(sys.executable)')" \
    -Dnanobind_DIR="$(python -c 'import nanobind; print(nanobind.cmake_dir())')" >/dev/null
fi
ninja -C "$BUILD" _engine

# The package from the sources with the sanitized extension in place of any
# other: a copy in a temporary directory put first on PYTHONPATH.
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT
cp -r src/kolva "$WORK/kolva"
rm -f "$WORK"/kolva/_engine*.so
cp "$BUILD"/_engine*.so "$WORK/kolva/"
mkdir -p "$WORK/reports"

# Python itself is linked neither with the ASan runtime nor with libstdc++:
# both are preloaded, the runtime first, and libstdc++ with it so that ASan
# finds the real __cxa_throw when it starts (without it the first C++
# exception aborts with "real___cxa_throw != 0").
ASAN_LIB="$(gcc -print-file-name=libasan.so)"
STDCXX_LIB="$(gcc -print-file-name=libstdc++.so)"
for lib in "$ASAN_LIB" "$STDCXX_LIB"; do
  if [ ! -e "$lib" ]; then
    echo "sanitized_tests: $lib not found (from gcc -print-file-name)" >&2
    exit 1
  fi
done
PRELOAD="$ASAN_LIB:$STDCXX_LIB"

# The extension must be the sanitized one, or the run proves nothing; and a
# C++ exception must cross into Python as an error.
env LD_PRELOAD="$PRELOAD" ASAN_OPTIONS=detect_leaks=0 PYTHONPATH="$WORK" python - "$WORK" <<'EOF'
import sys, kolva._engine as e
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError
assert e.__file__.startswith(sys.argv[1]), e.__file__
try:
    SciPyCSCCodeGenerator({"declarations": [{"type": "mystery"}], "constraints": []}).generate_code()
except SemanticError:
    pass
print("sanitized_tests: engine from", e.__file__)
EOF

SAN_ENV=(
  LD_PRELOAD="$PRELOAD"
  ASAN_OPTIONS="detect_leaks=0:abort_on_error=1:log_path=$WORK/reports/asan"
  UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:log_path=$WORK/reports/ubsan"
  PYTHONMALLOC=malloc
  PYTHONPATH="$WORK"
)

# Tests left out of this run only (the first, plain run keeps them all), each
# with its reason in a comment. None today: the subprocess tests inherit the
# environment (LD_PRELOAD included), and the depth tests pass with the larger
# stack set below.
DESELECT=(
)
PYTEST_DESELECT=()
if [ "${1:-}" != "--run" ]; then
  for item in "${DESELECT[@]}"; do
    echo "sanitized_tests: deselected $item (reason in tools/sanitized_tests.sh)"
    PYTEST_DESELECT+=(--deselect "$item")
  done
fi

# A report stops the process that hit it (abort_on_error, halt_on_error) and
# goes to a file under $WORK/reports instead of stderr: it is printed below and
# fails the run even when it came from a child process whose output a test
# captured.
# detect_leaks=0: CPython keeps objects alive until exit by design.
# PYTHONMALLOC=malloc: Python's own objects come from the sanitized allocator,
# so the engine reading past a Python buffer is caught too.
# ASan's frames are several times larger than a plain build's: the OPL
# parser's depth limit (1000 nested brackets, about 4-8 MB of stack in the
# plain build) overflows an 8 MB stack under ASan. The run gets a 64 MB stack
# so that the depth tests still run here and still test the limit.
if [ "$(ulimit -s)" != unlimited ] && [ "$(ulimit -s)" -lt 65536 ]; then
  ulimit -s 65536
fi

status=0
if [ "${1:-}" = "--run" ]; then
  shift
  env "${SAN_ENV[@]}" "$@" || status=$?
else
  env "${SAN_ENV[@]}" python -m pytest -p no:cacheprovider "${PYTEST_DESELECT[@]}" "$@" || status=$?
fi

shopt -s nullglob
reports=("$WORK"/reports/*)
if [ "${#reports[@]}" -gt 0 ]; then
  for r in "${reports[@]}"; do
    echo "==== sanitizer report $r"
    cat "$r"
  done
  echo "sanitized_tests: ${#reports[@]} sanitizer report(s)" >&2
  [ "$status" -ne 0 ] || status=1
fi
exit "$status"
