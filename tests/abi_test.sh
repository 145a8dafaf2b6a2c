#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Compares what the shared library exports with tests/install/abi.txt: its SONAME, then one symbol a line.
# Usage: abi_test.sh LIBRARY [--renew]
#   --renew: writes the list anew; refuses to drop a symbol while the SONAME stays, since programs that
#            were linked before would no longer start.
# Weak symbols (W, u) of our own classes are left out of the comparison: whether the compiler inlines an inline
# member depends on its optimisation. Those of other names are listed, since none may be exported.
set -euo pipefail
export LC_ALL=C
library=$1
list=$(dirname "$(readlink -f "$0")")/install/abi.txt
now=$(mktemp)
trap 'rm -f "$now"' EXIT
{
  readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/SONAME \1/p'
  nm -DC --defined-only "$library" | cut -d' ' -f2- | grep -vE '^[Wu] (tqtortho|tqfd|tqimage|tqorkit|TqRaster)::' | sort -u
} >"$now"
gone=$(comm -23 <(sort "$list" 2>/dev/null) <(sort "$now"))
if [ "${2:-}" = --renew ]; then
  if [ -n "$gone" ] && ! grep -q '^SONAME' <<<"$gone"; then
    printf '%s\n' "these symbols would go while the SONAME stays; raise the version in include/tqtortho/Version.h:" "$gone"
    exit 1
  fi
  cp "$now" "$list"
  chmod 644 "$list"
  exit 0
fi
diff -u "$list" "$now" || {
  echo "the exports differ from $list; if that is wanted: tests/abi_test.sh LIBRARY --renew (see CONTRIBUTING.md)"
  exit 1
}
