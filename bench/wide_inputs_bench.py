#!/usr/bin/env python3
"""Wall time and peak memory of kora-adhoc on small inputs over wide values.

Each input is a few hundred bytes that asks the complete inverter for a value
at widths up to 2^20 bits: a square root, shift amounts, a value shifted by
itself, and a 16-bit free constant searched under million-bit arithmetic.
Every input runs in a fresh kora-adhoc process, capped by --timeout; a run
that hits the cap is reported as "> N s". Peak memory is the child's maximum
resident set size (os.wait4), so neither /usr/bin/time nor any other tool is
needed.

    python3 bench/wide_inputs_bench.py --kora-adhoc build/release/tools/kora-adhoc \\
        --out build/release/bench/wide_inputs.json [--before OLD.json]

With --before (a JSON file written by an earlier run, for instance with a
kora-adhoc built from an older commit) the table shows both figures side by
side.

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

W = 1 << 20


def _free(name, width):
    return "(declare-const %s (_ BitVec %d))(set-free %s)\n" % (name, width, name)


def _search(inner_op):
    # x + (the low 16 bits of a million-bit value built from x) = 0 has no
    # solution (the sum is odd), so the whole search space is visited.
    inner = {
        "bvmul": "(bvmul (bvnot ((_ zero_extend %d) x)) (bvnot (_ bv0 %d)))" % (W - 16, W),
        "bvadd": "(bvadd (bvnot (_ bv0 %d)) ((_ zero_extend %d) x))" % (W, W - 16),
    }[inner_op]
    return _free("x", 16) + "(invert (bvadd x ((_ extract 15 0) %s)) #x0000)\n" % inner


# (issue item, name, script): each script is well formed, so the exit status must be 0.
INPUTS = [
    ("5", "invert bvmul x x = 9 (2^20)",
     _free("x", W) + "(invert (bvmul x x) (_ bv9 %d))\n" % W),
    ("6", "invert bvshl ones x = 3 (2^20)",
     _free("x", W) + "(invert (bvshl (bvnot (_ bv0 %d)) x) (_ bv3 %d))\n" % (W, W)),
    ("6", "invert bvlshr ones x = 5 (2^20)",
     _free("x", W) + "(invert (bvlshr (bvnot (_ bv0 %d)) x) (_ bv5 %d))\n" % (W, W)),
    ("7", "invert bvshl x x = 3 (2^20)",
     _free("x", W) + "(invert (bvshl x x) (_ bv3 %d))\n" % W),
    ("9", "search x:16 under 2^20-bit bvmul", _search("bvmul")),
    ("9", "search x:16 under 2^20-bit bvadd", _search("bvadd")),
]


def run_one(binary, path, timeout):
    """(seconds, peak KiB, status) of one run; status is 'ok', 'exit N' or 'timeout'."""
    start = time.monotonic()
    child = subprocess.Popen([binary, path], stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, start_new_session=True)
    while True:
        pid, status, usage = os.wait4(child.pid, os.WNOHANG)
        elapsed = time.monotonic() - start
        if pid != 0:
            child.returncode = os.waitstatus_to_exitcode(status)
            code = child.returncode
            return elapsed, usage.ru_maxrss, "ok" if code == 0 else "exit %d" % code
        if elapsed > timeout:
            os.killpg(child.pid, signal.SIGKILL)
            _, _, usage = os.wait4(child.pid, 0)
            child.returncode = -signal.SIGKILL
            return elapsed, usage.ru_maxrss, "timeout"
        time.sleep(0.005)


def measure(binary, timeout):
    rows = []
    with tempfile.TemporaryDirectory() as tmp:
        for number, (item, name, script) in enumerate(INPUTS):
            path = os.path.join(tmp, "input%d.smt2" % number)
            with open(path, "w") as f:
                f.write(script)
            seconds, peak, status = run_one(binary, path, timeout)
            rows.append({"item": item, "name": name, "bytes": len(script),
                         "seconds": round(seconds, 4), "peak_kib": peak,
                         "status": status, "timeout": timeout})
    return rows


def time_text(row):
    if row["status"] == "timeout":
        return "> %g s" % row["timeout"]
    return "%.3f s" % row["seconds"]


def memory_text(row):
    prefix = ">= " if row["status"] == "timeout" else ""
    return "%s%.1f MiB" % (prefix, row["peak_kib"] / 1024.0)


def table(rows, before):
    old = {r["name"]: r for r in before or []}
    lines = []
    if before:
        lines.append("| item | input | bytes | time before | time after | peak before | peak after |")
        lines.append("|---|---|---|---|---|---|---|")
    else:
        lines.append("| item | input | bytes | time | peak memory | status |")
        lines.append("|---|---|---|---|---|---|")
    for r in rows:
        if before:
            b = old.get(r["name"])
            lines.append("| %s | %s | %d | %s | %s | %s | %s |" % (
                r["item"], r["name"], r["bytes"], time_text(b) if b else "-", time_text(r),
                memory_text(b) if b else "-", memory_text(r)))
        else:
            lines.append("| %s | %s | %d | %s | %s | %s |" % (
                r["item"], r["name"], r["bytes"], time_text(r), memory_text(r), r["status"]))
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--kora-adhoc", required=True, help="the kora-adhoc binary to measure")
    parser.add_argument("--out", help="write the rows as JSON here")
    parser.add_argument("--timeout", type=float, default=60.0, help="cap per input, seconds")
    parser.add_argument("--before", help="JSON of an earlier run to compare with")
    args = parser.parse_args()

    rows = measure(args.kora_adhoc, args.timeout)
    before = None
    if args.before:
        with open(args.before) as f:
            before = json.load(f)["rows"]
    print(table(rows, before))
    if args.out:
        os.makedirs(os.path.dirname(os.path.abspath(args.out)), exist_ok=True)
        with open(args.out, "w") as f:
            json.dump({"kora_adhoc": args.kora_adhoc, "rows": rows}, f, indent=1)
    failed = [r for r in rows if r["status"] != "ok"]
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
