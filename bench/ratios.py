"""Prints how the library's medians stand to what the machine must do anyway: ratios.py NOTES RESULT.json..."""

import json
import pathlib
import re
import sys

medians = {}
per_byte = {}
for file in sys.argv[2:]:
    kept = "kept_" if pathlib.Path(file).stem == "kept" else ""
    for run in json.load(open(file))["benchmarks"]:
        if run.get("aggregate_name") == "median":
            name = kept + re.sub("/iterations:[0-9]+|/manual_time", "", run["run_name"])
            # Others may be using the machine, so the time of the processor counts.
            medians[name] = run["real_time" if "manual_time" in run["run_name"] else "cpu_time"]
            if "per_byte" in run:
                per_byte[name] = run["per_byte"]
n = sys.argv[1]


def us(name, size=n):
    return medians.get(f"{name}/{size}")


def together(*names):
    times = [us(name) for name in names]
    return None if None in times else sum(times)


missed = 0


def row(what, value, limit=None, unit=""):
    global missed
    if value is None:
        return
    verdict = "missed" if limit is not None and value > limit else ""
    missed += verdict != ""
    print(f"{what:<76}{value:>8.2f} {unit:<3}{limit or '':>6} {verdict}".rstrip())


def quotient(a, b):
    return a / b if a and b else None


def ratio(what, names, yards, limit=None):
    row(what, quotient(together(*names.split()), together(*yards.split())), limit)


print(f"medians at {n} notes, microseconds of the processor")
for name in sorted(name for name in medians if name.endswith("/" + n) or "_after/" in name):
    print(f"  {name:<56}{medians[name]:>14.1f}")
print(f"\n{'work':<76}{'measured':>8} {'':<3}{'at most':>6}")
parse_host, parse_sync, write_host = "yard_rapidjson_parse_host", "yard_rapidjson_parse_sync", "yard_rapidjson_write_host"
sha256 = "yard_sha256_names yard_sha256_contents"
ratio("open / parse of the sync JSON", "open_handle", parse_sync, 0.5)
ratio("open + dump / parse + write", "open_dump", "yard_rapidjson_parse_write_sync", 0.4)
ratio("first read of an opened handle / write of the host text", "first_read_opened", write_host, 0.9)
ratio("first read after a merge / the same", "first_read_merged", write_host, 1.1)
ratio("first read after an update of a handle / the same", "first_read_updated", write_host, 1.1)
ratio("later reads / the same", "read_handle", write_host, 0.6)
ratio("read by text / parse of the sync JSON", "read_text", parse_sync, 0.7)
ratio("first update / (parse of the host text + SHA-256)", "first_update", f"{parse_host} {sha256}", 1.4)
ratio("SHA-256 as the library computes it / first update", "sha256_directly", "first_update")
ratio("unchanged update of a handle / parse of the host text", "update_unchanged_handle", parse_host, 1.3)
ratio("update by text, 1 % / parse of both texts", "update_1_percent", f"{parse_host} {parse_sync}", 0.8)
ratio("replicate handles, 1 % / parse of the sync JSON", "replicate_handle", parse_sync, 0.15)
ratio("replicate by text / parse of both texts", "replicate_text", f"{parse_sync} {parse_sync}", 0.6)
ratio("compress / zlib's default level", "compress", "yard_zlib_sync", 0.6)
ratio("open, read and update in a new process / in this one", "cold_process", "warm_process")
for past, without, what, limit in (
    ("32_instances", "2000_notes", "2000 notes listed by 32 instances / by one", 3),
    ("16000_deleted", "1000_notes", "1000 notes and 16000 deleted ones / without those", 4),
    ("20_edits", "1000_notes", "1000 notes edited 20 times / never", None),
):
    for work in ("update_unchanged", "update_text", "read_text"):
        value = quotient(medians.get(f"{work}_after/{past}"), medians.get(f"{work}_after/{without}"))
        row(f"{work}, {what}", value, limit if work == "update_unchanged" else None)
for size in ("1000", "10000", "100000"):
    row(f"winning, {size} notes", us("winning_handle", size), 1.0, "us")
    row(f"conflicting, {size} notes", us("conflicting_handle", size), 2.0, "us")
row("resolve, 100000 notes / 1000", quotient(us("resolve_handle", "100000"), us("resolve_handle", "1000")), 2.0)
row("memory of a handle / its text", per_byte.get(f"memory_of_handle/{n}"), 2.5)
row("peak of an update by text / its texts", per_byte.get(f"peak_of_update/{n}"), 4.0)
for name in (
    *("open_handle", "first_read_opened", "read_handle", "read_text", "first_update"),
    *("update_unchanged_handle", "update_1_percent", "replicate_handle", "replicate_text"),
):
    for kept, limit, memory in (("", None, "memory from the system"), ("kept_", 1.4, "memory touched before")):
        value = quotient(us(kept + name, "100000"), us(kept + name, "1000"))
        row(f"time per document, 100000 / 1000, {memory}: {name}", value and value / 100, limit)
for name, size in (("chain_of_revisions", 100000), ("fan_of_branches", 10000), ("array_of_elements", 100000)):
    row(f"twice the size: {name}", quotient(us(name, size), us(name, size // 2)), 2.2)
print(f"\n{missed} missed" if missed else "\nall reached")
