#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs whole jobs and compares the memory and disk that they took with what was foretold.

Usage: estimate_test.py COMMAND [shared-data-directory]
       estimate_test.py COMMAND --table ARGUMENTS...     one row for a run with these arguments

Memory is the peak resident set of the job's own process, disk the bytes of all files that it left,
a file of several names once. Both must be within 30 % of the estimate. Time depends on what else
the machine does: it is shown, and only required not to be absurd.
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

TOLERANCE = 0.30
failures = []


def check(condition, text):
    print(("ok     " if condition else "FAILED ") + text)
    if not condition:
        failures.append(text)


def disk_of(directory):
    files = {}
    for path in pathlib.Path(directory).rglob("*"):
        if path.is_file() and not path.is_symlink():
            status = path.stat()
            files[status.st_ino] = status.st_size
    return sum(files.values())


def run_job(command, arguments, out):
    """The foretold and the taken figures of a job."""
    started = time.monotonic()
    with tempfile.TemporaryFile("w+") as words:
        child = subprocess.Popen([command, "run", "--json", "--out", str(out), *arguments],
                                 stdout=words, stderr=subprocess.PIPE, text=True)
        said = child.stderr.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            sys.exit(f"run {arguments}: status {child.returncode}: {said}")
        words.seek(0)
        result = json.loads(words.read().splitlines()[-1])
    taken = {"memoryBytes": usage.ru_maxrss * 1024, "diskBytes": disk_of(out),
             "seconds": time.monotonic() - started}
    return result["estimate"], taken


def show(name, foretold, taken):
    print(f"{name}: memory {foretold['memoryBytes'] / 1e6:.0f} MB foretold, "
          f"{taken['memoryBytes'] / 1e6:.0f} MB taken; "
          f"disk {foretold['diskBytes'] / 1e6:.1f} MB foretold, {taken['diskBytes'] / 1e6:.1f} MB "
          f"taken; {foretold['seconds']:.0f} s foretold, {taken['seconds']:.0f} s taken")


def town(command, directory, *options):
    subprocess.run([command, "sample", "--quiet", "--out", directory, *options], check=True,
                   stdout=subprocess.DEVNULL)
    return ["--dsm", f"{directory}/dsm.tif", "--cameras", f"{directory}/cameras.txt", "--photos",
            f"{directory}/photos.txt", "--threads", "2"]


def main():
    command = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as scratch:
        if "--table" in sys.argv:
            arguments = sys.argv[sys.argv.index("--table") + 1:]
            show(" ".join(arguments), *run_job(command, arguments, f"{scratch}/out"))
            return
        default = town(command, f"{scratch}/town")
        jobs = {
            "town of 100 m": default,
            "town of 60 m, cells of a quarter of a pixel": town(
                command, f"{scratch}/small", "--size", "60", "--photos", "4", "--photo-gsd",
                "0.2") + ["--gsd", "0.05"],
            "two photos of 4 megapixels": town(command, f"{scratch}/large", "--size", "100",
                                               "--photos", "2", "--photo-gsd", "0.05"),
        }
        # A quarter of a photo's pixel is refused only when it costs more than two minutes.
        survey = os.path.join(sys.argv[2], "odm-field") if len(sys.argv) > 2 else ""
        if os.path.isdir(survey):
            jobs["real survey"] = ["--odm", survey, "--threads", "2"]
        else:
            print("skipped: no real survey at hand")
        for number, (name, arguments) in enumerate(jobs.items()):
            foretold, taken = run_job(command, arguments, f"{scratch}/out{number}")
            show(name, foretold, taken)
            for key in ("memoryBytes", "diskBytes"):
                off = foretold[key] / taken[key] - 1
                check(abs(off) <= TOLERANCE, f"{name}: {key} foretold {100 * off:+.0f} %")
            check(foretold["seconds"] < 10 * taken["seconds"] + 5, f"{name}: time not absurd")

        started = time.monotonic()
        refused = subprocess.run([command, "run", *default, "--quiet", "--gsd", "0.002", "--out",
                                  f"{scratch}/refused"], capture_output=True, text=True)
        check(refused.returncode == 2 and refused.stderr.count("tqtortho: ") == 1 and
              "--allow-large-job" in refused.stderr and time.monotonic() - started < 20,
              f"cells of 2 mm are refused at once: {refused.stderr.strip()}")
        check(not os.path.exists(f"{scratch}/refused"), "and nothing was made")
    sys.exit(1 if failures else 0)


main()
