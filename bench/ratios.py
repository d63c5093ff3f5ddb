#!/usr/bin/env python3
"""Ratios from one benchmark run.

Reads Google Benchmark JSON (--benchmark_format=json or --benchmark_out) and
prints, for every PaxImage benchmark, its MP/s beside its anchor's and memcpy's
from the same run. A benchmark named NAME is anchored by NAME/opencv when that
exists, else by the benchmark named with --anchor; memcpy is the one whose name
starts with BM_Memcpy (or --memcpy).

    build/bench/bin/convert_bench --benchmark_format=json | bench/ratios.py
"""
import argparse
import json
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("file", nargs="?", help="JSON file (default: standard input)")
    parser.add_argument("--anchor", help="benchmark every other one is compared with")
    parser.add_argument("--memcpy", default="BM_Memcpy", help="prefix of the memcpy baseline")
    args = parser.parse_args()
    data = json.load(open(args.file) if args.file else sys.stdin)
    rate = {}
    for b in data["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration" or "MP/s" not in b:
            continue
        rate[b.get("run_name", b["name"])] = b["MP/s"]
    memcpy = next((v for k, v in rate.items() if k.startswith(args.memcpy)), None)
    print("| Benchmark | PaxImage MP/s | Anchor | Anchor MP/s | Ratio | of memcpy |")
    print("|---|---|---|---|---|---|")
    for name, value in rate.items():
        if name.endswith("/opencv") or name.startswith(args.memcpy) or name == args.anchor:
            continue
        anchor = name + "/opencv" if name + "/opencv" in rate else args.anchor
        a = rate.get(anchor) if anchor else None
        ratio = f"{value / a:.2f}" if a else "-"
        share = f"{value / memcpy:.3f}" if memcpy else "-"
        print(f"| {name} | {value:.0f} | {anchor or '-'} | {a:.0f} | {ratio} | {share} |"
              if a else f"| {name} | {value:.0f} | - | - | - | {share} |")
    if memcpy:
        print(f"\nmemcpy of the image: {memcpy:.0f} MP/s")


if __name__ == "__main__":
    main()
