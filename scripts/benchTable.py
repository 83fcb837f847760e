#!/usr/bin/env python3
"""Prints the table of a Google Benchmark JSON report whose benchmarks are named "<case>/<library>":
one line per case, per library the median time and its coefficient of variation, then each peer's
time as a multiple of vexlor's. Cases timed by the wall clock (threads) use the real time, the
others the CPU time, which a busy machine disturbs less."""
import json
import sys

REFERENCE = "vexlor"


def read(path):
    medians, variations, cases, libraries = {}, {}, [], []
    with open(path) as report:
        for run in json.load(report)["benchmarks"]:
            if run.get("run_type") != "aggregate":
                continue
            parts = run["run_name"].split("/")
            case, library = parts[0], parts[1]
            clock = "real_time" if "real_time" in parts else "cpu_time"
            if run["aggregate_name"] == "median":
                medians[case, library] = run[clock] * {"ns": 1, "us": 1e3, "ms": 1e6}[run["time_unit"]]
            elif run["aggregate_name"] == "cv":
                variations[case, library] = run[clock]
            else:
                continue
            if case not in cases:
                cases.append(case)
            if library not in libraries:
                libraries.append(library)
    # The reference first, then the libraries measured beside it; a benchmark of its own (such as
    # a baseline) goes below the table.
    compared = {library for case, library in medians if (case, REFERENCE) in medians}
    libraries = [REFERENCE] + sorted((l for l in libraries if l in compared and l != REFERENCE), key=str.lower)
    # Random interleaving mixes the report's order: the cases go by the reference's time instead.
    cases.sort(key=lambda case: medians.get((case, REFERENCE), float("inf")))
    return medians, variations, cases, libraries


def duration(nanoseconds):
    return f"{nanoseconds:.3g} ns" if nanoseconds < 1000 else f"{nanoseconds / 1000:.3g} µs"


def main(path):
    medians, variations, cases, libraries = read(path)
    peers = [library for library in libraries if library != REFERENCE]
    print("Medians, ± the coefficient of variation:")
    print()
    print("| case | " + " | ".join(libraries) + " |")
    print("|---|" + "---:|" * len(libraries))
    for case in cases:
        if (case, REFERENCE) not in medians:
            continue
        cells = []
        for library in libraries:
            if (case, library) in medians:
                cells.append(f"{duration(medians[case, library])} ±{variations[case, library] * 100:.0f}%")
            else:
                cells.append("")
        print(f"| {case} | " + " | ".join(cells) + " |")
    for case, library in medians:
        if library not in libraries:
            print(f"\n{case} ({library}): {duration(medians[case, library])} ±{variations[case, library] * 100:.0f}%")
    print()
    print(f"Each peer's time divided by {REFERENCE}'s (above 1: {REFERENCE} is faster):")
    print()
    print("| case | " + " | ".join(peers) + " |")
    print("|---|" + "---:|" * len(peers))
    for case in cases:
        if (case, REFERENCE) not in medians or not any((case, peer) in medians for peer in peers):
            continue
        cells = [f"{medians[case, peer] / medians[case, REFERENCE]:.2f}" if (case, peer) in medians else ""
                 for peer in peers]
        print(f"| {case} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main(sys.argv[1])
