#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the build into a directory of its own, builds a host against it and runs it on a sample town.
set -euo pipefail
build=$1 source=$2 tqtortho=$3
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

cmake --install "$build" --prefix "$dir/prefix" >/dev/null
cmake -S "$source/tests/install" -B "$dir/host" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$dir/prefix" >/dev/null
cmake --build "$dir/host" >/dev/null
"$tqtortho" sample --out "$dir/town" --size 30 --photos 2 --photo-gsd 0.2 --quiet >/dev/null
mkdir -p "$dir/job"
OMP_NUM_THREADS=2 "$dir/host/small_host" "$dir/town" "$dir/job"
count=$(find "$dir/job/ortho" -name '*_obs.tif' | wc -l)
[ "$count" -eq 2 ] || { echo "expected 2 occlusion masks, found $count"; exit 1; }
