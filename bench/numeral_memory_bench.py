#!/usr/bin/env python3
"""Time and peak memory of kora-adhoc on million-bit numerals.

Two kinds of input, each a few KB of script (generated, never committed):

  chain N      the issue's n-ary chain: a 2^20-1-bit constant valued 1 and
               (get-value (((_ extract 7 0) (bvadd c c ... c)))) with N
               arguments; folding it must not keep a full-width numeral (or
               its printed text) per step.
  chain-wide N the same over (bvnot z) with z valued 0: every operand is the
               all-ones numeral, so each step's result is a wide value.
  mul 2^K      (calculate (bvmul f a) v) with a an odd 2^K-bit constant (22
               squarings of 3): the multiplication calculator's extended
               Euclidean algorithm on 2^K-bit numbers.

Each input runs once (or --runs times, the fastest kept) under a time limit
(--timeout, default 120 s); the peak resident set size is that child's own
(os.wait4), and the answer is checked against the value Python computes. A
run that hits the limit is reported as such, with its peak so far unknown.
The first row, "floor", runs an (echo) script: Linux counts the harness's own
image at fork time into a child's peak, so read every peak against it.

Usage:
  python3 bench/numeral_memory_bench.py --kora-adhoc build/release/tools/kora-adhoc \\
      [--out build/release/bench/numeral_memory.json] [--timeout 120] [--runs 1] \\
      [--only chain|chain-wide|mul]

Python 3 standard library only.
"""

import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

WIDE = (1 << 20) - 1


def chain_script(n, wide):
    """The chain input and the expected last line of the answer."""
    if wide:
        head = "(declare-const z (_ BitVec %d))(set-model-value z (_ bv0 %d))" % (WIDE, WIDE)
        operand, total = "(bvnot z) ", -n
    else:
        head = "(declare-const c (_ BitVec %d))(set-model-value c (_ bv1 %d))" % (WIDE, WIDE)
        operand, total = "c ", n
    script = head + "(get-value (((_ extract 7 0) (bvadd " + operand * n + "))))\n"
    return script, "#x%02x))" % (total % 256)


def mul_script(k):
    w = 1 << k
    m = 1 << w
    a = 3
    for _ in range(22):
        a = a * a % m
    v = (m // 3) | 1
    x = pow(a, -1, m) * v % m
    script = (
        "(declare-const f (_ BitVec %d))(declare-const a (_ BitVec %d))\n" % (w, w)
        + "(set-model-value a #x%0*x)(set-free f)\n" % (w // 4, a)
        + "(calculate (bvmul f a) #x%0*x)\n" % (w // 4, v)
        + "(get-value (((_ extract 63 0) f)))\n"
    )
    return script, "#x%016x))" % (x & ((1 << 64) - 1))


def run(binary, path, timeout):
    """(wall seconds, CPU seconds, peak RSS in KiB, stdout, exit status); the
    last three None (and stdout empty) on a timeout."""
    with open(path, "rb") as stdin, tempfile.TemporaryFile() as out:
        start = time.monotonic()
        proc = subprocess.Popen([binary], stdin=stdin, stdout=out, stderr=subprocess.DEVNULL)
        while True:
            pid, status, usage = os.wait4(proc.pid, os.WNOHANG)
            if pid != 0:
                break
            if time.monotonic() - start > timeout:
                proc.send_signal(signal.SIGKILL)
                os.wait4(proc.pid, 0)
                return timeout, None, None, "", None
            time.sleep(0.01)
        elapsed = time.monotonic() - start
        out.seek(0)
        text = out.read().decode()
    # Popen must not wait for the child a second time.
    proc.returncode = os.waitstatus_to_exitcode(status)
    # ru_maxrss is in KiB on Linux. CPU time is the steadier figure on a
    # shared machine.
    return elapsed, usage.ru_utime + usage.ru_stime, usage.ru_maxrss, text, proc.returncode


def cases(only):
    # The floor: Linux counts the harness's own image, as it was when the
    # child was forked, in the child's peak (about 10 MiB of Python), so
    # every row's peak is read against this one.
    rows = [("floor", lambda: ('(echo "x")\n', "x"))]
    if only in (None, "chain"):
        rows += [("chain %d" % n, lambda n=n: chain_script(n, False)) for n in (1000, 4000)]
    if only in (None, "chain-wide"):
        rows += [("chain-wide %d" % n, lambda n=n: chain_script(n, True)) for n in (1000,)]
    if only in (None, "mul"):
        rows += [("mul 2^%d" % k, lambda k=k: mul_script(k)) for k in (16, 18, 20)]
    return rows


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--kora-adhoc", required=True)
    ap.add_argument("--out", default=None)
    ap.add_argument("--timeout", type=float, default=120.0)
    ap.add_argument("--runs", type=int, default=1)
    ap.add_argument("--only", choices=["chain", "chain-wide", "mul"], default=None)
    args = ap.parse_args()

    results = []
    with tempfile.TemporaryDirectory() as tmp:
        for name, make in cases(args.only):
            script, expected_tail = make()
            path = os.path.join(tmp, "input.smt2")
            with open(path, "w") as f:
                f.write(script)
            best = None
            for _ in range(args.runs):
                secs, cpu, rss, out, status = run(args.kora_adhoc, path, args.timeout)
                row = {"case": name, "input_bytes": len(script), "seconds": round(secs, 3),
                       "cpu_seconds": None if cpu is None else round(cpu, 3),
                       "peak_rss_mib": None if rss is None else round(rss / 1024, 1),
                       "exit": status, "timed_out": status is None,
                       "answer_ok": status == 0 and out.rstrip().endswith(expected_tail)}
                if best is None or row["seconds"] < best["seconds"]:
                    best = row
                if status is None:
                    break
            results.append(best)
            if best["timed_out"]:
                shown = ">%.0f s (timeout)" % best["seconds"]
            else:
                shown = "%.3f s (cpu %.3f s)" % (best["seconds"], best["cpu_seconds"])
            mem = "?" if best["peak_rss_mib"] is None else "%.1f MiB" % best["peak_rss_mib"]
            print("%-16s %8d B  %28s  %12s  exit %s  answer %s" % (
                name, best["input_bytes"], shown, mem, best["exit"],
                "ok" if best["answer_ok"] else "WRONG"), flush=True)
    if args.out:
        with open(args.out, "w") as f:
            json.dump(results, f, indent=1)
    return 0 if all(r["answer_ok"] for r in results) else 1


if __name__ == "__main__":
    sys.exit(main())
