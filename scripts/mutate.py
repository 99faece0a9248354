#!/usr/bin/env python3
"""Mutation testing: applies each mutant of a list, one at a time, rebuilds incrementally, runs
the test suite and says whether a test failed (killed) or none did (survived).

    scripts/mutate.py [--build DIR] [--list FILE] [--only N[,N...]] [--ctest-args "..."]

DIR is a configured build folder (default build, as scripts/test.sh leaves it); FILE defaults to
scripts/mutants.txt, whose header gives its form. Every source file is put back as it was after
each mutant, also when the run is interrupted. Prints a table (mutant, what it breaks, killed by
which test or survived) and the share killed; exits 1 when a mutant does not apply (the list is
stale) or fewer than 90 % are killed.
"""
import argparse
import os
import re
import shlex
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def read_list(path):
    mutants = []
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            parts = [p.strip() for p in line.split("|||")]
            if len(parts) != 4:
                sys.exit(f"{path}:{number}: expected FILE ||| OLD ||| NEW ||| what it breaks")
            file, old, new, why = parts
            mutants.append({"line": number, "file": file, "old": old.replace("\\n", "\n"),
                            "new": new.replace("\\n", "\n"), "why": why})
    return mutants


def run(command, timeout):
    try:
        done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=timeout)
        return done.returncode, done.stdout
    except subprocess.TimeoutExpired as expired:
        out = expired.stdout or ""
        return -1, out if isinstance(out, str) else out.decode(errors="replace")


def first_failure(ctest_output):
    failed = re.findall(r"^\s*\d+ - (\S+).*\((Failed|SEGFAULT|Subprocess aborted|Timeout|Exception|Child aborted)\)",
                        ctest_output, re.M)
    return failed[0][0] if failed else "(ctest failed)"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build")
    parser.add_argument("--list", default=os.path.join(ROOT, "scripts", "mutants.txt"))
    parser.add_argument("--only", help="numbers of the mutants to run (1-based, in list order)")
    parser.add_argument("--ctest-args", default="", help="more arguments for ctest, such as -R pcfg_")
    args = parser.parse_args()

    mutants = read_list(args.list)
    chosen = range(1, len(mutants) + 1)
    if args.only:
        try:
            chosen = [int(n) for n in args.only.split(",")]
        except ValueError:
            sys.exit(f"mutate: --only takes mutant numbers separated by commas, not {args.only!r}")
        missing = [n for n in chosen if not 1 <= n <= len(mutants)]
        if missing:
            sys.exit(f"mutate: no mutant {missing[0]}: the list has {len(mutants)}")
    jobs = str(os.cpu_count() or 2)
    rows, stale = [], 0
    originals = {}

    def restore(*_):
        for path, text in originals.items():
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
        originals.clear()

    def interrupted(signum, _frame):
        restore()
        sys.exit(128 + signum)

    signal.signal(signal.SIGINT, interrupted)
    signal.signal(signal.SIGTERM, interrupted)

    # The suite must pass before any mutant means anything.
    status, out = run(["cmake", "--build", args.build, "-j", jobs], 1800)
    if status != 0:
        sys.exit("mutate: the unmutated build fails:\n" + out[-3000:])

    for n in chosen:
        m = mutants[n - 1]
        path = os.path.join(ROOT, m["file"])
        with open(path, encoding="utf-8") as f:
            text = f.read()
        if text.count(m["old"]) != 1:
            rows.append((n, m, "STALE", f"old text found {text.count(m['old'])} times", 0))
            stale += 1
            continue
        start = time.time()
        originals[path] = text
        try:
            with open(path, "w", encoding="utf-8") as f:
                f.write(text.replace(m["old"], m["new"]))
            status, out = run(["cmake", "--build", args.build, "-j", jobs], 1800)
            if status != 0:
                verdict, by = "killed", "(does not compile)"
            else:
                # A mutant's text is not laid out as clang-format would: the layout check fails on
                # it whatever the code does, so it has no say here.
                status, out = run(["ctest", "--test-dir", args.build, "-j", jobs, "--stop-on-failure",
                                   "--timeout", "120", "-E", "^sources_are_clang_formatted$"] +
                                  shlex.split(args.ctest_args), 1800)
                verdict, by = ("survived", "") if status == 0 else ("killed", first_failure(out))
        finally:
            restore()
        rows.append((n, m, verdict, by, time.time() - start))
        print(f"mutate: {n:2}/{len(mutants)} {verdict:8} {m['file']}:{m['why']} {by}", flush=True)

    # Rebuild the unmutated sources, so that the folder is left as it was found.
    run(["cmake", "--build", args.build, "-j", jobs], 1800)
    print("\n| # | file | what it breaks | result | first test that failed |")
    print("|---:|---|---|---|---|")
    for n, m, verdict, by, _ in rows:
        print(f"| {n} | `{m['file']}` | {m['why']} | {verdict} | {by} |")
    applied = [r for r in rows if r[2] != "STALE"]
    killed = sum(1 for r in applied if r[2] == "killed")
    share = 100.0 * killed / len(applied) if applied else 0.0
    print(f"\nmutate: {killed} of {len(applied)} mutants killed ({share:.0f} %), {stale} stale")
    for n, m, verdict, _, _ in rows:
        if verdict == "survived":
            print(f"mutate: survived: #{n} {m['file']}: {m['why']}")
    return 0 if stale == 0 and share >= 90.0 else 1


if __name__ == "__main__":
    sys.exit(main())
