#!/usr/bin/env python3
"""Instructions per calculator call, counted by callgrind instead of timed.

    python3 bench/instructions.py build/release/bench/kora-bench [REGEX ...]

For each calculator benchmark whose name matches one of the regexes (default:
every operator at width 8), runs kora-bench once under
valgrind --tool=callgrind with collection switched on only inside the timed
loop (timed_calls for the call and inverter rows, timed_baseline for the
baseline row), for a single iteration of 1024 calls, and prints the
instructions per call and the ratio call/baseline. Instruction counts do not
move with the load of a shared machine, which is why RESULTS.md quotes them
beside the timings. Needs valgrind (KORA_WITH_VALGRIND=1
scripts/install-deps.sh); Python 3 standard library only.
"""

import os
import re
import subprocess
import sys
import tempfile

INSTANCES = 1024


def list_benchmarks(binary):
    out = subprocess.run([binary, "--benchmark_list_tests"], capture_output=True, text=True,
                         check=True).stdout
    return [line.strip() for line in out.splitlines() if line.startswith("calc/")]


def count(binary, name, function):
    with tempfile.TemporaryDirectory() as tmp:
        out_file = os.path.join(tmp, "cg.out")
        command = [
            "valgrind", "--tool=callgrind", "--callgrind-out-file=" + out_file,
            "--toggle-collect=*%s*" % function, binary,
            "--benchmark_filter=^%s$" % re.escape(name), "--benchmark_min_time=0.000001",
        ]
        run = subprocess.run(command, capture_output=True, text=True, check=False)
        iterations = None
        for line in run.stdout.splitlines():
            fields = line.split()
            if fields and fields[0] == name and len(fields) >= 6:
                iterations = int(fields[5])
        with open(out_file) as f:
            total = None
            for line in f:
                if line.startswith("summary:") or line.startswith("totals:"):
                    total = int(line.split()[1])
        if total is None or not iterations:
            raise RuntimeError("no count for %s:\n%s" % (name, run.stderr[-2000:]))
        return total / (iterations * INSTANCES)


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    binary = sys.argv[1]
    patterns = [re.compile(p) for p in (sys.argv[2:] or [r"^calc/[^/]+/(8|bool)/"])]
    names = [n for n in list_benchmarks(binary) if any(p.search(n) for p in patterns)]
    rows = {}
    for name in names:
        _, op, width, mode = name.split("/")
        function = "timed_baseline" if mode == "baseline" else "timed_calls"
        rows.setdefault((op, width), {})[mode] = count(binary, name, function)
    print("| operator | width | call (instr) | baseline (instr) | call/baseline | "
          "inverter (instr) |")
    print("|---|---|---|---|---|---|")
    for (op, width), m in rows.items():
        call, base, inv = m.get("call"), m.get("baseline"), m.get("inverter")
        if base is None:
            # The never-free calculators only throw, and callgrind's switch
            # does not follow an exception out of the loop: no count.
            call = None
        ratio = "%.2fx" % (call / base) if call and base else "-"
        print("| %s | %s | %s | %s | %s | %s |" % (
            op, width, "%.0f" % call if call else "-", "%.0f" % base if base else "-", ratio,
            "%.0f" % inv if inv else "-"))
    return 0


if __name__ == "__main__":
    sys.exit(main())
