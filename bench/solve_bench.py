#!/usr/bin/env python3
"""kora-solve against its back ends on the real QF_BV corpus.

For every benchmark file and every installed back end, one run at a time:
the back end alone on the original file, then
`kora-solve --solver X --stats --check-models` on the same file, each with
the same time limit. Prints per family: files solved, total time (a time-out
counts at the limit), the kora-solve/back-end ratio per file, eliminations,
and whether every model was validated by kora and confirmed by the back end;
then kora's own share of the time and the files that miss the targets.

Any answer that contradicts the back end alone, or a model that kora or the
back end rejects, is flagged loudly and makes the exit status 1.

Only the Python 3 standard library is used.
"""

import argparse
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections import OrderedDict

# The back end alone is run with the same options kora-solve gives it, so
# that the ratio measures kora and not a difference of options.
ALONE = {
    "z3": ["z3", "-smt2"],
    "cvc5": ["cvc5", "--lang", "smt2", "--produce-models"],
    "boolector": ["boolector", "--smt2", "-m"],
}
ANSWERS = ("sat", "unsat", "unknown")
KORA_PHASES = ("read", "simplify", "rebuild", "validate")
# Headroom over the limit before the harness kills a run itself: kora-solve
# kills its back end at --timeout, the confirmation run has its own limit.
GRACE = 5.0


def run(argv, limit):
    """Runs argv; returns (seconds, stdout, stderr, exit code or None on time-out)."""
    start = time.monotonic()
    proc = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            stdin=subprocess.DEVNULL, start_new_session=True, text=True)
    try:
        out, err = proc.communicate(timeout=limit)
        code = proc.returncode
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, err = proc.communicate()
        code = None
    return time.monotonic() - start, out, err, code


def first_answer(out):
    for line in out.splitlines():
        word = line.strip()
        if word in ANSWERS:
            return word
    return None


def run_alone(solver, path, limit):
    seconds, out, err, code = run(ALONE[solver] + [path], limit)
    answer = first_answer(out) if code is not None else None
    if code is None:
        answer = "timeout"
    elif answer is None:
        answer = "error"
    # A back end that cannot read the file (Boolector 1.5 refuses define-fun)
    # has not solved it: its run counts at the limit, as a time-out does.
    if answer == "error":
        seconds = limit
    return {"answer": answer, "seconds": min(seconds, limit), "exit": code,
            "stderr": err.strip()[:300]}


STAT = re.compile(r":kora-([a-z-]+) ([0-9.]+|sat|unsat|unknown)")


def parse_stats(err):
    """The last statistics line of kora-solve's standard error, as a dict."""
    stats = {}
    for line in err.splitlines():
        if line.startswith("(:kora-result"):
            stats = {k: v for k, v in STAT.findall(line)}
            by_op = re.search(r":kora-eliminated-by-op \((.*?)\) :kora-narrow", line)
            stats["by-op"] = by_op.group(1) if by_op else ""
    return stats


def run_kora(kora, solver, path, limit):
    argv = [kora, "--solver", solver, "--stats", "--check-models", "--timeout", str(limit), path]
    seconds, out, err, code = run(argv, 2 * limit + GRACE)
    stats = parse_stats(err)
    answer = first_answer(out) if code is not None else "timeout"
    if answer is None:
        answer = "error"
    if answer == "unknown":
        answer = "timeout"
    errors = [line for line in out.splitlines() if line.startswith("(error")]
    solve = sum(float(stats.get(p + "-seconds", 0)) for p in KORA_PHASES + ("backend",))
    result = {
        "answer": answer,
        "exit": code,
        "wall": seconds,
        # The time to the answer: kora's phases and the back end's run, not
        # the confirmation run that --check-models adds after it.
        "seconds": min(solve, limit) if stats and answer != "timeout" else limit,
        "own": sum(float(stats.get(p + "-seconds", 0)) for p in KORA_PHASES),
        "backend": float(stats.get("backend-seconds", 0)),
        "eliminated": int(stats.get("eliminated", 0)),
        "by_op": stats.get("by-op", ""),
        "fallbacks": int(stats.get("fallbacks", 0)),
        "errors": errors,
        "stderr": "" if stats else err.strip()[:300],
    }
    result["validated"] = answer != "sat" or (
        result["fallbacks"] == 0 and not any("does not satisfy" in e for e in errors))
    result["confirmed"] = answer != "sat" or not any("not confirmed" in e for e in errors)
    if code not in (0, None) or (errors and answer != "sat"):
        result["crash"] = True
    return result


def family_of(path):
    return os.path.basename(path).split("__")[0]


def solved(answer):
    return answer in ("sat", "unsat")


def median_run(runs):
    """The run of median time; runs with different answers are all kept for checking."""
    return sorted(runs, key=lambda r: r["seconds"])[len(runs) // 2]


def check_file(kora, solver, path, limit, repeat=1):
    alones, koras = [], []
    for _ in range(repeat):
        alones.append(run_alone(solver, path, limit))
        koras.append(run_kora(kora, solver, path, limit))
    alone = median_run(alones)
    kora_run = median_run(koras)
    problems = []
    for a in alones:
        for k in koras:
            if solved(a["answer"]) and solved(k["answer"]) and a["answer"] != k["answer"]:
                problems.append("DISAGREEMENT in a repeated run: %s alone says %s, kora-solve "
                                "says %s" % (solver, a["answer"], k["answer"]))
    for k in koras:
        if not (k["validated"] and k["confirmed"]) or k.get("crash"):
            problems.append("A REPEATED RUN FAILED: %s %s" % (k["errors"], k["stderr"]))
    if solved(alone["answer"]) and solved(kora_run["answer"]) and \
            alone["answer"] != kora_run["answer"]:
        problems.append("DISAGREEMENT: %s alone says %s, kora-solve says %s"
                        % (solver, alone["answer"], kora_run["answer"]))
    if not kora_run["validated"]:
        problems.append("INVALID MODEL: kora's validation failed (fallbacks %d)"
                        % kora_run["fallbacks"])
    if not kora_run["confirmed"]:
        problems.append("MODEL NOT CONFIRMED by %s" % solver)
    if kora_run.get("crash") or kora_run["answer"] == "error":
        problems.append("KORA-SOLVE FAILED (exit %s): %s %s"
                        % (kora_run["exit"], kora_run["errors"], kora_run["stderr"]))
    return {"file": os.path.basename(path), "family": family_of(path), "solver": solver,
            "alone": alone, "kora": kora_run, "problems": problems}


def ratio(row):
    a = row["alone"]["seconds"]
    k = row["kora"]["seconds"]
    return k / a if a > 0 else float("inf")


def fmt_s(s):
    return "%.2f" % s


def show(answer, seconds):
    return ("t/o" if answer == "timeout" else answer) + " " + fmt_s(seconds)


def family_tables(rows, limit):
    lines = []
    families = OrderedDict()
    for r in rows:
        families.setdefault(r["family"], []).append(r)
    for family, frows in families.items():
        lines.append("")
        lines.append("### %s" % family)
        lines.append("")
        lines.append("| solver | solved alone | solved kora | total alone s | total kora s "
                     "| ratios kora/alone | eliminated | models valid+confirmed |")
        lines.append("|---|---|---|---|---|---|---|---|")
        for solver in OrderedDict((r["solver"], 1) for r in frows):
            srows = [r for r in frows if r["solver"] == solver]
            sats = [r for r in srows if r["kora"]["answer"] == "sat"]
            good = [r for r in sats if r["kora"]["validated"] and r["kora"]["confirmed"]]
            lines.append("| %s | %d/%d | %d/%d | %s | %s | %s | %s | %s |" % (
                solver,
                sum(solved(r["alone"]["answer"]) for r in srows), len(srows),
                sum(solved(r["kora"]["answer"]) for r in srows), len(srows),
                fmt_s(sum(r["alone"]["seconds"] for r in srows)),
                fmt_s(sum(r["kora"]["seconds"] for r in srows)),
                " ".join("%.2f" % ratio(r) for r in srows),
                " ".join(str(r["kora"]["eliminated"]) for r in srows),
                "%d/%d" % (len(good), len(sats)) if sats else "no sat"))
    return lines


def detail_table(rows):
    lines = ["", "| file | solver | alone | kora-solve | ratio | eliminated | kora own s "
             "| back end s | own share | confirm s |", "|---|---|---|---|---|---|---|---|---|---|"]
    for r in rows:
        k = r["kora"]
        total = k["own"] + k["backend"]
        share = k["own"] / total if total > 0 else 0.0
        confirm = max(k["wall"] - k["own"] - k["backend"], 0.0) if k["answer"] == "sat" else 0.0
        lines.append("| %s | %s | %s | %s | %.2f | %d | %.3f | %.3f | %.1f%% | %.2f |" % (
            r["file"], r["solver"], show(r["alone"]["answer"], r["alone"]["seconds"]),
            show(k["answer"], k["seconds"]), ratio(r), k["eliminated"], k["own"], k["backend"],
            100 * share, confirm))
    return lines


def targets(rows):
    lines = ["", "Targets:", ""]
    slow = [r for r in rows if r["alone"]["seconds"] > 1 and solved(r["alone"]["answer"])
            and ratio(r) > 1.2]
    heavy = []
    for r in rows:
        k = r["kora"]
        total = k["own"] + k["backend"]
        if total > 1 and k["own"] > 0.1 * total:
            heavy.append((r, k["own"] / total))
    bb4 = [r for r in rows if r["family"] == "brummayerbiere4"]
    bb4_bad = [r for r in bb4 if not (r["kora"]["answer"] == "sat" and r["kora"]["seconds"] < 1
                                      and r["kora"]["validated"] and r["kora"]["confirmed"])]
    lines.append("- brummayerbiere4 `sat`, valid and confirmed, under 1 s: %d/%d runs%s" % (
        len(bb4) - len(bb4_bad), len(bb4),
        "" if not bb4_bad else " (missed: " + ", ".join(
            "%s/%s %s" % (r["file"], r["solver"], show(r["kora"]["answer"], r["kora"]["seconds"]))
            for r in bb4_bad) + ")"))
    lines.append("- kora's own time over 10%% of a total above 1 s: %d run(s)%s" % (
        len(heavy), "" if not heavy else " (" + ", ".join(
            "%s/%s %.0f%%" % (r["file"], r["solver"], 100 * s) for r, s in heavy) + ")"))
    lines.append("- over 1.2x slower than the back end alone (alone solved in over 1 s): "
                 "%d run(s)%s" % (len(slow), "" if not slow else " (" + ", ".join(
                     "%s/%s %.2fx (%.2f s vs %.2f s)" % (
                         r["file"], r["solver"], ratio(r), r["kora"]["seconds"],
                         r["alone"]["seconds"]) for r in slow) + ")"))
    problems = [p for r in rows for p in r["problems"]]
    lines.append("- disagreements, invalid or unconfirmed models, failures: %d" % len(problems))
    return lines


def cpu_run(argv, limit):
    """Runs argv; returns (user + system CPU seconds of it and its children,
    stdout, stderr, exit code or None on time-out). CPU time, unlike wall
    time, hardly moves with the load of a shared machine."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    _, out, err, code = run(argv, limit)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return cpu, out, err, code


def z3_conflicts(path, limit):
    """z3's conflict count on a script (deterministic, whatever the load)."""
    _, out, _, code = run(["z3", "-st", "-smt2", path], limit)
    if code is None:
        return None
    counts = re.findall(r":(?:sat-)?conflicts\s+(\d+)", out)
    return sum(int(c) for c in counts) if counts else 0


def median_cpu(argv, limit, repeat):
    """The median CPU time of `repeat` runs (None: a time-out), and the
    answer of the first."""
    cpus, answer = [], None
    for _ in range(repeat):
        cpu, out, _, code = cpu_run(argv, limit)
        answer = answer or first_answer(out)
        cpus.append(cpu if code is not None and first_answer(out) in ("sat", "unsat") else None)
    cpus.sort(key=lambda c: float("inf") if c is None else c)
    return cpus[len(cpus) // 2], answer


def counters_row(kora, solver, path, limit, repeat):
    """The back end alone and kora-solve with each --print-form, by CPU time,
    and for z3 the conflicts on the original file and on each script sent."""
    row = {"file": os.path.basename(path)[:-len(".smt2")], "solver": solver}
    cpu, answer = median_cpu(ALONE[solver] + [path], limit, repeat)
    row["alone"] = {"cpu": cpu, "answer": answer}
    if solver == "z3":
        row["alone"]["conflicts"] = z3_conflicts(path, limit)
    for form in ("written", "kora"):
        with tempfile.NamedTemporaryFile(suffix=".smt2") as dump:
            argv = [kora, "--solver", solver, "--timeout", str(limit), "--print-form", form,
                    "--dump-reduced", dump.name, path]
            cpu, answer = median_cpu(argv, limit + GRACE, repeat)
            run_row = {"cpu": cpu, "answer": answer}
            if solver == "z3":
                run_row["conflicts"] = z3_conflicts(dump.name, limit)
        row[form] = run_row
    return row


def counters_table(rows, limit, repeat):
    def cell(r, key):
        cpu = r[key]["cpu"]
        text = "timeout" if cpu is None else "%.2f" % cpu
        if r[key].get("conflicts") is not None:
            text += " (%d)" % r[key]["conflicts"]
        return text

    def ratio_of(r, key):
        a, k = r["alone"]["cpu"], r[key]["cpu"]
        if a is None:
            return "-"
        return ">%.1fx" % (limit / a) if k is None else "%.2fx" % (k / a)

    out = ["", "CPU seconds (user + system, back end included; z3's conflicts in parentheses),",
           "limit %g s, median of %d:" % (limit, repeat), "",
           "| file | solver | alone | kora-solve, written form | ratio | kora-solve, kora's printer | ratio |",
           "|---|---|---|---|---|---|---|"]
    for r in rows:
        out.append("| %s | %s | %s | %s | %s | %s | %s |" % (
            r["file"], r["solver"], cell(r, "alone"), cell(r, "written"), ratio_of(r, "written"),
            cell(r, "kora"), ratio_of(r, "kora")))
    return out


def counters_main(args, files, solvers):
    rows = []
    for path in files:
        for solver in solvers:
            row = counters_row(args.kora_solve, solver, path, args.limit, args.repeat)
            rows.append(row)
            print(json.dumps(row), file=sys.stderr, flush=True)
    text = "\n".join(counters_table(rows, args.limit, args.repeat)) + "\n"
    print(text)
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write(text)
    bad = [r for r in rows for k in ("written", "kora")
           if r["alone"]["answer"] in ("sat", "unsat") and r[k]["answer"] in ("sat", "unsat")
           and r[k]["answer"] != r["alone"]["answer"]]
    for r in bad:
        print("!!! %s / %s: answers disagree" % (r["file"], r["solver"]), file=sys.stderr)
    return 1 if bad else 0


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    p.add_argument("--kora-solve", required=True)
    p.add_argument("--corpus", default="../shared/benchmarks/qf_bv")
    p.add_argument("--limit", type=float,
                   default=float(os.environ.get("KORA_SOLVE_LIMIT", "20")),
                   help="seconds per run (default 20, or $KORA_SOLVE_LIMIT)")
    p.add_argument("--solvers", default="z3,cvc5,boolector",
                   help="comma-separated; those not installed are skipped")
    p.add_argument("--filter", default="", help="only files whose name contains one of these (comma-separated)")
    p.add_argument("--repeat", type=int, default=1,
                   help="runs per file and solver; the median time is reported")
    p.add_argument("--from-json", help="print the tables of an earlier run's --out file")
    p.add_argument("--out", help="write every run as JSON here")
    p.add_argument("--markdown", help="write the tables here")
    p.add_argument("--counters", action="store_true",
                   help="compare by CPU time and z3's conflicts instead: the back end alone, "
                        "kora-solve with the written form and with kora's printer")
    args = p.parse_args()

    solvers = []
    for s in args.solvers.split(","):
        if shutil.which(ALONE[s][0]):
            solvers.append(s)
        else:
            print("skipping %s: not installed" % s, file=sys.stderr)
    filters = args.filter.split(",")
    files = sorted(os.path.join(args.corpus, f) for f in os.listdir(args.corpus)
                   if f.endswith(".smt2") and any(x in f for x in filters))
    print("%d files x %s, limit %g s per run" % (len(files), ",".join(solvers), args.limit),
          file=sys.stderr)
    if args.counters:
        return counters_main(args, files, solvers)

    rows = []
    if args.from_json:
        with open(args.from_json) as f:
            rows = json.load(f)
        files = sorted({r["file"] for r in rows})
        for r in rows:
            if r["alone"]["answer"] == "error":
                r["alone"]["seconds"] = args.limit
    for path in files if not args.from_json else []:
        for solver in solvers:
            row = check_file(args.kora_solve, solver, path, args.limit, args.repeat)
            rows.append(row)
            print("%-60s %-9s alone %-14s kora %-14s elim %5d%s" % (
                row["file"][:60], solver, show(row["alone"]["answer"], row["alone"]["seconds"]),
                show(row["kora"]["answer"], row["kora"]["seconds"]), row["kora"]["eliminated"],
                "".join("\n    !!! " + p for p in row["problems"])), file=sys.stderr, flush=True)

    report = ["## kora-solve on %d files, limit %g s per run%s" % (
        len(files), args.limit, "" if args.repeat == 1 else ", median of %d" % args.repeat)]
    report += family_tables(rows, args.limit)
    report += detail_table(rows)
    report += targets(rows)
    text = "\n".join(report) + "\n"
    print(text)
    if args.out and not args.from_json:
        with open(args.out, "w") as f:
            json.dump(rows, f, indent=1)
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write(text)
    problems = [(r["file"], r["solver"], p) for r in rows for p in r["problems"]]
    if problems:
        print("\n!!! %d PROBLEM(S):" % len(problems), file=sys.stderr)
        for f, s, p in problems:
            print("!!! %s / %s: %s" % (f, s, p), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
