#!/usr/bin/env python3
"""Reading real SMT-LIB files: kora's ScriptReader against z3's parser.

For every .smt2 file of a directory (../shared/benchmarks/qf_bv by default)
this runs, each in a process of its own and each a few times:

  kora   kora-smtlib-read FILE     ScriptReader over the whole file
  z3     z3 -smt2 COPY             COPY is FILE without check-sat, get-model,
                                   get-value, ... so z3 only parses and
                                   asserts, never solves

and reports per file and per family (the name before the first "__") the
input rate in MB/s and the peak resident set size of each, with the ratios.

Times are the CPU time (user + system) of the whole process, the least of
--repeat runs, less the least CPU time of the same program on a minimal
script (its start-up: loading libraries, z3's initialisation of its
bit-vector theory), so both sides are charged for parsing alone. CPU time rather than wall-clock time, because
the machines this runs on are shared and a waiting process is not working.
kora-smtlib-read also reports the wall-clock time its reader took inside the
process: the "read only" column.
Peak memory is the child's ru_maxrss, taken with os.wait4 for that one child
(getrusage(RUSAGE_CHILDREN) would give the maximum over all children so
far), not corrected for start-up. Linux counts in a child's ru_maxrss the
pages of the process it was spawned from (the exec keeps the old memory's
high-water mark), so a figure is the child's own only when it is above this
interpreter's peak; z3's always are (its start-up alone takes more). kora's
reader is smaller than that, so kora-smtlib-read reports its own peak
(VmHWM from /proc/self/status), which is the figure used for kora.

Python 3 standard library only. Writes a JSON file (--out) and prints a
Markdown table (also kept with --markdown).
"""

import argparse
import json
import os
import re
import resource
import signal
import shutil
import subprocess
import sys
import tempfile
import threading

# Commands that make z3 solve or answer; everything else it parses and keeps.
SOLVING = re.compile(r"^\s*\((check-sat|check-sat-assuming|get-model|get-value|get-assignment|"
                     r"get-unsat-core|get-proof|get-info|echo)\b.*$", re.MULTILINE)

# The start-up that is subtracted: a script that declares and asserts one
# bit-vector term, so that z3's initialisation of its bit-vector theory, paid
# once for any input, is not counted as parsing either.
MINIMAL = "(set-logic QF_BV)\n(declare-fun x () (_ BitVec 8))\n(assert (= x x))\n"


def run_once(argv, timeout):
    """(CPU seconds, peak KiB, exit code, stdout) of one run of argv.

    posix_spawn starts the child without copying this interpreter's memory
    (glibc uses vfork for it), so the child's ru_maxrss is its own; after a
    fork it would count the interpreter's pages as well."""
    read_end, write_end = os.pipe()
    actions = [
        (os.POSIX_SPAWN_DUP2, write_end, 1),
        (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0),
        (os.POSIX_SPAWN_CLOSE, read_end),
        (os.POSIX_SPAWN_CLOSE, write_end),
    ]
    path = shutil.which(argv[0]) or argv[0]
    pid = os.posix_spawn(path, argv, os.environ, file_actions=actions, setsid=True)
    os.close(write_end)
    timer = threading.Timer(timeout, lambda: os.killpg(pid, signal.SIGKILL))
    timer.start()
    with os.fdopen(read_end, "rb") as out:
        text = out.read()
    _, status, usage = os.wait4(pid, 0)
    timer.cancel()
    cpu = usage.ru_utime + usage.ru_stime
    return cpu, usage.ru_maxrss, os.waitstatus_to_exitcode(status), text.decode(errors="replace")


def best_of(argv, repeat, timeout):
    """The run of least CPU time among repeat runs: (seconds, peak KiB, exit code, stdout)."""
    runs = [run_once(argv, timeout) for _ in range(repeat)]
    return min(runs, key=lambda r: r[0])


def solving_removed(path, tmp):
    with open(path, encoding="utf-8", errors="replace") as f:
        text = f.read()
    copy = os.path.join(tmp, os.path.basename(path))
    with open(copy, "w", encoding="utf-8") as f:
        f.write(SOLVING.sub("", text))
    return copy


def family(name):
    return name.split("__", 1)[0]


def measure(args):
    files = sorted(f for f in os.listdir(args.dir) if f.endswith(".smt2"))
    rows = []
    with tempfile.TemporaryDirectory() as tmp:
        empty = os.path.join(tmp, "minimal.smt2")
        with open(empty, "w") as f:
            f.write(MINIMAL)
        base = {
            "kora": best_of([args.kora, empty], args.repeat, args.timeout)[0],
            "z3": best_of([args.z3, "-smt2", empty], args.repeat, args.timeout)[0],
        }
        for name in files:
            path = os.path.join(args.dir, name)
            copy = solving_removed(path, tmp)
            k_sec, k_rss, k_code, k_out = best_of([args.kora, path], args.repeat, args.timeout)
            z_sec, z_rss, z_code, z_out = best_of([args.z3, "-smt2", copy], args.repeat,
                                                  args.timeout)
            report = json.loads(k_out) if k_code == 0 else {}
            rows.append({
                "file": name,
                "family": family(name),
                "bytes": os.path.getsize(path),
                "kora_seconds": max(k_sec - base["kora"], 0.0),
                "kora_read_seconds": report.get("seconds"),
                "kora_peak_kib": report.get("peak_kib") or k_rss,
                "kora_status": "ok" if k_code == 0 else "exit %d" % k_code,
                "z3_seconds": max(z_sec - base["z3"], 0.0),
                "z3_peak_kib": z_rss,
                "z3_peak_is_own": z_rss > resource.getrusage(resource.RUSAGE_SELF).ru_maxrss,
                "z3_status": "ok" if z_code == 0 and "error" not in z_out else
                             "exit %d: %s" % (z_code, z_out.strip()[:80]),
            })
            print("  %-60s kora %.4f s  z3 %.4f s" % (name, rows[-1]["kora_seconds"],
                                                      rows[-1]["z3_seconds"]), file=sys.stderr)
    return base, rows


# Below this much CPU time a difference of two process times says nothing.
RESOLVED = 1e-3


def rate(nbytes, seconds):
    return "%.1f" % (nbytes / 1e6 / seconds) if seconds >= RESOLVED else "-"


def ratio(a, b):
    return "%.2f" % (a / b) if min(a, b) >= RESOLVED else "-"


def file_rows(rows):
    lines = [
        "| File | KB | kora ms | (read only) | z3 ms | kora MB/s | z3 MB/s | time z3/kora "
        "| kora MiB | z3 MiB | memory kora/z3 |",
        "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|",
    ]
    for r in rows:
        status = "" if r["kora_status"] == "ok" and r["z3_status"] == "ok" else \
            " (kora %s, z3 %s)" % (r["kora_status"], r["z3_status"])
        read = r["kora_read_seconds"]
        lines.append("| %s%s | %.0f | %.1f | %s | %.1f | %s | %s | %s | %.1f | %s%.1f | %.2f |" % (
            r["file"], status, r["bytes"] / 1e3, r["kora_seconds"] * 1e3,
            "%.1f" % (read * 1e3) if read is not None else "-", r["z3_seconds"] * 1e3,
            rate(r["bytes"], r["kora_seconds"]), rate(r["bytes"], r["z3_seconds"]),
            ratio(r["z3_seconds"], r["kora_seconds"]),
            r["kora_peak_kib"] / 1024, "" if r["z3_peak_is_own"] else "<= ",
            r["z3_peak_kib"] / 1024, r["kora_peak_kib"] / r["z3_peak_kib"]))
    return lines


def family_rows(rows):
    lines = [
        "| Family | files | MB | kora MB/s | z3 MB/s | time z3/kora | max memory kora/z3 |",
        "|---|---:|---:|---:|---:|---:|---:|",
    ]
    families = {}
    for r in rows:
        families.setdefault(r["family"], []).append(r)
    for name, members in sorted(families.items()) + [("all", rows)]:
        nbytes = sum(r["bytes"] for r in members)
        k = sum(r["kora_seconds"] for r in members)
        z = sum(r["z3_seconds"] for r in members)
        mem = max(r["kora_peak_kib"] / r["z3_peak_kib"] for r in members)
        lines.append("| %s | %d | %.2f | %s | %s | %s | %.2f |" % (
            name, len(members), nbytes / 1e6, rate(nbytes, k), rate(nbytes, z), ratio(z, k), mem))
    return lines


def table(base, rows):
    lines = [
        "Start-up CPU time subtracted: kora %.1f ms, z3 %.1f ms (minimal script, least of runs); "
        "\"-\" where a time is below %.0f ms." % (base["kora"] * 1e3, base["z3"] * 1e3,
                                                RESOLVED * 1e3),
        "",
    ]
    lines += file_rows(rows) + [""] + family_rows(rows)
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--kora", help="the kora-smtlib-read executable")
    parser.add_argument("--z3", default="z3")
    parser.add_argument("--dir", default=os.path.join(os.path.dirname(__file__), "..", "..",
                                                      "shared", "benchmarks", "qf_bv"))
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--timeout", type=float, default=60.0)
    parser.add_argument("--out", help="JSON of every measurement")
    parser.add_argument("--markdown", help="where to keep the table as well")
    parser.add_argument("--from-json", help="print the table of an earlier --out file")
    args = parser.parse_args()
    if args.from_json:
        with open(args.from_json) as f:
            earlier = json.load(f)
        print(table(earlier["startup_seconds"], earlier["files"]))
        return 0
    if not args.kora:
        parser.error("--kora is needed to measure")
    if not os.path.isdir(args.dir):
        print("read_bench: %s is absent; nothing to measure" % args.dir, file=sys.stderr)
        return 0
    if subprocess.run(["sh", "-c", "command -v %s" % args.z3],
                      stdout=subprocess.DEVNULL).returncode != 0:
        print("read_bench: z3 is not installed; nothing to compare with", file=sys.stderr)
        return 0
    base, rows = measure(args)
    text = table(base, rows)
    print(text)
    if args.out:
        with open(args.out, "w") as f:
            json.dump({"startup_seconds": base, "files": rows}, f, indent=1)
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write(text)
    return 0 if all(r["kora_status"] == "ok" for r in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
