#!/usr/bin/env python3
"""Summary tables of ratios from kora-bench's JSON and adhoc_bench.py's JSON.

    python3 bench/summarize.py build/release/bench/results.json \
        [build/release/bench/adhoc.json] [--markdown OUT.md]

Reads Google Benchmark's --benchmark_out JSON (any number of repetitions: the
best repetition of each benchmark is used, since on a shared machine noise only
ever slows a run down) and prints, as Markdown tables:
  - QNumber against mpq_class, fmpq and the raw int64 loop, per data set and
    operation, with the targets (small sets: >= 10x mpq, >= 1x fmpq,
    <= 3x int64; big set: <= 1.5x mpq);
  - hsh::Hashtable against std::unordered_map and absl::flat_hash_map,
    insert + find per key (target: no slower than std::unordered_map);
  - each calculator's calls per second, its cost over the term-manager work
    it cannot avoid (target: <= 2x), and the complete inverter beside it;
  - elimination and rebuilding per application on chains of growing length;
  - kora-adhoc's commands per second and peak memory.
Python 3 standard library only.
"""

import argparse
import collections
import json
import sys


def load_rates(path):
    """name -> best items_per_second over the repetitions."""
    with open(path) as f:
        data = json.load(f)
    rates = {}
    for b in data.get("benchmarks", []):
        if b.get("run_type") == "aggregate" or b.get("error_occurred"):
            continue
        ips = b.get("items_per_second")
        if not ips:
            continue
        name = b.get("run_name", b["name"])
        rates[name] = max(rates.get(name, 0.0), ips)
    return data.get("context", {}), rates


def ns(rates, name):
    ips = rates.get(name)
    return 1e9 / ips if ips else None


def fmt_ns(x):
    if x is None:
        return "-"
    if x >= 1000:
        return "%.2f us" % (x / 1000)
    return "%.2f ns" % x if x < 10 else "%.1f ns" % x


def fmt_ratio(x):
    return "-" if x is None else ("%.2fx" % x if x < 10 else "%.1fx" % x)


def verdict(ok):
    return "" if ok is None else (" ok" if ok else " **miss**")


def ratio(a, b):
    return a / b if a is not None and b is not None and b > 0 else None


SET_ORDER = ["small_int", "small_frac", "big", "bitvec"]
OP_ORDER = ["add", "sub", "mul", "div", "compare", "divmod", "pow2", "addmod"]


def qnumber_table(rates, out):
    out.append("### QNumber (ns per operation; ratios: how many times faster kora is, "
               "or for int64 how many times slower)")
    out.append("")
    out.append("| set | op | kora | kora 2-op | mpq | fmpq | int64 | mpq/kora | fmpq/kora | "
               "kora/int64 |")
    out.append("|---|---|---|---|---|---|---|---|---|---|")
    for s in SET_ORDER:
        for op in OP_ORDER:
            base = "qnumber/%s/%s/" % (s, op)
            k = ns(rates, base + "kora")
            if k is None:
                continue
            k2 = ns(rates, base + "kora_2op")
            m = ns(rates, base + "mpq")
            f = ns(rates, base + "fmpq")
            r = ns(rates, base + "int64")
            vs_mpq = ratio(m, k)
            vs_fmpq = ratio(f, k)
            vs_raw = ratio(k, r)
            small = s in ("small_int", "small_frac")
            mpq_ok = None
            if vs_mpq is not None and small:
                mpq_ok = vs_mpq >= 10
            elif vs_mpq is not None and s == "big":
                mpq_ok = vs_mpq >= 1 / 1.5
            fmpq_ok = vs_fmpq >= 1 if (vs_fmpq is not None and small) else None
            raw_ok = vs_raw <= 3 if vs_raw is not None else None
            out.append("| %s | %s | %s | %s | %s | %s | %s | %s%s | %s%s | %s%s |" % (
                s, op, fmt_ns(k), fmt_ns(k2), fmt_ns(m), fmt_ns(f), fmt_ns(r),
                fmt_ratio(vs_mpq), verdict(mpq_ok), fmt_ratio(vs_fmpq), verdict(fmpq_ok),
                fmt_ratio(vs_raw), verdict(raw_ok)))
    out.append("")


def hashtable_table(rates, out):
    out.append("### hsh::Hashtable (ns per key: insert into a new table, then find; "
               "std/kora > 1 means kora is faster)")
    out.append("")
    out.append("| keys | kora insert | kora find | kora total | std total | absl total | "
               "std/kora | absl/kora |")
    out.append("|---|---|---|---|---|---|---|---|")
    for n in ["1000", "100000", "1000000"]:
        tot = {}
        parts = {}
        for lib in ["kora", "std", "absl"]:
            i = ns(rates, "hashtable/insert/%s/%s" % (n, lib))
            f = ns(rates, "hashtable/find/%s/%s" % (n, lib))
            parts[lib] = (i, f)
            tot[lib] = i + f if i is not None and f is not None else None
        vs_std = ratio(tot["std"], tot["kora"])
        out.append("| %s | %s | %s | %s | %s | %s | %s%s | %s |" % (
            n, fmt_ns(parts["kora"][0]), fmt_ns(parts["kora"][1]), fmt_ns(tot["kora"]),
            fmt_ns(tot["std"]), fmt_ns(tot["absl"]), fmt_ratio(vs_std),
            verdict(None if vs_std is None else vs_std >= 1),
            fmt_ratio(ratio(tot["absl"], tot["kora"]))))
    out.append("")


def calc_table(rates, out):
    cases = collections.OrderedDict()
    for name in rates:
        if not name.startswith("calc/"):
            continue
        _, op, width, mode = name.split("/")
        cases.setdefault((op, width), {})[mode] = ns(rates, name)
    out.append("### Calculators (per call; call/baseline: a call over the numerals and "
               "constraint terms that it records, made directly)")
    out.append("")
    out.append("| operator | width | call | calls/s | baseline | call/baseline | inverter | "
               "inverter calls/s | inverter/call |")
    out.append("|---|---|---|---|---|---|---|---|---|")
    for (op, width), m in cases.items():
        call = m.get("call")
        base = m.get("baseline")
        inv = m.get("inverter")
        r = ratio(call, base)
        per_s = "%.2fM" % (1e3 / call) if call else "-"
        inv_s = "%.2fM" % (1e3 / inv) if inv else "-"
        note = "" if base is not None else " (throw path)"
        out.append("| %s | %s | %s%s | %s | %s | %s%s | %s | %s | %s |" % (
            op, width, fmt_ns(call), note, per_s, fmt_ns(base), fmt_ratio(r),
            verdict(None if r is None else r <= 2), fmt_ns(inv), inv_s,
            fmt_ratio(ratio(inv, call))))
    out.append("")


def preprocess_table(rates, out):
    sizes = sorted({int(n.split("/")[2]) for n in rates if n.startswith("preprocess/")})
    out.append("### Elimination and rebuilding (per application of the chain; growth: "
               "against the smallest chain)")
    out.append("")
    out.append("| applications | simplify | growth | rebuild + validate | growth |")
    out.append("|---|---|---|---|---|")
    first = {row: ns(rates, "preprocess/%s/%d" % (row, sizes[0])) for row in ("simplify", "rebuild")}
    for n in sizes:
        cells = []
        for row in ("simplify", "rebuild"):
            t = ns(rates, "preprocess/%s/%d" % (row, n))
            cells += [fmt_ns(t), fmt_ratio(ratio(t, first[row]))]
        out.append("| %d | %s |" % (n, " | ".join(cells)))
    out.append("")


def adhoc_table(path, out):
    with open(path) as f:
        a = json.load(f)
    out.append("### kora-adhoc")
    out.append("")
    out.append("| commands | best wall time | commands/s | peak RSS |")
    out.append("|---|---|---|---|")
    out.append("| %d | %.2f s | %.0f | %.1f MiB |" % (
        a["commands"], a["best_seconds"], a["commands_per_second"], a["max_rss_kb"] / 1024.0))
    out.append("")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("results", help="kora-bench --benchmark_out JSON")
    parser.add_argument("adhoc", nargs="?", help="adhoc_bench.py JSON")
    parser.add_argument("--markdown", help="also write the tables to this file")
    args = parser.parse_args()

    context, rates = load_rates(args.results)
    out = []
    out.append("Machine: %s CPUs at %s MHz; %s; FLINT %s, abseil %s" % (
        context.get("num_cpus", "?"), context.get("mhz_per_cpu", "?"),
        context.get("date", ""), context.get("kora_have_flint", "?"),
        context.get("kora_have_absl", "?")))
    out.append("")
    if any(n.startswith("qnumber/") for n in rates):
        qnumber_table(rates, out)
    if any(n.startswith("hashtable/") for n in rates):
        hashtable_table(rates, out)
    if any(n.startswith("calc/") for n in rates):
        calc_table(rates, out)
    if any(n.startswith("preprocess/") for n in rates):
        preprocess_table(rates, out)
    if args.adhoc:
        adhoc_table(args.adhoc, out)
    text = "\n".join(out)
    print(text)
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write(text + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
