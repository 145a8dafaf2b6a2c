# SPDX-License-Identifier: Apache-2.0
"""Rasters of a few hundred bytes, written by hand so that nothing but their faults is in them."""
import struct
import zlib

EAST, NORTH = 500000.0, 5400030.0  # upper left corner of the sample town's surface
NAN, INF = float("nan"), float("inf")


def tiff(cols=120, rows=120, cell=0.25, east=EAST, north=NORTH, epsg=32633, kind="f", bands=1,
         value=100.0, nodata=None, matrix=None, sparse=False, georeference=True,
         values=None):
    """One GeoTIFF as bytes. `kind`: f and d floats, B H I unsigned, F complex floats. `sparse` gives
    tiles that the file claims and does not hold: any size in kilobytes."""
    bits, form = {"f": (32, 3), "d": (64, 3), "B": (8, 1), "H": (16, 1), "I": (32, 1),
                  "F": (64, 6)}[kind]
    tags = [(256, "I", [cols]), (257, "I", [rows]), (258, "H", [bits] * max(bands, 1)),
            (259, "H", [1]), (262, "H", [1]), (277, "H", [bands]), (339, "H", [form] * max(bands, 1))]
    data = b""
    if sparse:
        side = 512
        count = max(1, -(-cols // side) * -(-rows // side))
        tags += [(322, "H", [side]), (323, "H", [side]), (324, None, count), (325, None, count)]
    else:
        value = value if kind in "fdF" else int(value)
        cells = values if values is not None else [value] * (cols * rows * max(bands, 1))
        if kind == "F":
            cells = [part for v in cells for part in (v, 0.0)]
        data = struct.pack(f"<{len(cells)}{'f' if kind == 'F' else kind}", *cells)
        tags += [(273, "S", [0]), (278, "I", [rows]), (279, "I", [len(data)])]
    if georeference:
        if matrix:
            tags.append((34264, "d", matrix))
        else:
            tags += [(33550, "d", [cell, cell, 0.0]),
                     (33922, "d", [0, 0, 0, east, north, 0])]
        if epsg == 4326:
            tags.append((34735, "H", [1, 1, 0, 3, 1024, 0, 1, 2, 1025, 0, 1, 1, 2048, 0, 1, epsg]))
        elif epsg:
            tags.append((34735, "H", [1, 1, 0, 3, 1024, 0, 1, 1, 1025, 0, 1, 1, 3072, 0, 1, epsg]))
    if nodata is not None:
        tags.append((42113, "s", nodata.encode() + b"\0"))
    tags.sort(key=lambda tag: tag[0])

    def packed(kind, values):
        if kind == "s":
            return values
        return struct.pack(f"<{len(values)}{'I' if kind == 'S' else kind}", *values)

    at = 8 + 2 + 12 * len(tags) + 4
    long = [packed(k, v) for _, k, v in tags if k and len(packed(k, v)) > 4]
    start = at + sum(map(len, long))  # of cells, or of the holes' addresses
    out, extra = struct.pack("<2sHIH", b"II", 42, 8, len(tags)), b""
    holes = start
    for tag, kind, values in tags:
        if kind is None:
            out += struct.pack("<HHII", tag, 4, values, holes if values > 1 else 0)
            holes += 4 * values if values > 1 else 0
            continue
        raw = packed(kind, [start] if kind == "S" else values)
        if len(raw) > 4:
            place = struct.pack("<I", at + len(extra))
            extra += raw
        else:
            place = raw.ljust(4, b"\0")
        out += struct.pack("<HHI", tag, {"I": 4, "S": 4, "H": 3, "d": 12, "s": 2}[kind],
                           len(values)) + place
    out += b"\0" * 4 + extra + data
    return out + b"\0" * (holes - start) if sparse else out


def png(cols=172, rows=130, colour=2, bits=8, value=90):
    """A PNG as bytes: colour 0 grey, 2 RGB, 3 palette, 6 RGBA."""
    def chunk(name, body):
        return struct.pack(">I", len(body)) + name + body + struct.pack(">I", zlib.crc32(name + body))
    samples = {0: 1, 2: 3, 3: 1, 6: 4}[colour]
    line = b"\0" + bytes([value]) * (cols * samples * bits // 8)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", cols, rows, bits, colour, 0,
            0, 0)) + chunk(b"IDAT", zlib.compress(line * (rows if rows < 1000 else 1))) + chunk(b"IEND", b""))


def vrt(source, cols=120, rows=120, extra=""):
    """A virtual raster over one source, which may be an address."""
    return f"""<VRTDataset rasterXSize="{cols}" rasterYSize="{rows}"><SRS>EPSG:32633</SRS>
<GeoTransform>{EAST}, 0.25, 0, {NORTH}, 0, -0.25</GeoTransform>
<VRTRasterBand dataType="Float32" band="1"{extra}><SimpleSource>
<SourceFilename>{source}</SourceFilename><SourceBand>1</SourceBand></SimpleSource></VRTRasterBand>
</VRTDataset>""".encode()
