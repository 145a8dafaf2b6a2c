# SPDX-License-Identifier: Apache-2.0
"""The table of bad inputs: name, arguments, what the one line must hold, and how the input is made."""
import dataclasses
import fcntl
import json
import os
import re
import shutil
import typing

from rasters import INF, NAN, png, tiff, vrt


@dataclasses.dataclass
class Row:
    name: str
    arguments: typing.Any  # words, or a function of the context that gives them
    text: str
    status: int = 2
    make: typing.Any = None  # a function of the context, called before
    warns: bool = False  # lines that begin with "warning: " may come first
    writes: str = "out"  # where it may write, relative to its folder
    environment: dict = dataclasses.field(default_factory=dict)

    def prepare(self, context):
        if self.make:
            self.make(context)
        words = self.arguments(context) if callable(self.arguments) else self.arguments
        words = words.split() if isinstance(words, str) else words
        return [w.replace("{town}", context.town).replace("{job}", context.job)
                if isinstance(w, str) else w for w in words]


class Context:
    """A row's folder, and what all rows share (to be read only)."""

    def __init__(self, shared, folder):
        self.town, self.job, self.folder = shared + "/town", shared + "/job", folder
        self.held = []

    def path(self, name):
        # Names may hold bytes that are no text.
        if isinstance(name, bytes):
            return os.path.join(os.fsencode(self.folder), name)
        return os.path.join(self.folder, name)

    def write(self, name, content):
        os.makedirs(os.path.dirname(self.path(name)) or ".", exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(content.encode() if isinstance(content, str) else content)

    def read(self, name, of=None):
        with open(f"{of or self.town}/{name}", "rb") as file:
            return file.read()

    def copy_town(self, name="survey"):
        shutil.copytree(self.town, self.path(name))

    def copy_job(self, name="job"):
        """A copy whose parameter file and lists name the copy."""
        shutil.copytree(self.job, self.path(name), symlinks=True)
        for file in ("work/ortho_data/orParam.txt", "work/ortho_data/orParam_plan.txt"):
            text = self.read(file, self.path(name)).replace(self.job.encode(),
                                                            self.path(name).encode())
            self.write(f"{name}/{file}", text)

    def hold(self, name):
        """Locks a folder as a job at work does."""
        file = open(self.path(name), "a")  # closed by end()
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        self.held.append(file)

    def end(self):
        for file in self.held:
            file.close()


def run(dsm="{town}/dsm.tif", cameras="{town}/cameras.txt", photos="{town}/photos.txt", more=()):
    more = more.split() if isinstance(more, str) else list(more)
    return ["run", "--quiet", "--dsm", dsm, "--cameras", cameras, "--photos", photos,
            *([] if "--out" in more else ["--out", "out"]), *more]


def files(**named):
    """Makes files: content, or a function of the context that gives it; "__" stands for "/" and the
    last "_" for "."."""
    def make(context):
        for key, content in named.items():
            name = ".".join(key.replace("__", "/").rsplit("_", 1))
            context.write(name, content(context) if callable(content) else content)
    return make


def usage():
    """Options: unknown, missing, out of range, no numbers, against each other."""
    rows = [
        Row("no subcommand", [], "subcommand"),
        Row("unknown subcommand", "paint", "no such subcommand"),
        Row("empty subcommand", [""], "no such subcommand"),
        Row("long subcommand", ["x" * 100000], "no such subcommand"),
        Row("subcommand of two lines", ["a\nb"], "no such subcommand"),
        Row("subcommand of no text", [b"\xff\xfe"], "no such subcommand"),
    ]
    required = {"run": "--out", "info": "no survey given", "import": "--out", "sample": "--out",
                "score": "--truth", "mosaic": "--work", "block": "--param", "thumbnails": "--param",
                "border": "--dsm", "trace": "--dsm", "self-test": "DSM_OUT"}
    for command, text in required.items():
        rows.append(Row(f"{command} without anything", [command], text))
        rows.append(Row(f"{command} unknown option", [command, "--no-such"],
                        text if command not in ("info",) else "--no-such"))
    numbers = {  # option: (command, values)
        "--gsd": (run(), ["nan", "inf", "-1", "1e7", "abc", "", "1,5"]),
        "--start-height": (run(), ["nan", "inf", "1e6", "x"]),
        "--threads": (run(), ["0", "-1", "1025", "1e3", "99999999999999999999", "x"]),
        "--bands": (run(), ["0", "1,2", "1,2,3,4", "nan", "4294967297", ","]),
        "--step": ("border --dsm {town}/dsm.tif --out out/b.tif".split(),
                   ["nan", "inf", "0", "-1", "10001", "x"]),
        "--size": ("sample --out out --quiet".split(), ["nan", "inf", "0", "19", "2001", "x"]),
        "--photos": ("sample --out out --quiet".split(), ["0", "401", "-3", "2.5", "x"]),
        "--photo-gsd": ("sample --out out --quiet".split(), ["nan", "0.001", "3"]),
        "--dsm-cell": ("sample --out out --quiet".split(), ["nan", "0", "11"]),
        "--lens": ("sample --out out --quiet".split(), ["2", "nan"]),
        "--attitude": ("sample --out out --quiet".split(), ["nan", "-1", "31"]),
        "--seed": ("sample --out out --quiet".split(), ["-1", "1e30", "x"]),
        "--jpeg-quality": ("mosaic --work {job}/work --out out".split(), ["0", "101", "nan"]),
        "--feather": ("mosaic --work {job}/work --out out".split(), ["-1", "33", "x"]),
        "--number": ("block --param {job}/work/ortho_data/orParam_plan.txt".split(),
                     ["0", "-1", "100000001", "99999999999", "nan"]),
    }
    for option, (command, values) in numbers.items():
        for value in values:
            rows.append(Row(f"{command[0]} {option} {value or 'empty'}",
                            [*command, f"{option}={value}"] if value else [*command, option, ""],
                            option))
    for option, value in {"--resampling": "cubic", "--occlusion": "guess", "--walls": "guess",
                          "--finish": "paint",
                          "--format": "bmp", "--compress": "zip", "--frame": "moon"}.items():
        rows.append(Row(f"run {option} {value}", run(more=f"{option} {value}"), option))
    lists = "--cameras {town}/cameras.txt --photos {town}/photos.txt"
    against = [
        ("range without bands", run(more="--range 0,100"), "--range"),
        ("range upside down", run(more="--bands 1 --range 100,0"), "--range"),
        ("range of NaN", run(more="--bands 1 --range nan,1"), "--range"),
        ("range without end", run(more="--bands 1 --range 0,inf"), "--range"),
        ("range of one", run(more="--bands 1 --range 5"), "--range"),
        ("jpeg with deflate", run(more="--format jpeg --compress deflate"), "--compress"),
        ("jpeg with zstd", run(more="--format jpeg --compress zstd"), "--compress"),
        ("cameras without photos", "run --dsm {town}/dsm.tif --cameras {town}/cameras.txt --out out",
         "go together"),
        ("photos without cameras", "run --dsm {town}/dsm.tif --photos {town}/photos.txt --out out",
         "go together"),
        ("two projects", "run --odm a --colmap b --out out", "each name a survey"),
        ("lists and a project", f"run {lists} --odm a --out out", "each name a survey"),
        ("lists with images", f"run {lists} --images a --out out", "--images"),
        ("lists with an offset", f"run {lists} --offset 1,2 --out out", "--offset"),
        ("lists with a camera file", f"run {lists} --camera-file a --out out", "--camera-file"),
        ("lists with a frame", f"run {lists} --frame grid --out out", "--frame"),
        ("lists without a DSM", f"run --quiet {lists} --out out", "--dsm"),
        ("an option twice", run(more="--gsd 1 --gsd 2"), "--gsd"),
        ("a stray word", run(more="stray"), "stray"),
    ]
    rows += [Row("run " + name, words, text) for name, words, text in against]
    for name, value in {"of one number": "5", "of four": "1,2,3,4", "of NaN": "nan,1", "of text": "a,b",
                        "endless": "inf,0", "empty": " "}.items():
        rows.append(Row(f"import --offset {name}",
                        ["import", "--colmap", "{town}", "--crs", "EPSG:32633", f"--offset={value}",
                         "--out", "out"], "--offset"))
    return rows


def places():
    """Each input that is not there, is no regular file, is empty, or is anything else."""
    lists = "--cameras {town}/cameras.txt --photos {town}/photos.txt"
    inputs = {
        "run dsm": f"run --quiet --dsm @ {lists} --out out",
        "run cameras": "run --quiet --dsm {town}/dsm.tif --cameras @ --photos {town}/photos.txt --out out",
        "run photos": "run --quiet --dsm {town}/dsm.tif --cameras {town}/cameras.txt --photos @ --out out",
        "run area (after the surface)": "run --quiet --dsm {town}/dsm.tif " + lists + " --area @ --out out",
        "run metashape": "run --quiet --dsm {town}/dsm.tif --metashape @ --out out",
        "run poses": "run --quiet --dsm {town}/dsm.tif --poses @ --out out",
        "run opensfm": "run --quiet --dsm {town}/dsm.tif --opensfm @ --crs EPSG:32633 --out out",
        "info dsm": "info --dsm @",
        "border dsm": "border --quiet --dsm @ --out out/b.tif",
        "trace dsm": "trace --dsm @ --position 500010,5400010,200 --rect "
                     "500005,5400005,500020,5400020 --gsd 0.25 --out out/m.tif",
        "trace mask": "trace --dsm {town}/dsm.tif --position 500010,5400010,200 --rect "
                      "500005,5400005,500020,5400020 --gsd 0.25 --method masked --mask @ --out out/m.tif",
        "block param": "block --param @ --number 1",
        "thumbnails param": "thumbnails --param @ --number 1",
        "mosaic area": "mosaic --quiet --work job/work --area @ --out out",
        "score mosaic": "score --truth {town} --orthos {job}/ortho --mosaic @",
    }
    folders = {
        "run odm": "run --quiet --odm @ --out out",
        "run colmap": "run --quiet --dsm {town}/dsm.tif --colmap @ --crs EPSG:32633 --out out",
        "run pix4d": "run --quiet --dsm {town}/dsm.tif --pix4d @ --crs EPSG:32633 --out out",
        "import project": "import --project @ --out out",
        "mosaic work": "mosaic --quiet --work @ --out out",
        "score truth": "score --truth @ --orthos {job}/ortho",
        "score orthos": "score --truth {town} --orthos @",
    }
    kinds = {
        "missing": ("no-such-thing", None),
        "a folder": ("a-folder", lambda c: os.mkdir(c.path("a-folder"))),
        "a pipe": ("a-pipe", lambda c: os.mkfifo(c.path("a-pipe"))),
        "a device": ("/dev/zero", None),
        "empty": ("nothing-in-it", lambda c: c.write("nothing-in-it", "")),
        "noise": ("noise", lambda c: c.write("noise", bytes(range(256)) * 40)),
    }
    rows = []
    for group, of_files in ((inputs, True), (folders, False)):
        for name, words in group.items():
            for kind, (place, make) in kinds.items():
                if not of_files and kind in ("empty", "noise"):
                    continue  # the same as a pipe to whoever wants a folder
                job = name == "mosaic area"

                def prepare(context, make=make, job=job):
                    if job:
                        context.copy_job()
                    if make:
                        make(context)
                rows.append(Row(f"{name}: {kind}", words.replace("@", place), place, make=prepare,
                                warns="after" in name))
    return rows


def surfaces():
    """Surface models that cannot be worked on, for the commands that read one."""
    def hole(context):
        context.write("dsm.tif", tiff())
        os.truncate(context.path("dsm.tif"), 30000)
    nan = [NAN] * 14400
    made = {  # name: (file, text, commands)
        "cut short": (hole, "dsm.tif", "run border"),
        "without georeference": (tiff(georeference=False), "georeference", "run info border"),
        "in degrees": (tiff(epsg=4326, east=15.0, north=48.75, cell=2e-6), "degree", "run info"),
        "on a web map": (tiff(epsg=3857), "scale", "run info"),
        "rotated": (tiff(matrix=[.25, .1, 0, 5e5, .1, -.25, 0, 5400030, 0, 0, 0, 0, 0, 0, 0, 1]),
                    "dsm.tif", "run info border"),
        "south-up": (tiff(matrix=[.25, 0, 0, 5e5, 0, .25, 0, 5400000, 0, 0, 0, 0, 0, 0, 0, 1]),
                     "dsm.tif", "run info border"),
        "of NaN only": (tiff(values=nan), "dsm.tif", "run info"),
        "of no data only": (tiff(value=-9999.0, nodata="-9999"), "dsm.tif", "run info"),
        "of infinity only": (tiff(value=INF), "dsm.tif", "run info"),
        "with cells of NaN": (tiff(cell=NAN), "dsm.tif", "run info border"),
        "with cells of nothing": (tiff(cell=0.0), "dsm.tif", "run info border"),
        "with cells of 1e-300": (tiff(cell=1e-300), "DSM", "run"),
        "with cells of 1e300": (tiff(cell=1e300), "DSM", "run"),
        "at infinity": (tiff(east=INF), "dsm.tif", "run info border"),
        "of complex numbers": (tiff(kind="F"), "dsm.tif", "run info"),
        "of no band": (tiff(bands=0, values=[]), "dsm.tif", "run info border"),
        "of 40,000 cells a side": (tiff(cols=400000, rows=40000, sparse=True), "cells",
                                   "run border trace"),
        "of a million cells a side": (tiff(cols=1000000, rows=1000000, sparse=True), "cells",
                                      "run info border trace"),
        "elsewhere": (tiff(east=600000.0), "DSM", "run"),
        "of a photo": (lambda c: c.write("dsm.tif", c.read("photos/S01_001.png")), "dsm.tif",
                       "run info border"),
        "fetched": (vrt("/vsicurl/http://127.0.0.1:9/dsm.tif"), "dsm.tif", "run info border trace"),
        "of an address": (vrt("http://127.0.0.1:9/dsm.tif"), "dsm.tif", "run"),
        "of itself": (vrt("dsm.tif"), "dsm.tif", "run border"),
        "of a file that is missing": (vrt("none.tif"), "dsm.tif", "run border"),
        "virtual, a million cells a side": (vrt("none.tif", 1000000, 1000000), "dsm.tif",
                                            "run border trace"),
        "of a web map service": (b"<GDAL_WMS><Service name=\"TMS\"><ServerUrl>http://127.0.0.1:9/"
                                 b"</ServerUrl></Service></GDAL_WMS>", "dsm.tif", "run info"),
        "of an entity bomb": (b"<!DOCTYPE a [<!ENTITY b \"x\"><!ENTITY c \"&b;&b;&b;&b;\">]>"
                              b"<VRTDataset>&c;</VRTDataset>", "dsm.tif", "run info"),
    }
    commands = {
        "run": run(dsm="dsm.tif"), "info": "info --dsm dsm.tif",
        "border": "border --quiet --dsm dsm.tif --out out/b.tif",
        "trace": "trace --dsm dsm.tif --position 500010,5400010,200 --rect "
                 "500005,5400005,500020,5400020 --gsd 0.25 --method full --out out/m.tif",
    }
    rows = []
    for name, (content, text, used) in made.items():
        make = content if callable(content) else files(dsm_tif=content)
        for command in used.split():
            # What is odd and not wrong is said before.
            # A file that ends early is found when its cells are read, and that is the work of border.
            status = 1 if command == "border" and name == "cut short" else 2
            rows.append(Row(f"{command} a surface {name}", commands[command], text, status, make,
                            warns=True))
    for name in ("/vsicurl/http://127.0.0.1:9/dsm.tif", "http://127.0.0.1:9/dsm.tif", "/vsizip/a.zip/d.tif",
                 "WMS:http://127.0.0.1:9/", "PG:host=127.0.0.1", "/vsimem/none.tif"):
        rows.append(Row(f"run on the name {name}", run(dsm=name), name))
    return rows


def lists():
    """Camera and photo lists with one fault each."""
    def changed(name, pattern, to, count=1):
        def content(context):
            return re.sub(pattern, to, context.read(name).decode(), count=count, flags=re.M)
        return content
    camera = [
        ("no count", r"\A1\n", "", "cameras.txt"),
        ("a count of two", r"\A1\n", "2\n", "cameras.txt"),
        ("a negative count", r"\A1\n", "-1\n", "cameras.txt"),
        ("a huge count", r"\A1\n", "99999999999999999999\n", "cameras.txt"),
        ("fifteen values", r" 0$", "", "sixteen"),
        ("seventeen values", r" 0$", " 0 0", "sixteen"),
        ("text for a number", r"^172 ", "wide ", "cameras.txt"),
        ("a width of NaN", r"^172 ", "nan ", "cameras.txt"),
        ("a width of nothing", r"^172 ", "0 ", "cameras.txt"),
        ("a width of 1e300", r"^172 ", "1e300 ", "cameras.txt"),
        ("no focal length", r"^172 130 207", "172 130 0", "cameras.txt"),
        ("an endless focal length", r"^172 130 207", "172 130 inf", "cameras.txt"),
        ("a negative focal length", r"^172 130 207", "172 130 -207", "cameras.txt"),
        ("a principal point outside", r"87\.032", "8703", "cameras.txt"),
        ("a lens coefficient of NaN", r"1\.204716e-06", "nan", "cameras.txt"),
        ("an unknown lens", r"64\.14 1 ", "64.14 9 ", "cameras.txt"),
    ]
    photo = [
        ("no count", r"\A1\n", "", "photos.txt"),
        ("a count of four photos", r"^3$", "4", "photos.txt"),
        ("a count of two photos", r"^3$", "2", "photos.txt"),
        ("a count of no photos", r"^3$", "0", "photos.txt"),
        ("an unknown camera", r" 1$", " 77", "77"),
        ("a camera that is no number", r" 1$", " a", "photos.txt"),
        ("seven fields", r" 1$", "", "photos.txt"),
        ("a position of NaN", r"500007\.706579", "nan", "photos.txt"),
        ("an endless position", r"500007\.706579", "inf", "photos.txt"),
                ("a photo twice", r"S01_002", "S01_001", "twice"),
        ("a photo of the parent folder", r"S01_002", "../S01_002", "folder"),
        ("a photo of the root", r"S01_002\.png", "/etc/passwd", "photos.txt"),
        ("a very long name", r"S01_002", "a" * 300, "photos.txt"),
    ]
    swaps = [  # what a whole survey with other columns looks like
        ("angles in degrees", r"(\d\.\d{6}) (-?\d\.\d{12}) (-?\d\.\d{12}) (-?\d\.\d{12})",
         r"\1 3.5 -2.25 92.5", "degrees"),
        ("east and north swapped", r"(5000\d\d\.\d+) (54000\d\d\.\d+)", r"\2 \1", "DSM"),
        ("geographic positions", r"5000\d\d\.\d+ 54000\d\d\.\d+", "15.0001 48.7501", "EPSG:4326"),
        ("cameras below the surface", r"14\d\.\d{6}", "-50", "below the surface"),
        ("photos 900 km away", r"5000(\d\d)\.", r"14000\1.", "km"),
        ("positions of 1e308", r"5000\d\d\.\d+", "1e308", "DSM"),
        ("photos beside the surface", r"5000(\d\d)\.", r"5006\1.", "DSM"),
        ("photos that are not there", r"^S0", "T0", "photo"),
        ("a folder that is not there", r"^photos$", "nowhere", "photo"),
    ]
    rows = []
    for name, pattern, to, text in camera:
        rows.append(Row("run a camera list with " + name, run(cameras="cameras.txt"), text,
                        make=files(cameras_txt=changed("cameras.txt", pattern, to))))
    for many, group in ((False, photo), (True, swaps)):
        for name, pattern, to, text in group:
            def make(context, pattern=pattern, to=to, many=many):
                context.copy_town()
                context.write("survey/photos.txt", changed("photos.txt", pattern, to,
                                                           0 if many else 1)(context))
            rows.append(Row("run a photo list with " + name, run(
                dsm="survey/dsm.tif", cameras="survey/cameras.txt", photos="survey/photos.txt"),
                text, make=make, warns=True))
    rows.append(Row("run many faults in one list", run(cameras="cameras.txt"), "cameras.txt",
                    make=files(cameras_txt="1\n3\na\n1 2\nb\nx y\nc\n")))
    rows.append(Row("info many faults in one list",
                    "info --cameras cameras.txt --photos {town}/photos.txt", "cameras.txt",
                    make=files(cameras_txt="1\n3\na\n1 2\nb\nx y\nc\n")))
    return rows


def pictures():
    """Photos that cannot be used; a survey of nothing else is refused."""
    def survey(content):
        def make(context):
            context.copy_town()
            for photo in os.listdir(context.path("survey/photos")):
                context.write("survey/photos/" + photo,
                              content(context) if callable(content) else content)
        return make

    def replaced(how):
        def make(context):
            context.copy_town()
            for photo in os.listdir(context.path("survey/photos")):
                os.remove(context.path("survey/photos/" + photo))
                how(context.path("survey/photos/" + photo))
        return make
    made = {
        "cut short": survey(lambda c: c.read("photos/S01_001.png")[:3000]),
        "of a header only": survey(lambda c: c.read("photos/S01_001.png")[:33]),
        "empty": survey(b""),
        "of noise": survey(bytes(range(256)) * 30),
        "of another size": survey(png(100, 80)),
        "of a huge size": survey(png(60000, 60000)),
        "of a side beyond JPEG's": survey(png(70000, 2)),
        "of tiles not there": survey(tiff(1000000, 1000000, kind="B", bands=3, sparse=True)),
        "of complex numbers": survey(tiff(172, 130, kind="F", bands=3)),
        "that are JPEG headers": survey(b"\xff\xd8\xff\xe0\0\x10JFIF\0\1\1\0\0\1\0\1\0\0"),
        "that are virtual": survey(vrt("/etc/hostname", 172, 130)),
        "that are fetched": survey(vrt("/vsicurl/http://127.0.0.1:9/a", 172, 130)),
        "that are web maps": survey(b"<WMS_Capabilities>http://127.0.0.1:9/</WMS_Capabilities>"),
        "that are HTML": survey("<html><script>alert(1)</script></html>"),
        "that are folders": replaced(os.mkdir),
        "that are pipes": replaced(os.mkfifo),
        "that are links to /dev/zero": replaced(lambda p: os.symlink("/dev/zero", p)),
        "that are links to themselves": replaced(lambda p: os.symlink(p, p)),
    }
    words = run("survey/dsm.tif", "survey/cameras.txt", "survey/photos.txt")
    return [Row("run photos " + name, words, "photo", make=make, warns=True)
            for name, make in made.items()]


def names():
    """Names that are odd, in arguments and in lists: still one line."""
    odd = {"two lines": "a\nb.tif", "quotes": "a\"b'c.tif", "HTML": "<script>alert(1)<_script>.tif",
           "no text": b"a\xff\xfe.tif", "control codes": "a\x1b[31mb.tif", "a per cent sign": "%s%n.tif",
           "255 letters": "n" * 251 + ".tif", "5,000 letters": "n" * 5000, "a leading dash": "./-x.tif",
           "blanks": " ", "a dollar": "$(touch here).tif", "traditional characters": "測量.tif"}
    rows = []
    for kind, name in odd.items():
        rows.append(Row(f"info a surface named with {kind}", ["info", "--dsm", name], ""))
        rows.append(Row(f"import a project named with {kind}",
                        ["import", "--project", name, "--out", "out"], ""))

    def listed(name):
        def make(context):
            context.copy_town()
            text = context.read("photos.txt").replace(b"S01_001.png", name)
            text = text.replace(b"S01_002.png", name + b"2").replace(b"S02_001.png", name + b"3")
            context.write("survey/photos.txt", text)
        return make
    for kind, name in {"HTML": b"<b>&amp;.png", "no text": b"\xff\xfe\xfd.png", "quotes": b"\"'.png",
                       "control codes": b"a\x1b[2Jb.png", "a carriage return": b"a\rb.png"}.items():
        rows.append(Row(f"run photos named with {kind}", run(
            "survey/dsm.tif", "survey/cameras.txt", "survey/photos.txt"), "photo", make=listed(name),
            warns=True))
    return rows


def outputs():
    """Places that cannot be written to, are files, or are somebody else's."""
    file = files(taken_txt="not yours\n")

    def held(name):
        def make(context):
            os.makedirs(context.path(name))
            context.hold(name + "/.tqtortho.lock")
        return make

    def held_job(context):
        context.copy_job()
        context.hold("job/work/.tqtortho.lock")
    trace = ("trace --dsm {town}/dsm.tif --position 500010,5400010,200 --rect "
             "500005,5400005,500020,5400020 --gsd 0.25 --method full --out ")
    rows = [
        Row("run into a file", run(more="--out taken.txt"), "taken.txt", make=file),
        Row("run below a file", run(more="--out taken.txt/out"), "taken.txt", make=file),
        Row("run into nowhere", run(more="--out /proc/nowhere"), "/proc/nowhere"),
        Row("run into an empty name", [*run()[:-2], "--out", ""], "--out"),
        Row("run with work in a file", run(more="--work taken.txt"), "taken.txt", make=file),
        Row("run with work in nowhere", run(more="--work /proc/nowhere"), "/proc/nowhere"),
        Row("run into a folder at work", run(), "another job is at work", make=held("out")),
        Row("run with work in a folder at work", run(more="--work busy"), "another job is at work",
            make=held("busy")),
        Row("import into a file", "import --project {town} --out taken.txt", "taken.txt", make=file),
        Row("import into nowhere", "import --project {town} --out /proc/nowhere", "/proc/nowhere"),
        Row("import over somebody's list", "import --project {town} --out theirs",
            "no list of an import", make=files(theirs__cameras_txt="# theirs\n")),
        Row("import over itself", "import --project survey --out survey", "survey",
            make=lambda c: c.copy_town()),
        Row("mosaic into a file", "mosaic --quiet --work job/work --out taken.txt", "taken.txt", 1,
            make=lambda c: (c.copy_job(), file(c)), writes="job"),
        Row("mosaic of work in use", "mosaic --quiet --work job/work --out out",
            "another job is at work", make=held_job),
        Row("border into nowhere", "border --quiet --dsm {town}/dsm.tif --out /proc/nowhere/b.tif",
            "/proc/nowhere", 1),
        Row("border below a file", "border --quiet --dsm {town}/dsm.tif --out taken.txt/b.tif",
            "taken.txt", 1, make=file),
        Row("border into a folder", "border --quiet --dsm {town}/dsm.tif --out folder", "folder", 1,
            make=lambda c: os.mkdir(c.path("folder"))),
        Row("border over its surface", "border --quiet --dsm dsm.tif --out dsm.tif", "dsm.tif",
            make=files(dsm_tif=tiff())),
        Row("trace into nowhere", trace + "/proc/nowhere/m.tif", "/proc/nowhere", 1),
        Row("trace over its surface", trace.replace("{town}/dsm.tif", "dsm.tif") + "dsm.tif", "dsm.tif",
            make=files(dsm_tif=tiff())),
        Row("self-test into nowhere", "self-test /proc/nowhere/a.tif /proc/nowhere/b.tif",
            "/proc/nowhere", 1),
        Row("sample into a file", "sample --quiet --size 30 --out taken.txt", "taken.txt", 1,
            make=file),
        Row("sample into nowhere", "sample --quiet --size 30 --out /proc/nowhere", "/proc/nowhere", 1),
    ]
    for row in rows:
        row.warns = row.name.startswith(("run", "import"))
    return rows


def areas():
    """Polygons that are none, or lie elsewhere."""
    def polygon(ring, crs="EPSG:32633"):
        return json.dumps({"type": "FeatureCollection",
                           "crs": {"type": "name", "properties": {"name": crs}},
                           "features": [{"type": "Feature", "properties": {}, "geometry": {
                               "type": "Polygon", "coordinates": [ring]}}]})
    square = [[500000, 5400000], [500020, 5400000], [500020, 5400020], [500000, 5400000]]
    far = [[x + 90000, y] for x, y in square]
    made = {
        "cut short": (polygon(square)[:80], "area.geojson"),
        "of a point": ('{"type":"Point","coordinates":[500000,5400000]}', "area.geojson"),
        "of no feature": ('{"type":"FeatureCollection","features":[]}', "area.geojson"),
        "of an empty ring": (polygon([]), "area.geojson"),
        "of two corners": (polygon(square[:2]), "area.geojson"),
        "of NaN": (polygon(square).replace("500020", "NaN"), "area.geojson"),
        "of 1e999": (polygon(square).replace("500020", "1e999"), "area.geojson"),
        "on an unknown map": (polygon(square, "EPSG:999999"), "area.geojson"),
        "elsewhere": (polygon(far), "area"),
        "nested 100,000 deep": ("[" * 100000, "area.geojson"),
        "of an endless query": ("<OGRVRTDataSource><OGRVRTLayer name=\"a\"><SrcDataSource>a.db"
                                "</SrcDataSource><SrcSQL>WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL "
                                "SELECT x+1 FROM c) SELECT x FROM c</SrcSQL></OGRVRTLayer>"
                                "</OGRVRTDataSource>", "area.geojson"),
        "of an address": ('{"type":"FeatureCollection","next":"http://127.0.0.1:9/"}', "area.geojson"),
    }
    rows = [Row("run an area " + name, run(more="--area area.geojson"), text,
                status=1 if name == "elsewhere" else 2, make=files(area_geojson=content), warns=True)
            for name, (content, text) in made.items()]
    for name in ("/vsicurl/http://127.0.0.1:9/a.geojson", "http://127.0.0.1:9/a.geojson",
                 "WFS:http://127.0.0.1:9/", "{\"type\":\"Polygon\"}"):
        rows.append(Row("run an area of the name " + name, run(more=["--area", name]), name))
    return rows


def traces():
    """Rectangles and cells that no raster holds, in all three methods."""
    rows = []
    good = {"--position": "500010,5400010,200", "--rect": "500005,5400005,500020,5400020",
            "--gsd": "0.25"}
    bad = [
        ("a rectangle of 1e308", "--rect", "-1e308,-1e308,1e308,1e308", 1),
        ("an endless rectangle", "--rect", "-inf,-inf,inf,inf", 2),
        ("a rectangle of NaN", "--rect", "nan,nan,nan,nan", 2),
        ("a cell of 1e-300", "--gsd", "1e-300", 1),
        ("a least cell", "--gsd", "5e-324", 1),
        ("a cell of NaN", "--gsd", "nan", 2),
        ("a rectangle elsewhere", "--rect", "0,0,10,10", 1),
    ]
    for method in ("pyramid", "full", "masked"):
        for name, option, value, status in bad:
            options = {**good, option: value, "--method": method, "--dsm": "{town}/dsm.tif",
                       "--out": "out/m.tif"}
            if method == "masked":
                options["--mask"] = "mask.tif"
            rows.append(Row(f"trace {method} {name}",
                            ["trace", *(f"{k}={v}" for k, v in options.items())],
                            "out/m.tif" if status == 1 else option, status,
                            make=files(mask_tif=tiff(61, 61, kind="B", value=1))))
    for name, option, value in (("upside down", "--rect", "5,5,1,1"), ("of two values", "--rect", "1,2"),
                                ("of text", "--rect", "a,b,c,d"), ("of two values", "--position", "1,2"),
                                ("of NaN", "--position", "nan,1,2"), ("of 0", "--gsd", "0"),
                                ("south-up", "--gsd", "1,1"), ("of three values", "--gsd", "1,-1,1")):
        options = {**good, option: value, "--dsm": "{town}/dsm.tif", "--out": "out/m.tif"}
        rows.append(Row(f"trace {option} {name}", ["trace", *(f"{k}={v}" for k, v in options.items())],
                        option))
    return rows


def leftovers():
    """What a job left, damaged or of another job."""
    param = "work/ortho_data/orParam.txt"

    def damaged(change):
        def make(context):
            context.copy_job()
            text = context.read(param, context.path("job")).decode()
            context.write("job/" + param, change(text, context))
        return make
    changes = {
        "empty": (lambda t, c: "", "orParam.txt"),
        "with a scale of 0": (lambda t, c: t.replace("6.000000\n", "0.000000\n", 1), "orParam.txt"),
        "without blocks": (lambda t, c: t.split("block1")[0], "orParam.txt"),
        "with cells of nothing": (lambda t, c: t.replace("0.190000\t", "0.000000\t", 1), "run the job"),
        "with cells of NaN": (lambda t, c: t.replace("0.190000\t", "nan\t", 1), "run the job"),
        "with cells of 1e-300": (lambda t, c: t.replace("0.190000\t", "1e-300\t", 1), "run the job"),
        "with a footprint of 1e308": (lambda t, c: re.sub(r"5400022\.665190", "1e308", t), "photos"),
        "with endless footprints": (lambda t, c: re.sub(r"\t54000\d\d\.\d+\t0\n", "\tinf\t0\n", t),
                                    "photos"),
        "with a name that leads out": (lambda t, c: t.replace("S01_001.png", "../S01_001.png"),
                                       "folder"),
        "of noise": (lambda t, c: "\x01\x02" * 5000, "orParam.txt"),
        "of lines without end": (lambda t, c: "9" * 200000, "orParam.txt"),
    }
    rows = []
    for name, (change, text) in changes.items():
        # What parses, and is no mosaic, is found by the job.
        status = 1 if text in ("run the job", "photos") else 2
        rows.append(Row("mosaic a parameter file " + name, "mosaic --quiet --work job/work --out out",
                        text, status, make=damaged(change), warns=True))
    for command in ("block", "thumbnails"):
        for name in ("empty", "with a scale of 0", "without blocks", "of noise", "of lines without end"):
            rows.append(Row(f"{command} a parameter file {name}",
                            f"{command} --param job/{param} --number 1 --tmp job/work/tmp",
                            "no parameter file", make=damaged(changes[name][0])))
        rows.append(Row(f"{command} a number beyond the last",
                        f"{command} --param {{job}}/{param} --number 99", "block 99", 1))

    def without(*gone):
        def make(context):
            context.copy_job()
            for name in gone:
                path = context.path("job/" + name)
                shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)
        return make

    def overwritten(names, content):
        def make(context):
            context.copy_job()
            for name in names:
                context.write("job/" + name, content)
        return make
    orthos = [f"{folder}/S0{i}_0.png" for i in ("1_001", "1_002", "2_001")
              for folder in ("ortho", "work/state/originals")]
    mosaic = "mosaic --quiet --work job/work --out out"
    rows += [
        Row("mosaic without its surface", mosaic, "dsm.tif", make=without("work/dsm.tif"), status=1),
        Row("mosaic of a foreign surface", mosaic, "dsm.tif", status=1, warns=True,
            make=overwritten(["work/dsm.tif"], tiff(east=9e5))),
        Row("mosaic without orthos", mosaic, "ortho", status=1, make=without("ortho"), warns=True),
        Row("mosaic of empty orthos", mosaic, "ortho", status=1, make=overwritten(orthos, b""),
            warns=True),
        Row("mosaic of foreign orthos", mosaic, "ortho", status=1,
            make=overwritten(orthos, tiff(50, 50, kind="B", bands=3)), warns=True),
        Row("mosaic of a million photos' list", mosaic, "photo", make=overwritten(
            ["work/photos.txt"], "1\n99999999\nphotos\n"), warns=True, status=1),
        Row("mosaic of the town", "mosaic --quiet --work {town} --out out", "work directory"),
        Row("score orthos of another job", "score --truth {town} --orthos folder", "folder",
            make=lambda c: os.mkdir(c.path("folder"))),
        Row("score a town without truth", "score --truth {job} --orthos {job}/ortho", "truth"),
        Row("score a damaged mosaic", "score --truth {town} --orthos {job}/ortho --mosaic m.tif",
            "m.tif", make=files(m_tif=b"II*\0\x08\0\0\0")),
        Row("score empty orthos", "score --truth {town} --orthos job/ortho", "ortho",
            make=overwritten(orthos, b"")),
    ]
    return rows


def projects():
    """Projects of other tools, each with one fault."""
    camera = {"cam": {"projection_type": "brown", "width": 172, "height": 130, "focal_x": 1.2,
                      "focal_y": 1.2, "c_x": 0, "c_y": 0, "k1": 0, "k2": 0, "k3": 0, "p1": 0, "p2": 0}}
    shot = {"S01_001.png": {"rotation": [3.1, 0, 0], "translation": [0, 0, 100], "camera": "cam"}}

    def sfm(cameras=None, shots=None, reference=True, **more):
        r = {"cameras": camera if cameras is None else cameras,
             "shots": shot if shots is None else shots, **more}
        if reference:
            r["reference_lla"] = {"latitude": 48.75, "longitude": 15.0, "altitude": 0}
        return json.dumps([r])

    def nan(text):
        return text.replace("3.1", "NaN")
    reconstructions = {
        "empty": "", "cut short": sfm()[:60], "of an empty list": "[]", "of a number": "7",
        "of no shots": sfm(shots={}), "of no cameras": sfm(cameras={}),
        "of a fisheye": sfm(cameras={"cam": {**camera["cam"], "projection_type": "fisheye"}}),
        "of NaN": nan(sfm()), "nested 100,000 deep": "[" * 100000,
        "of shots that are a list": sfm(shots=[1, 2]), "of a null camera": sfm(cameras={"cam": None}),
        "of shots of no camera": sfm(shots={"a.png": {**shot["S01_001.png"], "camera": "x"}}),
        "of a rotation of two": sfm(shots={"a.png": {**shot["S01_001.png"], "rotation": [1, 2]}}),
        "with a name that leads out": sfm(shots={"../../etc/passwd": shot["S01_001.png"]}),
        "without photos": sfm(shots={"none.png": shot["S01_001.png"]}),
        "at the pole": sfm().replace("48.75", "91"), "without a reference": sfm(reference=False),
        "with a huge camera": sfm(cameras={"cam": {**camera["cam"], "width": 1e300}}),
    }
    rows = []
    for name, text in reconstructions.items():
        rows.append(Row("run an OpenSfM project " + name, run_project("opensfm", "p"), "p",
                        make=files(p__reconstruction_json=text)))
        rows.append(Row("run an OpenDroneMap project " + name,
                        "run --quiet --odm p --out out", "p",
                        make=files(p__opensfm__reconstruction_json=text, p__odm_dem__dsm_tif=tiff())))
    rows += [
        Row("run an OpenDroneMap project without a surface", "run --quiet --odm p --out out", "dsm.tif",
            make=files(p__opensfm__reconstruction_json=sfm())),
        Row("run an OpenDroneMap project with noise for coordinates", "run --quiet --odm p --out out",
            "p", make=files(p__opensfm__reconstruction_json=sfm(), p__odm_dem__dsm_tif=tiff(),
                            p__odm_georeferencing__coords_txt=b"\xff" * 999)),
    ]
    xml = "<document><chunk><sensors>%s</sensors><cameras>%s</cameras></chunk></document>"
    metashape = {
        "empty": "", "cut short": "<document><chunk>", "of no chunk": "<document/>",
        "of no cameras": xml % ("", ""), "of an entity bomb": "<!DOCTYPE a [<!ENTITY b \"c\">"
        "<!ENTITY d \"&b;&b;&b;\">]><document>&d;</document>",
        "of a foreign entity": "<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/passwd\">]>"
        "<document>&b;</document>",
        "of a spherical sensor": xml % ("<sensor id=\"0\" type=\"spherical\"/>",
                                        "<camera id=\"0\" sensor_id=\"0\" label=\"a\"/>"),
        "of cameras of no sensor": xml % ("", "<camera id=\"0\" sensor_id=\"5\" label=\"a\"><transform>"
                                          "1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1</transform></camera>"),
        "nested 100,000 deep": "<a>" * 100000,
    }
    for name, text in metashape.items():
        rows.append(Row("run a Metashape file " + name, run_project("metashape", "c.xml"), "c.xml",
                        make=files(c_xml=text)))
    tables = {
        "empty": "", "of a header only": "name,x,y,z,omega,phi,kappa\n",
        "without names": "x,y,z,omega,phi,kappa\n1,2,3,4,5,6\n",
        "of short rows": "name,x,y,z,omega,phi,kappa\na.png,1,2\n",
        "of text": "name,x,y,z,omega,phi,kappa\na.png,a,b,c,d,e,f\n",
        "of NaN": "name,x,y,z,omega,phi,kappa\na.png,nan,2,3,4,5,6\n",
        "of 1e308": "name,x,y,z,omega,phi,kappa\na.png,1e308,1e308,1e308,4,5,6\n",
        "of a photo twice": "name,x,y,z,omega,phi,kappa\na.png,1,2,3,4,5,6\na.png,1,2,3,4,5,6\n",
        "of one line without end": "name," * 50000,
        "of an open quote": "name,x,y,z,omega,phi,kappa\n\"a.png,1,2,3,4,5,6\n",
        "of two heights": "name,x,y,z,z,omega,phi,kappa\na.png,1,2,3,3,4,5,6\n",
    }
    for name, text in tables.items():
        rows.append(Row("run a table of poses " + name, run_project("poses", "t.csv"), "t.csv",
                        make=files(t_csv=text, camera_yaml="type: brown\nim_size: [172, 130]\n"
                                   "focal_len: 1.2\n")))
    good = "name,x,y,z,omega,phi,kappa\nS01_001.png,500007,5400008,141,1,1,1\n"
    calibrations = {
        "empty": "", "cut short": "{\"type\": ", "of aliases": "a: &a [x]\nb: *a\n", "of a list": "- 1\n",
        "of no size": "type: brown\nfocal_len: 1.2\n", "of a fisheye": "type: fisheye\nim_size: [172, 130]\n"
        "focal_len: 1\n", "of NaN": "type: brown\nim_size: [172, 130]\nfocal_len: .nan\n",
        "of a size of 1e300": "type: brown\nim_size: [1e300, 130]\nfocal_len: 1\n",
        "nested 100,000 deep": "[" * 100000, "of no text": b"\xff\xfe\0\0type",
    }
    for name, text in calibrations.items():
        rows.append(Row("run a calibration " + name,
                        run_project("poses", "t.csv") + ["--camera-file", "camera.yaml", "--images",
                                                         "{town}/photos"],
                        "", make=files(t_csv=good, camera_yaml=text)))
    colmap_camera, colmap_image = "1 PINHOLE 172 130 207 207 86 65\n", "1 1 0 0 0 0 0 100 1 S01_001.png\n\n"
    models = {
        "of empty files": ("", ""), "of cameras only": (colmap_camera, ""),
        "of images of no camera": (colmap_camera, colmap_image.replace("100 1", "100 7")),
        "of an unknown lens": ("1 BALL 172 130 1 1 1 1\n", colmap_image),
        "of three numbers": ("1 PINHOLE 172\n", colmap_image),
        "of a turn of nothing": (colmap_camera, "1 0 0 0 0 0 0 100 1 a.png\n\n"),
        "of NaN": (colmap_camera, "1 nan 0 0 0 0 0 100 1 a.png\n\n"),
        "of photos not there": (colmap_camera, colmap_image.replace("S01", "T01")),
        "of a name that leads out": (colmap_camera, colmap_image.replace("S01", "../S01")),
    }
    for name, (cameras, images) in models.items():
        rows.append(Row("run a COLMAP model " + name, run_project("colmap", "m") + ["--offset=0,0"], "m",
                        make=files(m__cameras_txt=cameras, m__images_txt=images)))
    rows += [
        Row("run a COLMAP model of binary noise", run_project("colmap", "m"), "m",
            make=files(m__cameras_bin=b"\xff" * 64, m__images_bin=b"\xff" * 64)),
        Row("run a COLMAP model without a system", "run --quiet --dsm {town}/dsm.tif --colmap m --out out",
            "--crs", make=files(m__cameras_txt=colmap_camera, m__images_txt=colmap_image)),
        Row("run a COLMAP model of an unknown system",
            "run --quiet --dsm {town}/dsm.tif --colmap m --crs EPSG:999999 --offset=0,0 --images "
            "{town}/photos --out out", "EPSG:999999",
            make=files(m__cameras_txt=colmap_camera, m__images_txt=colmap_image)),
        Row("run lists of an unknown system", run(more="--crs nonsense"), "nonsense"),
        Row("run lists of a system from an address", run(more="--crs http://127.0.0.1:9/crs"),
            "http://127.0.0.1:9/crs"),
        Row("import a folder that holds two projects", "import --project m --out out", "holds",
            make=files(m__cameras_txt=colmap_camera, m__images_txt=colmap_image,
                       m__reconstruction_json=sfm())),
        Row("import a folder of nothing", "import --project m --out out", "no project that is known",
            make=lambda c: os.mkdir(c.path("m"))),
        Row("import with photos in a file", "import --project {town} --images taken.txt --out out",
            "--images", make=files(taken_txt="")),
    ]
    pix4d = {
        "of empty files": ("", ""), "of noise": ("\x01\x02\x03", "\x04"),
        "of poses only": ("imageName X Y Z Omega Phi Kappa\na.png 1 2 3 4 5 6\n", ""),
        "of poses of NaN": ("imageName X Y Z Omega Phi Kappa\na.png nan 2 3 4 5 6\n", ""),
    }
    for name, (external, calibrated) in pix4d.items():
        rows.append(Row("run a Pix4D folder " + name, run_project("pix4d", "p"), "p",
                        make=files(p__x_calibrated_external_camera_parameters_txt=external,
                                   p__x_calibrated_camera_parameters_txt=calibrated)))
    return rows


def run_project(kind, place):
    return ["run", "--quiet", "--dsm", "{town}/dsm.tif", f"--{kind}", place, "--crs", "EPSG:32633",
            "--out", "out"]


def rows():
    return [*usage(), *places(), *surfaces(), *lists(), *pictures(), *names(), *outputs(), *areas(),
            *traces(), *leftovers(), *projects()]
