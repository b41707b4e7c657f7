#!/usr/bin/env bash
# Incremental developer build: compiles the engine into build/dev and drops the
# extension next to the sources, so `PYTHONPATH=src python -m pytest` runs the
# working tree without a reinstall. A lock keeps concurrent callers apart.
set -euo pipefail
cd "$(dirname "$0")/.."
exec 9>build/.dev_build.lock 2>/dev/null || { mkdir -p build; exec 9>build/.dev_build.lock; }
flock 9
if [ ! -f build/dev/build.ninja ]; then
  cmake -S . -B build/dev -G Ninja -DSKBUILD=ON -DCMAKE_BUILD_TYPE=Release \
    -DPython_EXECUTABLE="$(command -v python)" \
    -Dnanobind_DIR="$(python -c 'import nanobind; print(nanobind.cmake_dir())')" >/dev/null
fi
ninja -C build/dev _engine "$@"
# Copy under a temporary name and rename: overwriting the file in place would
# crash processes that have the old extension loaded.
for so in build/dev/_engine*.so; do
  cp "$so" "src/kolva/.$(basename "$so").tmp"
  mv -f "src/kolva/.$(basename "$so").tmp" "src/kolva/$(basename "$so")"
done
