#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every subcommand ends within two seconds of Ctrl-C or a termination, at any stage: status 130, one
line, no unfinished file, and the same command goes on afterwards.

usage: stop_test.py TQTORTHO
TQTORTHO_STOP_SECONDS allows more than two seconds on a loaded machine.
"""
import filecmp
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "bad_inputs"))
from rasters import tiff  # noqa: E402

LIMIT = float(os.environ.get("TQTORTHO_STOP_SECONDS", "2"))
TQTORTHO = os.path.abspath(sys.argv[1])
passed = failed = 0
slowest = (0.0, "none")


def check(good, text):
    global passed, failed
    passed, failed = passed + bool(good), failed + (not good)
    if not good:
        print("FAILED:", text)


def write_sparse(path, cols, rows):
    """A GeoTIFF of heights without a single tile: kilobytes that claim any number of cells."""
    pathlib.Path(path).write_bytes(tiff(cols, rows, cell=0.5, north=5400000.0, sparse=True))


def leftovers(root="."):
    return [str(p) for p in pathlib.Path(root).rglob("*.tmp*")]


def wait_until_watched(job):
    """Waits until the program has taken the stop signals: while it is being loaded they end it by
    themselves, and on a busy machine loading takes long."""
    for _ in range(500):
        try:
            status = pathlib.Path(f"/proc/{job.pid}/status").read_text()
        except OSError:
            return
        blocked = next((l for l in status.splitlines() if l.startswith("SigBlk:")), "SigBlk: 0")
        if int(blocked.split()[1], 16) >> (signal.SIGTERM - 1) & 1 or job.poll() is not None:
            return
        time.sleep(0.01)


def stop(name, arguments, when, how=signal.SIGTERM, env=None, twice=False, least=0.0,
         later=0.0):
    """Runs a job and stops it: `when` is a time in seconds or a stage that the job says it begins, and
    `later` seconds behind that.
    Returns True when the signal found it at work."""
    global slowest
    said = open("said", "w+")
    job = subprocess.Popen([TQTORTHO, *arguments], stdout=subprocess.PIPE, stderr=said,
                           env={**os.environ, **(env or {})})
    if isinstance(when, str):
        for line in job.stdout:
            event = json.loads(line)
            if event.get("event") == "begin" and event["stage"] == when:
                break
        time.sleep(later)
    else:
        wait_until_watched(job)
        try:
            job.wait(when)
        except subprocess.TimeoutExpired:
            pass
    if job.poll() is not None:
        return False
    start = time.monotonic()
    job.send_signal(how)
    if twice:
        time.sleep(0.1)
        job.send_signal(how)
    try:
        job.stdout.read()
        job.wait(60)
    except subprocess.TimeoutExpired:
        job.kill()
        job.wait()
    took = time.monotonic() - start
    slowest = max(slowest, (took, f"{name} at {when}"))
    said.seek(0)
    lines = [line for line in said.read().splitlines() if line.startswith("tqtortho:")]
    where = f"{name} stopped at {when}: "
    check(least <= took <= LIMIT, where + f"ended after {took:.2f} s")
    check(job.returncode == 130, where + f"status {job.returncode}")
    check(len(lines) == 1 and "interrupted" in lines[0], where + f"said {lines}")
    return True


def run(*arguments):
    done = subprocess.run([TQTORTHO, *arguments], capture_output=True, text=True)
    return done.returncode, done.stdout, done.stderr


def stages_of(stdout):
    events = [json.loads(line) for line in stdout.splitlines()]
    return list(dict.fromkeys(e["stage"] for e in events if e.get("event") == "begin"))


def same(one, two):
    """Differing files of two jobs; report and GeoPackage tell times."""
    skip = {"work", ".tqtortho.lock", "report.html", "seams.gpkg"}
    found = []
    for base, folders, files in os.walk(one):
        folders[:] = [f for f in folders if f not in skip]
        for file in files:
            other = os.path.join(two, os.path.relpath(os.path.join(base, file), one))
            if file in skip:
                continue
            if not os.path.exists(other) or not filecmp.cmp(os.path.join(base, file), other, False):
                found.append(other)
    return found


def main():
    check(run("sample", "--out", "town", "--size", "30", "--photos", "3", "--photo-gsd", "0.1",
              "--quiet")[0] == 0, "sample town")
    lists = ["--dsm", "town/dsm.tif", "--cameras", "town/cameras.txt", "--photos", "town/photos.txt"]
    job = ["run", *lists, "--gsd", "0.03", "--threads", "2", "--json", "--format", "png-tiles"]

    # One job, stopped where each stage begins, going on each time: in the end the same bytes.
    status, out, _ = run(*job, "--out", "whole")
    check(status == 0, "the undisturbed job")
    stages = stages_of(out)
    check({"prepare DSM", "border mask", "extent", "rectify", "views", "mosaic", "write",
           "seams", "tiles", "report"} <= set(stages), f"stages {stages}")
    missed = [stage for i, stage in enumerate(stages)
              if not stop("run", [*job, "--out", "stopped"], stage,
                          signal.SIGINT if i % 2 else signal.SIGTERM)]
    # Stages of some milliseconds are over before the signal comes, and take the next with them.
    check(len(missed) <= len(stages) // 3, f"not stopped: {missed}")
    status, _, text = run(*job, "--out", "stopped")
    check(status == 0, "the job goes on: " + text)
    check(not same("whole", "stopped"), f"differ: {same('whole', 'stopped')}")
    check(not leftovers(), f"left: {leftovers()}")

    # The mosaic by stages; the next one has the bytes of the job's.
    again = ["mosaic", "--work", "whole/work", "--out", "again", "--json", "--threads", "2"]
    for stage in ("views", "mosaic", "write", "seams"):
        stop("mosaic", again, stage)
    status, _, text = run(*again)
    check(status == 0, "the mosaic goes on: " + text)
    check(filecmp.cmp("whole/mosaic.tif", "again/mosaic.tif", False), "the mosaic's bytes")

    # Photos of many million cells, in a job and in a block of it: given up, not finished.
    fine = ["run", *lists, "--gsd", "0.005", "--allow-large-job", "--threads", "1", "--out", "fine", "--quiet"]
    for pause in (1.2, 2.0, 3.5):
        check(stop("run, fine", fine, pause), "a fine job lasts")
    block = ["block", "--param", "fine/work/ortho_data/orParam_plan.txt", "--number", "1", "--tmp",
             "fine/work/tmp"]
    for file in pathlib.Path("fine/ortho").glob("*"):
        file.unlink()
    for pause in (0.2, 0.8):
        check(stop("block", block, pause), "a fine block lasts")
    check(not list(pathlib.Path("fine/ortho").glob("*")), "a photo in hand leaves no file")

    # Rasters of kilobytes that claim billions of cells; lists of many photos.
    write_sparse("large.tif", 40000, 40000)
    write_sparse("largest.tif", 32000, 32000)  # near the most that rays are traced through
    write_sparse("endless.tif", 1000000, 1000000)
    with open("town/photos.txt") as file:
        head = [next(file) for _ in range(4)]
    count = 65000
    with open("many.txt", "w") as file:
        name, rest = head[3].split(" ", 1) if " " in head[3] else head[3].split("\t", 1)
        file.write(head[0] + f"{count}\n" + head[2])
        for i in range(count):
            file.write(f"p{i}_{name} {rest}")
    many = ["--cameras", "town/cameras.txt", "--photos", "many.txt"]
    table = [
        ("border", ["border", "--dsm", "large.tif", "--out", "border.tif"], (0.3, 1.5)),
        ("trace", ["trace", "--dsm", "largest.tif", "--position", "502000,5398000,900", "--rect",
                   "500000,5396000,504000,5400000", "--gsd", "0.5", "--method", "full", "--out",
                   "trace.tif"], (0.3, 0.6)),
        ("self-test", ["self-test", "st_dsm.tif", "st_mask.tif"], (0.3, 0.8)),
        ("sample", ["sample", "--out", "town2", "--size", "200", "--photos", "40", "--photo-gsd",
                    "0.03", "--quiet"], (0.3, 1.0)),
        ("info, lists", ["info", "--dsm", "town/dsm.tif", *many], (0.3, 1.0)),
        ("import, lists", ["import", *many, "--out", "lists"], (0.1,)),
        ("run, lists", ["run", "--dsm", "town/dsm.tif", *many, "--out", "x", "--quiet"], (0.5,)),
        ("score", ["score", "--truth", "town", "--orthos", "whole/ortho", "--mosaic",
                   "whole/mosaic.tif"], (0.3,)),
    ]
    for name, arguments, pauses in table:
        found = [stop(name, arguments, pause, how) for pause, how in
                 zip(pauses, (signal.SIGINT, signal.SIGTERM))]
        # A faster machine is through sooner.
        for pause in (0.1, 0.02, 0.0):
            if not any(found):
                found.append(stop(name, arguments, pause))
        check(any(found), name + " was over before its signal")
        check(not leftovers(), f"{name} left {leftovers()}")
    for name, arguments in [
            ("border", ["border", "--dsm", "endless.tif", "--out", "b.tif"]),
            ("trace", ["trace", "--dsm", "endless.tif", "--position", "1,2,3", "--rect", "0,0,1,1",
                       "--gsd", "1", "--out", "t.tif"]),
            ("info", ["info", "--dsm", "endless.tif"]),
            ("run", ["run", "--dsm", "endless.tif", *lists[2:], "--out", "x", "--quiet"])]:
        start = time.monotonic()
        status, _, text = run(*arguments)
        took = time.monotonic() - start
        check(status == 2 and took < LIMIT and text.count("\n") == 1 and
              "1000000 x 1000000" in text and "2,000,000,000" in text,
              f"{name} of 1e12 cells: status {status} after {took:.2f} s, {text}")

    # Work that does not poll is ended by force, and by a second signal at once; its file goes too.
    border = ["border", "--dsm", "large.tif", "--out", "forced.tif"]
    deaf = {"TQTORTHO_STOP_WATCHDOG": "only"}
    check(stop("watchdog", border, 0.5, env=deaf, least=1.0), "watchdog")
    check(not leftovers(), f"the watchdog left {leftovers()}")
    stop("second signal", border, 0.5, signal.SIGINT, env=deaf, twice=True)
    check(not os.path.exists("forced.tif"), "nothing under the final name")
    # And polling alone does, without the watchdog.
    orderly = {"TQTORTHO_STOP_WATCHDOG": "off"}
    check(stop("polling alone", border, 0.5, env=orderly), "border lasts")
    # A photo of 100 million cells: some seconds in one kernel.
    finest = ["run", *lists, "--gsd", "0.0025", "--allow-large-job", "--threads", "1", "--out", "finest", "--json"]
    check(stop("polling alone, photo", finest, "rectify", env=orderly, later=0.7), "a fine job lasts")


with tempfile.TemporaryDirectory() as scratch:
    os.chdir(scratch)
    main()
    os.chdir("/")
print(f"{passed} passed, {failed} failed; the slowest: {slowest[1]}, {slowest[0]:.2f} s")
sys.exit(failed != 0)
