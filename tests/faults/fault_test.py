#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Lets writes, syncs, renames and allocations of a small job fail in turn, and looks at what is left.

usage: fault_test.py TQTORTHO PRELOAD [--every N] [--kinds K,K] [--seconds S]

After each fault: the job has ended in time; status 0 only with every product whole, or with a warning
that names a secondary file; otherwise status 1 and one line that names a file or directory; nothing
half-written stands under a final name. The next run, undisturbed, gives the undisturbed bytes and leaves
no working names. --every N tries every Nth place only (1: all of them).
"""
import argparse
import filecmp
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

LIMIT = 60  # seconds for one run
SECONDARY = ("report.html", "preview.png", "orthos.vrt", "seams.gpkg")

# name: kinds of calls, error numbers, once or from there on
PLANS = {
    "write EIO": ("write", 5, "once"),
    "write EDQUOT on": ("write", 122, "on"),
    "sync EIO": ("sync", 5, "once"),
    "rename EIO": ("rename", 5, "once"),
    "open ENOSPC": ("open", 28, "once"),
    "link EIO": ("link", 5, "once"),
    "truncate, close EIO": ("truncate close", 5, "once"),
    "alloc ENOMEM": ("alloc", 12, "once"),
    "kill -9": ("write rename sync", "kill", "once"),
    "disk of N bytes": ("", 28, "bytes"),
}


class Harness:
    def __init__(self, command, preload, where):
        self.command = command
        self.preload = preload
        self.where = where
        self.town = where + "/town"
        self.run_plain([command, "sample", "--out", self.town, "--size", "30", "--photos", "3",
                        "--photo-gsd", "0.2", "--quiet"])
        self.whole = where + "/whole"
        status, said = self.job(self.whole)
        if status != 0 or len(products(self.whole)) < 10:
            sys.exit(f"the undisturbed job: status {status}: {said}")

    @staticmethod
    def run_plain(words):
        subprocess.run(words, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def job(self, out, faults=None):
        """Runs the job; gives status and standard error, status None when it did not end."""
        environment = dict(os.environ, OMP_NUM_THREADS="2")
        if faults is not None:
            # Sanitizers and the like would load first; the program itself has no other preload.
            environment.update(faults, LD_PRELOAD=self.preload, FAULT_DIR=out)
        words = [self.command, "run", "--dsm", self.town + "/dsm.tif", "--cameras",
                 self.town + "/cameras.txt", "--photos", self.town + "/photos.txt", "--out", out,
                 "--threads", "2", "--quiet"]
        try:
            done = subprocess.run(words, env=environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE, timeout=LIMIT, check=False)
        except subprocess.TimeoutExpired:
            return None, ""
        return done.returncode, done.stderr.decode(errors="replace")

    def count(self, kinds):
        """How many calls of these kinds, and bytes, an undisturbed job makes."""
        out = self.where + "/counted"
        note = self.where + "/count"
        shutil.rmtree(out, ignore_errors=True)
        status, said = self.job(out, {"FAULT_KINDS": kinds, "FAULT_COUNT": note})
        if status != 0:
            sys.exit(f"the counted job: status {status}: {said}")
        with open(note, encoding="ascii") as file:
            calls, size = file.read().split()
        return int(calls), int(size)


def products(root):
    """Names of the products below OUT, without the job's own state."""
    found = []
    for folder, folders, files in os.walk(root):
        folders[:] = [f for f in folders if not (folder == root and f == "work")]
        found += [os.path.relpath(os.path.join(folder, f), root) for f in files]
    return sorted(f for f in found if f != ".tqtortho.lock")


def same_content(name, one, other):
    if name == "report.html":  # tells times; whole when it has its end
        with open(other, "rb") as file:
            return file.read().rstrip().endswith(b"</html>")
    if name == "seams.gpkg":
        try:
            with sqlite3.connect("file:" + other + "?mode=ro", uri=True) as database:
                return database.execute("PRAGMA integrity_check").fetchone()[0] == "ok"
        except sqlite3.Error:
            return False
    return filecmp.cmp(one, other, shallow=False)


def differing(whole, out):
    """Products of `out` that are not those of `whole`, and those that are missing."""
    wanted = products(whole)
    there = [f for f in products(out) if not os.path.basename(f).startswith(".")]
    wrong = [f for f in there if f not in wanted or
             not same_content(f, whole + "/" + f, out + "/" + f)]
    return wrong, [f for f in wanted if f not in there]


def working_names(out):
    return [name for folder, _, files in os.walk(out) for name in files
            if ".tmp-" in name or name.endswith(".part") or name.startswith(".write-test")]


def faults_of(plan, number):
    kinds, error, on = plan
    if on == "bytes":
        return {"FAULT_KINDS": "none", "FAULT_BYTES": str(number)}
    return {"FAULT_KINDS": kinds, "FAULT_AT": str(number), "FAULT_ERRNO": str(error), "FAULT_ON": on}


def judge(harness, plan, number):
    """What is wrong after one fault, as lines; and whether the job ended with status 0."""
    out = harness.where + "/out"
    shutil.rmtree(out, ignore_errors=True)
    status, said = harness.job(out, faults_of(plan, number))
    faults = []
    lines = [line for line in said.splitlines() if line.strip()]
    errors = [line for line in lines if line.startswith("tqtortho: ")]
    killed = plan[1] == "kill"
    if status is None:
        return ["did not end"], False
    wrong, missing = differing(harness.whole, out)
    # The update of the orthos replaces them one by one; what is there is whole, rectified or final.
    wrong = [f for f in wrong if not (f.startswith("ortho/") and status != 0)]
    if wrong:
        faults.append("not whole: " + ", ".join(wrong))
    if status == 0:
        for name in missing:
            if name not in SECONDARY or not any("warning: " in l and name in l for l in lines):
                faults.append("status 0 without " + name)
    elif killed:
        if status != -9:
            faults.append(f"status {status} instead of the kill")
    elif plan[0] == "alloc" and status in (-6, -11):
        pass  # GDAL ends the process, or crashes, at some of its own: as good as killed
    else:
        if status not in (1, 2):
            faults.append(f"status {status}")
        if len(errors) != 1 or any(not l.startswith(("tqtortho: ", "warning: ")) for l in lines):
            faults.append("not one line: " + " | ".join(lines))
        elif not (re.search(r"[/\w]+/[\w.-]+", errors[0]) or "memory" in errors[0]):
            faults.append("names no file: " + errors[0])
    status2, said = harness.job(out)
    if status2 != 0:
        faults.append(f"the next run: status {status2}: {said.strip()}")
    wrong, missing = differing(harness.whole, out)
    if wrong or missing:
        faults.append("after the next run: " + ", ".join(wrong + missing))
    left = working_names(out)
    if left:
        faults.append("left behind: " + ", ".join(left))
    return faults, status == 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("command")
    parser.add_argument("preload")
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--places", type=int, default=0, help="of each plan, spread evenly")
    parser.add_argument("--plans", default="")
    options = parser.parse_args()
    passed = failed = 0
    with tempfile.TemporaryDirectory(prefix="tqtortho_faults_") as where:
        harness = Harness(os.path.abspath(options.command), os.path.abspath(options.preload), where)
        print(f"{'plan':22s} {'places':>7s} {'tried':>6s} {'status 0':>9s} {'wrong':>6s} {'time':>7s}")
        for name, plan in PLANS.items():
            if options.plans and not any(p in name for p in options.plans.split(",")):
                continue
            calls, size = harness.count(plan[0] or "write")
            last = size if plan[2] == "bytes" else calls
            if last == 0:
                sys.exit(f"{name}: the job makes no such call; the preload library sees nothing")
            if options.places:
                places = sorted({1 + i * (last - 1) // max(options.places - 1, 1)
                                 for i in range(options.places)})
            elif plan[2] == "bytes":
                places = range(1, last + 1, max(last // max(100 // options.every, 1), 1))
            else:
                places = range(1, last + 1, options.every * (10 if plan[1] == "kill" else 1))
            zero = wrong = tried = 0
            start = time.time()
            for number in places:
                faults, ended_well = judge(harness, plan, number)
                tried += 1
                zero += 1 if ended_well else 0
                if faults:
                    wrong += 1
                    print(f"FAILED: {name} at {number} of {last}: " + "; ".join(faults), flush=True)
            passed += tried - wrong
            failed += wrong
            print(f"{name:22s} {last:7d} {tried:6d} {zero:9d} {wrong:6d} {time.time() - start:6.0f}s",
                  flush=True)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
