#!/usr/bin/env python3
"""Runs this tree's suite against the mutants of an earlier mutation report, so that two versions of
the tests are compared on the same faults after the code they mutate has moved.

A mutation report (JSON: {"mutants": [{"file", "line", "operator", "before", "after", "outcome"}]})
names each mutant by its line's text before and after. Each mutant is found again in src/ by that
text (in its old file when the text is still there, else wherever it moved; the nearest line to its
old number when it occurs more than once), applied, built in a Debug tree with the tools, and the
suite run until its first failure. Sources are restored after every mutant.

Usage (from the repository root):
    scripts/remutate.py OLD-REPORT.json [--out NEW.json] [--from N]
"""
import argparse
import glob
import json
import os
import signal
import subprocess
import sys

ROOT = os.getcwd()
BUILD = os.path.join(ROOT, "build", "mutants")


def run(cmd, timeout):
    try:
        done = subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=timeout, text=True, errors="replace")
        return done.returncode
    except subprocess.TimeoutExpired:
        return None


def suite_fails():
    """The names of the first failing tests, or [] when the whole suite passes."""
    ctest = subprocess.Popen(["ctest", "--test-dir", BUILD, "-j2", "--timeout", "120"], cwd=ROOT,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                             errors="replace", start_new_session=True)
    failed = []
    for line in ctest.stdout:
        if "***" in line:  # ***Failed, ***Timeout, ***Exception
            failed.append(line.strip())
            # The outcome is settled: do not wait for the tests still running beside it, nor for
            # the helpers some of them start in process groups of their own.
            os.killpg(ctest.pid, signal.SIGKILL)
            subprocess.run(["pkill", "-9", "-f", BUILD + "/"])
            subprocess.run(["pkill", "-9", "-f", os.path.join(ROOT, "tests", "data") + "/"])
            break
    ctest.wait()
    if not failed and ctest.returncode != 0:
        failed.append(f"ctest exited with {ctest.returncode}")
    return failed


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("report")
    ap.add_argument("--out", help="write every mutant's old and new outcome to this JSON file")
    ap.add_argument("--from", dest="start", type=int, default=1, help="begin at mutant N")
    args = ap.parse_args()

    files = sorted(glob.glob("src/**/*.cpp", recursive=True))
    texts = {f: open(f, encoding="utf-8").read().split("\n") for f in files}

    def locate(m):
        hits = [(f, i) for f in files for i, line in enumerate(texts[f])
                if line.strip() == m["before"]]
        pool = [h for h in hits if h[0] == m["file"]] or hits
        return min(pool, key=lambda h: abs(h[1] + 1 - m["line"])) if pool else None

    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DORVEX_BUILD_TOOLS=ON", "-DORVEX_BUILD_BENCH=OFF", "-DORVEX_BUILD_FUZZ=OFF"],
                   check=True, stdout=subprocess.DEVNULL)
    if run(["cmake", "--build", BUILD, "-j2"], 1800) != 0 or suite_fails():
        print("the unmutated tree does not build or its suite fails; fix that first", file=sys.stderr)
        return 2

    mutants = json.load(open(args.report, encoding="utf-8"))["mutants"]
    results = []
    try:
        for n, m in enumerate(mutants, 1):
            if n < args.start:
                continue
            where, failed = locate(m), []
            if where is None:
                now = "unmapped"
            else:
                path, i = where
                lines = texts[path]
                mutated = list(lines)
                mutated[i] = lines[i][: len(lines[i]) - len(lines[i].lstrip())] + m["after"]
                with open(path, "w", encoding="utf-8") as f:
                    f.write("\n".join(mutated))
                try:
                    if run(["cmake", "--build", BUILD, "-j2"], 300) != 0:
                        now = "unviable"
                    else:
                        failed = suite_fails()
                        now = "killed" if failed else "survived"
                finally:
                    with open(path, "w", encoding="utf-8") as f:
                        f.write("\n".join(lines))
            place = f"{where[0]}:{where[1] + 1}" if where else "-"
            results.append(dict(m, then=m["outcome"], now=now, where=place, failed=failed))
            print(f"[{n}/{len(mutants)}] then {m['outcome']}, now {now}: {place} {m['operator']}: "
                  f"{m['after']}", flush=True)
    finally:
        for path, lines in texts.items():
            with open(path, "w", encoding="utf-8") as f:
                f.write("\n".join(lines))
        run(["cmake", "--build", BUILD, "-j2"], 1800)

    killed = sum(r["now"] == "killed" for r in results)
    survived = [r for r in results if r["now"] == "survived"]
    for r in survived:
        print(f"  survived ({r['then']} before): {r['where']} {r['operator']}: {r['after']}")
    viable = killed + len(survived)
    print(f"killed {killed}, survived {len(survived)}; score {killed / viable if viable else 0:.3f}")
    if args.out:
        with open(args.out, "w", encoding="utf-8") as f:
            json.dump(results, f, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
