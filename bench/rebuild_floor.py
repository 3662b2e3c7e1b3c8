#!/usr/bin/env python3
"""rebuild_floor.py PROGRAM [TREE]: how long `PROGRAM rebuild` of TREE (/usr/include) takes, to the least that must be
done: one ctags over the same files with the same options, and SQLite taking the same rows, indexes and full text into a
new file. Their processor time, divided by the cores (2 at most), is the floor.

Prints rows of a table, the medians of some rounds. By the clock they mean something on a quiet machine only. Standard library only."""

import contextlib
import os
import pathlib
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 3
CORES = min(2, len(os.sched_getaffinity(0)))
# Those of tools/veldra-index/parse/ctags.cc.
CTAGS = ["ctags", "--quiet", "--options=NONE", "--output-format=json", "--sort=no", "--fields=Nlnzser",
         "--extras=+rf-p"]
# Those of the tool's staging file (tools/veldra-index/index/staging_file.cc), which is lost in a crash.
PRAGMAS = ["page_size = 8192", "auto_vacuum = INCREMENTAL", "journal_mode = OFF", "synchronous = OFF",
           "main.locking_mode = EXCLUSIVE", "cache_size = -16384"]
SORTING_CACHE = "PRAGMA main.cache_size = -2048"
FULL_TEXT_OPTIONS = ("INSERT INTO code_chunks (code_chunks, rank)"
                     " VALUES ('hashsize', 2097152), ('automerge', 8)")


def seconds(command, **where):
    """What it takes by the clock, and of the processor."""
    start, before = time.monotonic(), os.times()
    subprocess.run(command, check=True, **where)
    after = os.times()
    processor = after.children_user + after.children_system - before.children_user - before.children_system
    return time.monotonic() - start, processor


def ctags_seconds(tree, index, work):
    with contextlib.closing(sqlite3.connect(index)) as database:
        paths = [path for (path,) in database.execute("SELECT path FROM files ORDER BY path")]
    (work / "files").write_text("".join(path + "\n" for path in paths), encoding="utf-8")
    (work / "tags").unlink(missing_ok=True)  # ctags does not overwrite what is not of its usual format
    return seconds([*CTAGS, "-f", work / "tags", "-L", work / "files"], cwd=tree,
                   stderr=subprocess.DEVNULL)[1]


def sqlite_seconds(index, copy):
    """The tables first, then their rows, then the indexes, each sorted once; the text is analysed anew."""
    copy.unlink(missing_ok=True)
    before = time.process_time()
    database = sqlite3.connect(copy, isolation_level=None)
    for pragma in PRAGMAS:
        database.execute("PRAGMA " + pragma)
    database.execute("ATTACH ? AS old", [str(index)])
    schema = database.execute("SELECT type, name, sql FROM old.sqlite_master WHERE sql IS NOT NULL"
                              " AND name NOT GLOB 'sqlite_*' AND name NOT GLOB 'code_chunks_*'").fetchall()
    database.execute("BEGIN")
    for kind, _, sql in schema:
        if kind == "table":
            database.execute(sql)
    database.execute(FULL_TEXT_OPTIONS)
    for kind, name, _ in schema:
        if kind == "table":
            names = [row[1] for row in database.execute(f"PRAGMA old.table_info({name})")]
            columns = ", ".join((["rowid"] if name == "code_chunks" else []) + names)
            database.execute(f"INSERT INTO main.{name} ({columns}) SELECT {columns} FROM old.{name}")
    database.execute(SORTING_CACHE)
    for kind, _, sql in schema:
        if kind != "table":
            database.execute(sql)
    database.execute("COMMIT")
    database.close()
    return time.process_time() - before


def spread(values):
    return f"{statistics.median(values):.2f} ({min(values):.2f} to {max(values):.2f})"


def main():
    if not 2 <= len(sys.argv) <= 3:
        sys.exit(__doc__)
    tree = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else "/usr/include").resolve()
    floors, ratios = [], []
    with tempfile.TemporaryDirectory() as directory:
        work = pathlib.Path(directory)
        index = work / "index.db"
        rebuild = [sys.argv[1], "rebuild", tree, "--db", index, "--jobs", str(CORES), "--quiet"]
        for _ in range(ROUNDS):
            for file in work.glob("index.db*"):
                file.unlink()
            (new, new_processor), (over, over_processor) = seconds(rebuild), seconds(rebuild)
            floor = (ctags_seconds(tree, index, work) + sqlite_seconds(index, work / "copy.db")) / CORES
            floors.append(floor)
            ratios.append([new / floor, over / floor, new_processor / CORES / floor, over_processor / CORES / floor])
    new, over, new_processor, over_processor = map(spread, zip(*ratios))
    least = f"the least that must be done ({statistics.median(floors):.1f} s on {CORES} cores)"
    print(f"| rebuild of {tree} to {least}: new index, over an existing one | {new}, {over} | 1.30, 1.55 |")
    print(f"| its processor time to the same | {new_processor}, {over_processor} | |")


if __name__ == "__main__":
    main()
