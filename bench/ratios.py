#!/usr/bin/env python3
"""Prints each benchmark's time as a ratio of its baseline from the same run.

Reads Google Benchmark JSON (--benchmark_format=json) on stdin or from files.
A baseline is a benchmark whose name starts with "BM_Baseline"; a measured
benchmark uses the baselines whose argument is its counter "baseline_arg" when it
has one, else those with the same argument suffix ("/16777216"), else the only
baseline of the program when there is one.
"""
import json
import sys


def split(name):
    base, _, args = name.partition("/")
    return base, args


def report(doc):
    rows = [b for b in doc["benchmarks"] if b.get("run_type", "iteration") == "iteration"
            or b.get("aggregate_name") == "median"]
    # Prefer medians when repetitions were asked for.
    medians = [b for b in rows if b.get("aggregate_name") == "median"]
    if medians:
        rows = medians
    def key(b):
        n = b.get("run_name", b["name"])
        return n.replace("/real_time", "")
    baselines = {}
    for b in rows:
        base, args = split(key(b))
        if base.startswith("BM_Baseline"):
            baselines.setdefault(args, []).append(b)
    only = [b for v in baselines.values() for b in v]
    for b in rows:
        base, args = split(key(b))
        if base.startswith("BM_Baseline"):
            continue
        if "baseline_arg" in b:
            cands = baselines.get(str(int(b["baseline_arg"])), [])
        else:
            cands = baselines.get(args) or (only if len(only) == 1 else [])
        if not cands:
            print(f"{key(b):50s} {b['real_time']:10.2f} {b['time_unit']}  (no baseline)")
            continue
        for ref in cands:
            ratio = b["real_time"] / ref["real_time"]
            print(f"{key(b):50s} {b['real_time']:10.2f} {b['time_unit']}  "
                  f"vs {key(ref)} {ref['real_time']:.2f} {ref['time_unit']}  ratio {ratio:.2f}")


def main():
    if len(sys.argv) > 1:
        for path in sys.argv[1:]:
            with open(path) as f:
                report(json.load(f))
    else:
        report(json.load(sys.stdin))


if __name__ == "__main__":
    main()
