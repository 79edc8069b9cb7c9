#!/usr/bin/env python3
"""Prints measured/baseline ratios for the benchmark pairs named in a ratios file.

Each non-comment line of the ratios file: MEASURED BASELINE GOAL, where a goal
of "-" marks a ratio reported for information only.
"""
import json
import sys

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def main(results_path, ratios_path):
    with open(results_path) as f:
        results = json.load(f)
    times = {}
    for bench in results.get("benchmarks", []):
        if bench.get("run_type", "iteration") != "iteration":
            continue
        # "BM_X/real_time" and "BM_X/iterations:3" are BM_X here.
        times[bench["name"].split("/")[0]] = bench["real_time"] * NANOSECONDS[bench["time_unit"]]
    over = 0
    print(f"{'measured':45} {'baseline':40} {'ratio':>7} {'goal':>6}")
    with open(ratios_path) as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            measured, baseline, goal = line.split()
            if measured not in times or baseline not in times:
                print(f"{measured:45} {baseline:40} {'missing':>7} {goal:>6}")
                continue
            ratio = times[measured] / times[baseline]
            mark = "" if goal == "-" or ratio <= float(goal) else "  over goal"
            over += bool(mark)
            print(f"{measured:45} {baseline:40} {ratio:7.2f} {goal:>6}{mark}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
