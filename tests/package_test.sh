#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the Debian package of a build, looks into it, and runs a sample job with what it installs.
# Usage: package_test.sh BUILD [--bare]
#   --bare: into a fresh Debian 12 made by debootstrap, with the dependencies that the package itself
#           asks for (as root; fetches some hundred megabytes). Else unpacked into a directory.
set -euo pipefail
build=$(readlink -f "$1") mode=${2:-unpacked}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

cd "$dir"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$dir/pack" >"$dir/cpack.log" 2>&1 || { cat "$dir/cpack.log"; exit 1; }
debs=("$dir"/pack/*.deb)
[ ${#debs[@]} -eq 1 ] || fail "one package wanted, made: ${debs[*]}"
deb=${debs[0]}

# What dpkg will make of it.
for word in libgdal libopencv-core libspdlog; do
  dpkg-deb -f "$deb" Depends | grep "$word" >/dev/null || fail "does not depend on $word"
done
dpkg-deb -I "$deb" triggers | grep ldconfig >/dev/null || fail "no ldconfig trigger for the library"
dpkg-deb -c "$deb" | awk '$2 != "root/root" || $6 !~ "^\\./(usr/|$)" || $1 ~ "^[-d].....w"' >odd
[ ! -s odd ] || fail "owner, mode or place: $(cat odd)"
if command -v lintian >/dev/null; then
  lintian --allow-root --fail-on error,warning "$deb" || fail "lintian complains"
fi

root=$dir/root
if [ "$mode" = --bare ]; then
  [ "$(id -u)" -eq 0 ] || fail "a bare root can only be made by root"
  debootstrap --variant=minbase bookworm "$root" >"$dir/debootstrap.log" 2>&1 || { tail "$dir/debootstrap.log"; exit 1; }
  cp /etc/resolv.conf "$root/etc/resolv.conf"
  cp "$deb" "$root/tqtortho.deb"
  in_root() { chroot "$root" env -i PATH=/usr/bin:/bin:/usr/sbin:/sbin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
  in_root apt-get update -qq
  in_root apt-get install -y -qq --no-install-recommends /tqtortho.deb >"$dir/apt.log" 2>&1 || { tail "$dir/apt.log"; exit 1; }
  in_root ldconfig -p | grep libtqtortho >/dev/null || fail "the library is not in the linker's cache"
  tqtortho() { in_root tqtortho "$@"; }
  out=/job
else
  dpkg-deb -x "$deb" "$root"
  tqtortho() { LD_LIBRARY_PATH=$root/usr/lib "$root/usr/bin/tqtortho" "$@"; }
  out=$dir/job
fi

share=$root/usr/share
for file in bash-completion/completions/tqtortho zsh/site-functions/_tqtortho \
  fish/vendor_completions.d/tqtortho.fish doc/tqtortho/copyright doc/tqtortho/changelog.gz \
  doc/tqtortho/README.md doc/tqtortho/SECURITY.md doc/tqtortho/docs/output_files.md ../lib/cmake/tqtortho/tqtorthoConfig.cmake; do
  [ -s "$share/$file" ] || fail "the package lacks $file"
done
gzip -dc "$share/man/man1/tqtortho.1.gz" | cmp - "$build/apps/tqtortho/pages/tqtortho.1"
grep -oE '\]\([^):#]+' "$share/doc/tqtortho/README.md" | cut -c3- | while read -r link; do
  [ -e "$share/doc/tqtortho/$link" ] || fail "README links to $link, which is not installed"
done

tqtortho --version | grep -E '^tqtortho [0-9]+\.[0-9]+\.[0-9]+$' >/dev/null || fail "--version"
tqtortho sample --out "$out/town" --size 30 --photos 3 --photo-gsd 0.2 --quiet >/dev/null
tqtortho run --dsm "$out/town/dsm.tif" --cameras "$out/town/cameras.txt" \
  --photos "$out/town/photos.txt" --out "$out/out" --quiet >"$dir/run.log" || { cat "$dir/run.log"; exit 1; }
grep -q '3 of 3 photos done' "$dir/run.log" || fail "$(cat "$dir/run.log")"
job=$out
[ "$mode" != --bare ] || job=$root$out
for file in mosaic.tif source.tif quality.tif preview.png; do
  [ -s "$job/out/$file" ] || fail "the job left no $file"
done
echo "package: $(basename "$deb"), $(stat -c %s "$deb") bytes; sample job done in $mode root"
