#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Fails when an #include climbs from a lower room into a higher one, or a library header leaks.

A room may include itself and the rooms before it in src/CMakeLists.txt. GDAL, GEOS, iconv and spdlog headers belong to
src/platform (and the mosaic's writer), and neither OpenCV nor GDAL shows in include/.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROOMS = re.findall(r"^tqtortho_room\((\w+)", (ROOT / "src/CMakeLists.txt").read_text(encoding="utf-8"), re.M) + ["apps"]
PLATFORM = {"tqfd", "tqimage", "tqorkit", "tqraster", "geo", "internal"}
PRIVATE = re.compile(r"^(gdal|ogr|cpl_|geos|iconv|spdlog|vrt)", re.I)
PRIVATE_ALLOWED = {"src/mosaic/mosaic_writer.cpp"}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')


def room_of(path):
    parts = path.parts
    if parts[0] == "include":
        return "api"
    return "apps" if parts[0] == "apps" else parts[1]


def target_room(header):
    top = header.split("/")[0]
    if top in PLATFORM:
        return "platform"
    if top == "tqtortho":
        return "api"
    return top if top in ROOMS else None


def faults(root):
    for path in sorted(root.glob("**/*")):
        rel = path.relative_to(root)
        if rel.parts[0] not in ("src", "apps", "include") or path.suffix not in (".h", ".cpp", ".inc"):
            continue
        room = room_of(rel)
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            found = INCLUDE.match(line)
            if not found:
                continue
            header = found.group(1)
            where = f"{rel}:{number}: "
            if PRIVATE.match(header) and room != "platform" and str(rel) not in PRIVATE_ALLOWED:
                yield where + f"{header} belongs to src/platform"
            if room == "api":
                if header.startswith("opencv") or target_room(header) not in (None, "api", "platform"):
                    yield where + f"{header} must not show in the public headers"
                continue
            target = target_room(header)
            # The public classes are declared once; their members live in several rooms.
            if target in (None, "api"):
                continue
            # A test may stand on rooms above its own: whole jobs, sample towns.
            if ROOMS.index(target) > ROOMS.index(room) and not path.stem.endswith("_test"):
                yield where + f"room {room} must not use room {target}"


def main():
    found = list(faults(ROOT))
    print("\n".join(found) if found else "layers: in order")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
