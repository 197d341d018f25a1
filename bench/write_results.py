#!/usr/bin/env python3
"""Writes bench/results.md from one run of scripts/bench.

  write_results.py --micro MICRO.json --wrk LABEL PATH OUTPUT ... \
      --duration S --threads T --connections C --workers W > results.md

MICRO.json is Google Benchmark's JSON output (--benchmark_out); each
--wrk names one wrk run: a label, the URL path it loaded (as shown) and
the file holding wrk's output (run with --latency).
"""
import argparse
import datetime
import json
import os
import platform
import re
import sys


def cpu_model():
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return platform.processor() or "unknown"


def load_average():
    try:
        return " ".join(f"{v:.2f}" for v in os.getloadavg())
    except OSError:
        return "unknown"


def human_time(ns):
    if ns >= 1e6:
        return f"{ns / 1e6:.2f} ms"
    if ns >= 1e3:
        return f"{ns / 1e3:.2f} µs"
    return f"{ns:.1f} ns"


def human_rate(value, unit):
    for factor, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= factor:
            return f"{value / factor:.2f} {prefix}{unit}"
    return f"{value:.0f} {unit}"


def to_ns(value, unit):
    return value * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[unit]


def micro_table(path):
    with open(path) as f:
        data = json.load(f)
    # Each benchmark's repetitions ("iteration" runs) and their aggregates;
    # without repetitions the single run stands for itself.
    by_name = {}
    for run in data.get("benchmarks", []):
        name = run.get("run_name", run["name"])
        entry = by_name.setdefault(name, {"runs": []})
        if run.get("run_type") == "aggregate":
            entry[run.get("aggregate_name", "")] = run
        else:
            entry["runs"].append(run)
    lines = [
        "| Benchmark | Time (median) | CPU (median) | Spread (CV) | Iterations per run | Throughput |",
        "|---|---:|---:|---:|---:|---:|",
    ]
    for name, entry in by_name.items():
        runs = entry["runs"]
        main = entry.get("median") or (runs[0] if runs else None)
        if main is None:
            continue
        failed = [r for r in runs if r.get("error_occurred")]
        if failed or main.get("error_occurred"):
            message = (failed or [main])[0].get("error_message", "")
            lines.append(f"| `{name}` | skipped: {message} | | | | |")
            continue
        unit = main.get("time_unit", "ns")
        real = human_time(to_ns(main["real_time"], unit))
        cpu = human_time(to_ns(main["cpu_time"], unit))
        cv = entry.get("cv")
        spread = f"{cv['real_time'] * 100:.1f} %" if cv else ""
        counts = sorted(int(r.get("iterations", 0)) for r in runs)
        iterations = f"{counts[len(counts) // 2]:,}" if counts else ""
        if "bytes_per_second" in main:
            throughput = human_rate(main["bytes_per_second"], "B/s")
        elif "items_per_second" in main:
            throughput = human_rate(main["items_per_second"], "items/s")
        else:
            throughput = human_rate(1e9 / to_ns(main["real_time"], unit), "calls/s")
        lines.append(f"| `{name}` | {real} | {cpu} | {spread} | {iterations} | {throughput} |")
    return lines, data.get("context", {})


def parse_wrk(text):
    result = {}
    m = re.search(r"Requests/sec:\s+([\d.]+)", text)
    result["rps"] = float(m.group(1)) if m else None
    m = re.search(r"^\s*Latency\s+(\S+)\s+(\S+)\s+(\S+)", text, re.M)
    if m:
        result["avg"], result["max"] = m.group(1), m.group(3)
    for pct in ("50", "75", "90", "99"):
        m = re.search(r"^\s*%s%%\s+(\S+)" % pct, text, re.M)
        result["p" + pct] = m.group(1) if m else ""
    m = re.search(r"(\d+) requests in ([\d.]+\w+), (\S+) read", text)
    if m:
        result["requests"], result["elapsed"], result["read"] = int(m.group(1)), m.group(2), m.group(3)
    m = re.search(r"Non-2xx or 3xx responses: (\d+)", text)
    result["non2xx"] = int(m.group(1)) if m else 0
    m = re.search(r"Socket errors: connect (\d+), read (\d+), write (\d+), timeout (\d+)", text)
    result["socket_errors"] = sum(int(g) for g in m.groups()) if m else 0
    return result


def wrk_table(entries):
    lines = [
        "| Target | Path | Requests/s | Avg | p50 | p75 | p90 | p99 | Max | Requests | Errors |",
        "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|",
    ]
    for label, url_path, output in entries:
        with open(output) as f:
            r = parse_wrk(f.read())
        rps = f"{r['rps']:,.0f}" if r.get("rps") is not None else "n/a"
        errors = r["non2xx"] + r["socket_errors"]
        lines.append(
            f"| {label} | `{url_path}` | {rps} | {r.get('avg', '')} | {r['p50']} | {r['p75']} | "
            f"{r['p90']} | {r['p99']} | {r.get('max', '')} | {r.get('requests', 0):,} | {errors} |")
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--micro", required=True)
    parser.add_argument("--wrk", action="append", nargs=3, default=[],
                        metavar=("LABEL", "PATH", "OUTPUT"))
    parser.add_argument("--duration", required=True)
    parser.add_argument("--threads", required=True)
    parser.add_argument("--connections", required=True)
    parser.add_argument("--workers", required=True)
    parser.add_argument("--load-before", default="")
    parser.add_argument("--benchmark-version", default="")
    args = parser.parse_args()

    entries = [tuple(run) for run in args.wrk]
    micro_lines, context = micro_table(args.micro)
    now = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")
    out = [
        "# Benchmark results",
        "",
        "Written by `scripts/bench`; see [docs/bench.md](../docs/bench.md) for what is",
        "measured and how to read it. Figures from one run on one machine: compare",
        "runs made on the same machine only.",
        "",
        "## Machine",
        "",
        f"- Date: {now}",
        f"- CPU: {cpu_model()}",
        f"- Processors (nproc): {os.cpu_count()}",
        f"- Kernel: {platform.system()} {platform.release()}",
        f"- Load average before the run: {args.load_before or 'unknown'}; after: {load_average()}",
        f"- Build: release preset (RelWithDebInfo); Google Benchmark "
        f"{args.benchmark_version or context.get('library_version', '')}".rstrip()
        + (" (the library itself reports a debug build)"
           if context.get("library_build_type") == "debug" else ""),
        "",
        "## In-process benchmarks (Google Benchmark)",
        "",
        "`build/release/bench/plyth_bench`: the module's handlers and helpers against",
        "the in-memory platform (link service answered from memory, output to",
        "`/dev/null`). Median of 3 repetitions; CV is the spread of the",
        "repetitions' wall times; throughput is per call unless a rate is named.",
        "",
    ]
    out += micro_lines
    out += [
        "",
        "## Load test of the real stack (wrk)",
        "",
        f"nginx and zant-webapid ({args.workers} workers) on 127.0.0.1 with the link service",
        "over SQLite, one appliance root made by `scripts/mkroot`. Each target:",
        f"`wrk -t{args.threads} -c{args.connections} -d{args.duration}s --latency` after a 2 s warm-up.",
        "wrk, nginx and the workers share the machine's processors. Errors are",
        "non-2xx/3xx answers plus socket errors.",
        "",
    ]
    out += wrk_table(entries)
    out.append("")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
