#!/usr/bin/env python3
"""Writes bench/results.md from one run of scripts/bench.

  write_results.py --micro MICRO.json --manifest MANIFEST.tsv \
      --duration S --warmup S --threads T --connections C --workers W > results.md

MICRO.json is Google Benchmark's JSON output (--benchmark_out). MANIFEST.tsv
holds one tab-separated row per figure, written by scripts/bench:
  callgrind NAME "CALLS IR_PER_CALL"
  load GROUP LABEL SHOWN SIDE WRK_OUTPUT WORKER_CPU_US NGINX_CPU_US PEAK_RSS_KB
  cgi SIDE "runs=... rate=... p50_us=... p99_us=... cpu_us_per_run=... peak_rss_kb=... failures=..."
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


def read_manifest(path):
    rows = {"callgrind": [], "load": [], "cgi": []}
    with open(path) as f:
        for line in f:
            fields = line.rstrip("\n").split("\t")
            rows.setdefault(fields[0], []).append(fields[1:])
    return rows


def load_row(fields):
    group, label, shown, side, output, worker_us, nginx_us, rss_kb = fields
    with open(output) as f:
        r = parse_wrk(f.read())
    requests = r.get("requests") or 0
    r.update(group=group, label=label, shown=shown, side=side,
             errors=r["non2xx"] + r["socket_errors"],
             worker_us=int(worker_us) / requests if requests else None,
             nginx_us=int(nginx_us) / requests if requests else None,
             rss_kb=int(rss_kb))
    return r


def fmt_rate(r):
    return f"{r['rps']:,.0f}" if r and r.get("rps") is not None else "n/a"


def fmt_us(value):
    return f"{value:,.0f}" if value is not None else "n/a"


def ratio(ours, ceiling):
    if not ours or not ceiling or not ours.get("rps") or not ceiling.get("rps"):
        return "n/a"
    return f"{100 * ours['rps'] / ceiling['rps']:.0f} %"


def load_tables(rows):
    runs = [load_row(fields) for fields in rows["load"]]
    lines = [
        "| Target | Path | Requests/s | Ceiling req/s | Ratio | p50 | p99 | Worker CPU µs/request (ceiling) | nginx CPU µs/request (ceiling) | Peak RSS per worker | Errors |",
        "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|",
    ]
    static = next((r for r in runs if r["side"] == "nginx"), None)
    if static:
        lines.append(
            f"| {static['label']} (nginx alone) | `{static['shown']}` | {fmt_rate(static)} | | | "
            f"{static['p50']} | {static['p99']} | | {fmt_us(static['nginx_us'])} | | {static['errors']} |")
    ceilings = {r["label"]: r for r in runs if r["group"] == "load" and r["side"] == "ceiling"}
    for r in runs:
        if r["group"] != "load" or r["side"] != "ours":
            continue
        c = ceilings.get(r["label"])
        lines.append(
            f"| {r['label']} | `{r['shown']}` | {fmt_rate(r)} | {fmt_rate(c)} | {ratio(r, c)} | "
            f"{r['p50']} | {r['p99']} | {fmt_us(r['worker_us'])} ({fmt_us(c and c['worker_us'])}) | "
            f"{fmt_us(r['nginx_us'])} ({fmt_us(c and c['nginx_us'])}) | {r['rss_kb'] / 1024:.1f} MiB | "
            f"{r['errors'] + (c['errors'] if c else 0)} |")
    return lines, {group: growth_table(runs, group, first) for group, first in GROWTH_TABLES}


# Growth tables: manifest group, heading of the first column.
GROWTH_TABLES = [("growth", "Store"), ("growth-init", "Web root"), ("growth-texts", "UI texts")]


def growth_table(runs, group, first):
    growth = [r for r in runs if r["group"] == group]
    lines = [
        f"| {first} | Requests/s | Ratio to the smallest | p50 | p99 | Worker CPU µs/request | Errors |",
        "|---|---:|---:|---:|---:|---:|---:|",
    ]
    for r in growth:
        lines.append(f"| {r['label']} | {fmt_rate(r)} | {ratio(r, growth[0])} | {r['p50']} | "
                     f"{r['p99']} | {fmt_us(r['worker_us'])} | {r['errors']} |")
    return lines


def cgi_table(rows):
    figures = {}
    for side, text in rows["cgi"]:
        figures[side] = dict(item.split("=", 1) for item in text.split())
    lines = [
        "| Program | Runs/s | Ratio | p50 | p99 | CPU µs/run | Peak RSS | Failures |",
        "|---|---:|---:|---:|---:|---:|---:|---:|",
    ]
    names = {"ceiling": "trivial CGI program (same answer)", "ours": "`entry.cgi`, desktop page, permanent link"}
    for side in ("ceiling", "ours"):
        f = figures.get(side)
        if not f:
            continue
        share = (f"{100 * float(f['rate']) / float(figures['ceiling']['rate']):.0f} %"
                 if side == "ours" and "ceiling" in figures else "")
        lines.append(f"| {names[side]} | {float(f['rate']):,.0f} | {share} | {int(f['p50_us']) / 1000:.2f}ms | "
                     f"{int(f['p99_us']) / 1000:.2f}ms | {int(f['cpu_us_per_run']):,} | "
                     f"{int(f['peak_rss_kb']) / 1024:.1f} MiB | {f['failures']} |")
    return lines


def callgrind_table(rows):
    lines = ["| Handler | Calls measured | Instructions per call |", "|---|---:|---:|"]
    for name, figures in rows["callgrind"]:
        calls, per_call = figures.split()
        lines.append(f"| `{name}` | {int(calls):,} | {int(per_call):,} |")
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--micro", required=True)
    parser.add_argument("--manifest", required=True)
    parser.add_argument("--duration", required=True)
    parser.add_argument("--warmup", required=True)
    parser.add_argument("--threads", required=True)
    parser.add_argument("--connections", required=True)
    parser.add_argument("--workers", required=True)
    parser.add_argument("--load-before", default="")
    parser.add_argument("--benchmark-version", default="")
    args = parser.parse_args()

    rows = read_manifest(args.manifest)
    micro_lines, context = micro_table(args.micro)
    load_lines, growth_lines = load_tables(rows)
    now = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")
    out = [
        "# Benchmark results",
        "",
        "Written by `scripts/bench`; see [docs/bench.md](../docs/bench.md) for what is",
        "measured and how to read it. Figures from one run on one machine: compare",
        "runs made on the same machine only; ratios are against a ceiling measured",
        "in the same run, right before the figure.",
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
        "### Instructions per call (callgrind)",
        "",
        "The same handlers under `valgrind --tool=callgrind`: user-space instructions",
        "of one call, everything it calls included; unlike times they do not move",
        "with the machine's load.",
        "",
    ]
    out += callgrind_table(rows)
    out += [
        "",
        "## Load test of the real stack and its ceilings (wrk)",
        "",
        f"nginx and zant-webapid ({args.workers} workers) on 127.0.0.1 with the link service",
        "over SQLite, one appliance root made by `scripts/mkroot`. The ceiling of each",
        f"target is a trivial FastCGI responder ({args.workers} workers, libfcgi) behind a second",
        "nginx with the same configuration, answering the bytes captured from our",
        f"server for that address. Each run: `wrk -t{args.threads} -c{args.connections} -d{args.duration}s --latency`",
        f"after a {args.warmup} s warm-up, the ceiling first. CPU is user + system time from `/proc`",
        "over the measured run, divided by the requests served. Errors are non-2xx/3xx",
        "answers plus socket errors of both runs.",
        "",
    ]
    out += load_lines
    out += [
        "",
        "## One-shot CGI",
        "",
        f"`bench/cgi_runner` starts the program {args.workers} at a time for {args.duration} s with",
        "the CGI variables of the desktop landing, reading each answer to the end.",
        "",
    ]
    out += cgi_table(rows)
    out += [
        "",
        "## Growth: the desktop landing against the store's size",
        "",
        "The same permanent link through the stack while the store holds that many",
        "further items, each with its permanent and a sharing link, added in bulk",
        "with SQL.",
        "",
    ]
    out += growth_lines["growth"]
    out += [
        "",
        "## Growth: init against the module directories",
        "",
        "init, no session, while the web root holds that many module directories",
        "(`webman/modules/*`, each with its configuration and its script), all read",
        "on every request.",
        "",
    ]
    out += growth_lines["growth-init"]
    out += [
        "",
        "## Growth: the page script against the size of the UI texts",
        "",
        "getjs of the sharing link with its token cookie while the link pages' English",
        "texts have that size (grown with further sections); the texts are parsed once",
        "per change and written into every answer.",
        "",
    ]
    out += growth_lines["growth-texts"]
    analysis = os.path.join(os.path.dirname(os.path.abspath(__file__)), "analysis.md")
    if os.path.exists(analysis):
        with open(analysis) as f:
            out += ["", f.read().rstrip("\n")]
    out.append("")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
