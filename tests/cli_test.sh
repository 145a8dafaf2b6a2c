#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The command as people and scripts meet it: good runs and what they leave on disk. Bad input stands in
# tests/bad_inputs, interruption in stop_test.py and resume_test.sh.
# shellcheck disable=SC2016,SC2001,SC2012,SC2010
set -uo pipefail
tqtortho=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir" || exit 1
passed=0 failed=0

# expect STATUS TEXT COMMAND...: exit status, and one line of output that holds TEXT.
expect() {
  local status=$1 text=$2; shift 2
  local out; out=$("$@" 2>&1); local got=$?
  if [ "$got" -ne "$status" ] || ! grep -qF -- "$text" <<<"$out"; then
    echo "FAILED: $*"; echo "  wanted status $status and \"$text\", got status $got and:"; sed 's/^/  | /' <<<"$out"
    failed=$((failed + 1))
  else
    passed=$((passed + 1))
  fi
}
check() { if eval "$1"; then passed=$((passed + 1)); else echo "FAILED: $1"; failed=$((failed + 1)); fi; }
run() { "$tqtortho" run "$@"; }
# changed TEXT AWK: a survey whose photo list is changed so is refused.
changed() {
  awk "$2 {print}" town/photos.txt >town/changed.txt
  expect 2 "$1" run --dsm town/dsm.tif --cameras town/cameras.txt --photos town/changed.txt --out x
}

expect 0 "town in town" "$tqtortho" sample --out town --size 30 --photos 3 --photo-gsd 0.2 --quiet
state=out/work
lists=(--dsm town/dsm.tif --cameras town/cameras.txt --photos town/photos.txt)
first=$(awk 'NR==4 {print $1}' town/photos.txt)

# A good run leaves what it says.
expect 0 "3 of 3 photos done" run "${lists[@]}" --out out --threads 2 --reduced --finish none
check '[ -s out/mosaic.tif ] && [ -s out/source.tif ] && [ -s out/quality.tif ]'
check '[ -s out/preview.png ] && [ -s out/orthos.vrt ] && [ -s $state/ortho_data/orParam.txt ]'
check '[ "$(ls out/ortho/*_obs.tif | wc -l)" -eq 3 ] && [ "$(ls out/rs | wc -l)" -eq 3 ]'
check '! find out -name "*.tmp-*" | grep -q .'
expect 0 "a job would use --gsd" "$tqtortho" info "${lists[@]}"
expect 0 "IoU" "$tqtortho" score --truth town --orthos out/ortho
expect 0 '"event":"result"' run "${lists[@]}" --out json --json --threads 1
# The same survey found by what lies there, written as lists, and run from those: the same orthos.
expect 0 "photos   3 in 1 block" "$tqtortho" import --project town --out lists
expect 0 "3 of 3 photos done" run --dsm town/dsm.tif --cameras lists/cameras.txt --photos lists/photos.txt --out relisted --threads 2 --finish none
check 'cmp -s "out/ortho/${first%.*}_0.${first##*.}" "relisted/ortho/${first%.*}_0.${first##*.}"'
# A work block by itself gives what a job of ray-traced masks gives. Given one plan, the bytes do not
# depend on the threads (the plan itself follows their number).
expect 0 "3 of 3 photos done" run "${lists[@]}" --out rays --threads 2 --reduced --finish none --occlusion rays
state=rays/work
cp -r rays/ortho before
for threads in 1 5; do
  for n in 1 2 3; do
    OMP_NUM_THREADS=$threads "$tqtortho" block --param $state/ortho_data/orParam_plan.txt --number $n --tmp $state/tmp
  done
  check 'diff -r before rays/ortho >/dev/null'
done
state=out/work
# The mosaic again from what the job left: the same bytes; cut to a polygon: others.
"$tqtortho" mosaic --work out/work --out again --threads 2 2>again.txt
check '[ "$(grep ^mosaic: again.txt)" = "$(run "${lists[@]}" --out out --reduced --finish none --quiet 2>/dev/null | grep ^mosaic:)" ]'
check 'cmp -s out/mosaic.tif again/mosaic.tif && cmp -s out/source.tif again/source.tif'
read -r west south < <(awk 'NR==4 {print $2, $3}' town/photos.txt)
cat >area.geojson <<GEOJSON
{"type": "FeatureCollection", "crs": {"type": "name", "properties": {"name": "EPSG:32633"}}, "features": [
 {"type": "Feature", "properties": {}, "geometry": {"type": "Polygon", "coordinates": [[[$west, $south],
 [$(awk "BEGIN {print $west + 8}"), $south], [$west, $(awk "BEGIN {print $south + 8}")], [$west, $south]]]}}]}
GEOJSON
expect 0 "seams" "$tqtortho" mosaic --work out/work --out cut --area area.geojson
check '! cmp -s out/mosaic.tif cut/mosaic.tif'
expect 0 "3 of 3" run "${lists[@]}" --out marked --finish mark --threads 1
expect 0 "3 of 3" run "${lists[@]}" --out sizing --sizing-only --quiet
check '[ -z "$(find sizing/ortho -name "*.png" -o -name "*.tif")" ]'
expect 0 "border cells" "$tqtortho" border --dsm town/dsm.tif --out border/mask.tif
check '[ -s border/mask.tif ]'
check '"$tqtortho" thumbnails --param $state/ortho_data/orParam.txt --number 1'
check '[ "$(ls out/ortho | grep -c "_obs.tif_thumb.png")" -ge 1 ]'
rm -f out/ortho/*_thumb.png

# Bad input: each its one line.
mkdir -p model; echo "1 PINHOLE 9 9 9 9 4 4" >model/cameras.txt; printf '1 1 0 0 0 0 0 9 1 a.jpg\n\n' >model/images.txt
expect 2 "holds no project that is known; looked for" run --project . --out x
expect 2 "no/where: is not there" "$tqtortho" info --project no/where
expect 2 "give it with --crs EPSG:n, and with --offset" run --project model --out x
expect 2 "is not E,N or E,N,H" run --colmap model --crs EPSG:32633 --offset 1 --out x
expect 2 "no such file in" "$tqtortho" import --colmap model --crs EPSG:32633 --offset -5,3 --out x
expect 2 "is of no use with --cameras" run "${lists[@]}" --images town --out x
expect 2 "--frame is of no use with --cameras" run "${lists[@]}" --frame local --out x
expect 2 "has no use for --frame" run --project town --frame grid --out x
changed "10 km" 'NR>3 {$2=$2+900000}'
changed "no photo shows any of the DSM" 'NR>3 {$2=$2+600}'

# One truncated and one missing photo: named, the others done.
cp -r town broken; head -c 3000 "town/photos/$first" >"broken/photos/$first"
bad=(--dsm broken/dsm.tif --cameras broken/cameras.txt --photos broken/photos.txt)
expect 0 "2 of 3 photos done, 1 left out: $first" run "${bad[@]}" --out partly --quiet
expect 0 "$first: the file ends before the picture does" run "${bad[@]}" --out partly --quiet
rm "broken/photos/$first"
expect 0 "2 of 3 photos done, 1 left out: $first" run "${bad[@]}" --out missing --quiet

# What is said before work, and what a mosaic is handed out as.
expect 0 "each place in about" "$tqtortho" info "${lists[@]}"
expect 0 "on disk (mosaic" run "${lists[@]}" --out said --sizing-only
awk 'NR>3 {$4=$4+6000} {print}' town/photos.txt >town/high.txt
expect 0 "geoid" "$tqtortho" info --dsm town/dsm.tif --cameras town/cameras.txt --photos town/high.txt
expect 0 "seams" "$tqtortho" mosaic --work out/work --out web --format png-tiles
check '[ -s web/tiles/tiles.json ] && [ -n "$(find web/tiles -name "*.png" -size +1k)" ]'
expect 0 "seams" "$tqtortho" mosaic --work out/work --out small --format jpeg
check '[ "$(stat -c %s small/mosaic.tif)" -lt "$(stat -c %s out/mosaic.tif)" ] && [ -s small/seams.gpkg ]'
# Regions cover what was seen, seams are as long as the mosaic counted them, both to the cell.
if command -v ogrinfo >/dev/null; then
  sum() { ogrinfo -q -sql "SELECT SUM($2) AS s FROM $3" "$1/seams.gpkg" | awk '/ = / {print $NF}'; }
  said() { grep '"event":"result"' result.json | grep -o "\"$1\":[0-9.]*" | cut -d: -f2; }
  run "${lists[@]}" --out json --json --threads 1 >result.json
  check 'awk "BEGIN {d = $(sum json length_m seams) - $(said seamLength); exit !(d * d < 1e-4)}"'
  check 'awk "BEGIN {d = $(sum json area_m2 regions) / $(said gsd) ^ 2 - $(said seen); exit !(d * d < 0.25)}"'
  check 'awk "BEGIN {d = $(sum json supplied_pct footprints) - 100; exit !(d * d < 1e-6)}"'
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
