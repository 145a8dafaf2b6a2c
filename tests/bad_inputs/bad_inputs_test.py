#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every bad input of rows.py ends with its status and one line, within two seconds and 300 MB, and
writes nothing outside the folder that it was told to write to.

usage: bad_inputs_test.py TQTORTHO [NAME...]
Names choose rows that begin with them; --list after the command prints what each row says.
TQTORTHO_ROW_SECONDS allows more than two seconds on a loaded machine.
"""
import concurrent.futures
import hashlib
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True  # the sources stay as they are
import rows as table  # noqa: E402

TQTORTHO = os.path.abspath(sys.argv[1])
SECONDS = float(os.environ.get("TQTORTHO_ROW_SECONDS", "2"))
MEGABYTES = 300
GIVE_UP = 20  # seconds after which a row that hangs is ended


def tree(folder, leave_out=()):
    """What lies in a folder: kind, size and content of each name."""
    found = {}
    for path in sorted(pathlib.Path(folder).rglob("*")):
        name = str(path.relative_to(folder))
        if any(name == top or name.startswith(top + "/") for top in leave_out):
            continue
        if path.is_symlink() or not path.is_file():
            found[name] = "no file"
        else:
            # Digests of the holes of sparse files would take longer than the rows.
            size = path.stat().st_size
            found[name] = (size, hashlib.sha256(path.read_bytes()).hexdigest() if size < 1e7 else 0)
    return found


def execute(arguments, folder, environment):
    """Status, standard error, seconds and megabytes of one call."""
    with open(folder + ".err", "w+b") as said:
        start = time.monotonic()
        job = subprocess.Popen([TQTORTHO, *arguments], cwd=folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=said,
                               env={**os.environ, **environment})
        late = threading.Timer(GIVE_UP, lambda: os.kill(job.pid, signal.SIGKILL))
        late.start()
        _, status, usage = os.wait4(job.pid, 0)
        late.cancel()
        job.returncode = os.waitstatus_to_exitcode(status)
        took = time.monotonic() - start
        said.seek(0)
        text = said.read()
    os.remove(folder + ".err")
    return job.returncode, text, took, usage.ru_maxrss / 1000


def faults(row, folder, shared):
    """What is wrong with how a row ended, and what it said."""
    os.makedirs(folder)
    context = table.Context(shared, folder)
    arguments = row.prepare(context)  # what it makes is there before
    # WORK is named too, and its lock says which process is at work.
    own = [row.writes, "job/work/.tqtortho.lock"]
    before = tree(folder, own)
    status, raw, took, megabytes = execute(arguments, folder, row.environment)
    text = raw.decode("utf-8", "replace")
    lines = text.splitlines()
    wrong = []
    if status != row.status:
        wrong.append(f"status {status}, not {row.status}")
    if row.warns:
        while lines and lines[0].startswith("warning: "):
            lines.pop(0)
    if len(lines) != 1 or not lines[0].startswith("tqtortho: "):
        wrong.append(f"{len(lines)} lines instead of one")
    elif row.text not in lines[0]:
        wrong.append(f"the line does not hold \"{row.text}\"")
    if took > SECONDS:
        wrong.append(f"{took:.1f} s")
    if megabytes > MEGABYTES:
        wrong.append(f"{megabytes:.0f} MB")
    after = tree(folder, own)
    if after != before:
        changed = {name for name in {*before, *after} if before.get(name) != after.get(name)}
        wrong.append("wrote outside OUT: " + ", ".join(sorted(changed)[:5]))
    context.end()
    return wrong, text, took, megabytes


def make_shared(folder):
    """The town and the job on it that rows start from."""
    os.makedirs(folder)
    for arguments in ("sample --out town --size 30 --photos 3 --photo-gsd 0.2 --quiet",
                      "run --dsm town/dsm.tif --cameras town/cameras.txt --photos town/photos.txt "
                      "--out job --quiet --threads 2"):
        made = subprocess.run([TQTORTHO, *arguments.split()], cwd=folder, capture_output=True)
        if made.returncode != 0:
            sys.exit("FAILED: " + arguments + ": " + made.stderr.decode())


def main():
    chosen, show = sys.argv[2:], "--list" in sys.argv[2:]
    chosen = [name for name in chosen if name != "--list"]
    all_rows = table.rows()
    names = [row.name for row in all_rows]
    if len(set(names)) != len(names):
        sys.exit("FAILED: two rows have one name: " +
                 ", ".join(sorted({n for n in names if names.count(n) > 1})))
    picked = [r for r in all_rows if not chosen or any(r.name.startswith(c) for c in chosen)]
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    failed, slowest, largest = 0, (0, ""), (0, "")
    top = tempfile.mkdtemp(prefix="bad_inputs_")
    try:
        shared = os.path.join(top, "shared")
        make_shared(shared)
        before = tree(shared)
        work = {}
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            for number, row in enumerate(picked):
                folder = os.path.join(top, f"row{number}")
                work[pool.submit(faults, row, folder, shared)] = (row, folder)
            for job in concurrent.futures.as_completed(work):
                row, folder = work[job]
                wrong, text, took, megabytes = job.result()
                slowest = max(slowest, (took, row.name))
                largest = max(largest, (megabytes, row.name))
                if wrong:
                    failed += 1
                    print(f"FAILED: {row.name}: " + "; ".join(wrong))
                if wrong or show:
                    print(*("  | " + line[:400] for line in text.splitlines()[:6]), sep="\n")
                shutil.rmtree(folder, ignore_errors=True)
        if tree(shared) != before:
            failed += 1
            print("FAILED: a row changed the files that all share")
    finally:
        subprocess.run(["chmod", "-R", "u+w", top], check=False)
        shutil.rmtree(top, ignore_errors=True)
    print(f"{len(picked) - failed} of {len(picked)} bad inputs refused; slowest {slowest[1]} "
          f"{slowest[0]:.2f} s, largest {largest[1]} {largest[0]:.0f} MB")
    if not chosen and len(all_rows) < 200:
        sys.exit("FAILED: fewer than 200 rows")
    sys.exit(1 if failed else 0)


main()
