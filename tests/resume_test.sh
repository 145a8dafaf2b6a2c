#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A job that is killed at any moment and run again ends with the bytes of an undisturbed one; what did
# not change is kept, what changed is made anew.
# usage: resume_test.sh TQTORTHO [KILLS]
# shellcheck disable=SC2016
set -uo pipefail
tqtortho=$1 kills=${2:-6}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir" || exit 1
work=whole/work
passed=0 failed=0
check() { if eval "$1"; then passed=$((passed + 1)); else echo "FAILED: $1"; failed=$((failed + 1)); fi; }
holds() { grep -qF -- "$1" <<<"$out" || { echo "no \"$1\" in: $out"; false; }; }
# The report and the GeoPackage tell times.
same() { diff -rq -x work -x .tqtortho.lock -x report.html -x seams.gpkg "$1" "$2"; }
run() { out=$("$tqtortho" run --dsm town/dsm.tif --cameras town/cameras.txt --photos "${list:-town/photos.txt}" \
  --threads 2 --quiet "$@" 2>&1); }

"$tqtortho" sample --out town --size 40 --photos 8 --photo-gsd 0.15 --quiet >/dev/null
start=$EPOCHREALTIME
run --out whole
length=$(awk "BEGIN {print $EPOCHREALTIME - $start}")
check '[ -s whole/mosaic.tif ]'
photos=$(awk 'END {print NR - 3}' town/photos.txt)

# Killed at random moments of one job, again and again until it has had all of them.
for ((i = 0; i < kills; i++)); do
  pause=$(awk "BEGIN {srand($RANDOM); print $length * (rand() * 1.05)}")
  rm -rf killed
  "$tqtortho" run --dsm town/dsm.tif --cameras town/cameras.txt --photos town/photos.txt --threads 2 --quiet \
    --out killed >/dev/null 2>&1 & pid=$!
  sleep "$pause"; kill -9 $pid 2>/dev/null; wait $pid 2>/dev/null
  # Killed once more while it goes on.
  if ((i % 2)); then
    "$tqtortho" run --dsm town/dsm.tif --cameras town/cameras.txt --photos town/photos.txt --threads 2 --quiet \
      --out killed >/dev/null 2>&1 & pid=$!
    sleep "$(awk "BEGIN {srand($RANDOM); print $length * rand()}")"; kill -9 $pid 2>/dev/null; wait $pid 2>/dev/null
  fi
  run --out killed
  same whole killed || { echo "after a kill at $pause s of $length s"; failed=$((failed + 1)); }
  passed=$((passed + 1))
done
check '! find killed -name "*.tmp*" | grep -q .'

# Nothing changed: everything is kept. A photo changed: it alone is made anew. Back again: as before.
run --out whole; check 'holds "$photos photos were finished by an earlier run"'
cp -r whole before
first=$(awk 'NR == 4 {print $1}' town/photos.txt)
touch "town/photos/$first"
run --out whole; check 'holds "$((photos - 1)) photos were finished by an earlier run"'
check 'same before whole'
# Another finish starts from the orthos as rectified, and so does the way back.
run --out whole --finish none; check '! same before whole >/dev/null'
run --out whole; check 'same before whole'
# The mosaic alone is made of the orthos as rectified too, not of what filled them.
"$tqtortho" mosaic --work whole/work --out again --quiet >/dev/null 2>&1
check 'cmp -s whole/mosaic.tif again/mosaic.tif && cmp -s whole/source.tif again/source.tif'
# A file that someone changed or removed is made again.
rm whole/mosaic.tif
for mask in whole/ortho/*_obs.tif; do echo >>"$mask"; break; done
for kept in "$work"/state/originals/*.msk; do rm "$kept"; break; done
run --out whole; check 'same before whole'
run --out whole --fresh; check '! holds "earlier run" >/dev/null && same before whole'

# Products and state in one directory: no job keeps itself out.
run --out one --work one; check '[ -s one/mosaic.tif ]'

# A photo that the survey has no more leaves nothing behind; the result is that of a job without it.
awk -v n="$((photos - 1))" 'NR == 2 {print n; next} NR < 3 + n + 1' town/photos.txt >town/fewer.txt
list=town/fewer.txt run --out whole
list=town/fewer.txt run --out fewer
check 'same fewer whole'
# Another surface under the same name makes everything anew.
"$tqtortho" sample --out other --seed 2 --size 40 --photos 8 --photo-gsd 0.15 --quiet >/dev/null
cp town/dsm.tif first_dsm.tif; cp other/dsm.tif town/dsm.tif
list=town/fewer.txt run --out whole; check '! same fewer whole >/dev/null'
list=town/fewer.txt run --out surfaced; check 'same surfaced whole'
cp first_dsm.tif town/dsm.tif; list=town/fewer.txt run --out whole
# Never two jobs in one directory, and no sizing run over a finished one.
exec 9>>"$work/.tqtortho.lock"; flock 9
run --out whole; check 'holds "another job is at work in it"'
out=$("$tqtortho" mosaic --work whole/work --out again 2>&1); check 'holds "another job is at work in it"'
exec 9>&-
run --out whole --sizing-only; check 'holds "--fresh"'
check 'same fewer whole'

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
