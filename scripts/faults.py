#!/usr/bin/env python3
"""Fault injection: which scripted faults does the test suite fail to catch?

  faults.py generate [--per-file N] [--seed S] [--under DIR] > scripts/faults.txt
      Picks up to N mutation sites per source file (src/ and host/, or those under DIR),
      deterministically.
  faults.py run [--build DIR] [--from K] [--to K] [--only RESULTS] [--jobs J] [--target T]...
                [--tests REGEX] FAULTS [RESULTS]
      Applies each fault in turn to the checkout, rebuilds DIR incrementally (only the targets
      T when given), runs the CTest suite (only the tests matching REGEX when given; stopping at
      the first failure), restores the file, and appends one line per
      fault to RESULTS: "<id> caught|survived|invalid". invalid: the fault does not apply to this
      source or does not compile. Interrupting restores the file being mutated. --only: just
      the faults a results file says survived, e.g. the old tests' run of what the new let pass.
  faults.py compare OLD_RESULTS NEW_RESULTS
      Faults OLD caught that NEW lets survive (exit 1 if any), and the reverse.

A fault line is: id<TAB>path<TAB>original line (stripped)<TAB>mutated line (stripped). The
original must occur exactly once in the file, so a fault never lands on the wrong line.
"""
import argparse
import os
import random
import re
import signal
import subprocess
import sys

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# (pattern, replacement): one operator swapped at one place on the line.
OPERATORS = [
    (r" == ", " != "), (r" != ", " == "),
    (r" <= ", " < "), (r" < ", " <= "), (r" >= ", " > "), (r" > ", " >= "),
    (r" && ", " || "), (r" \|\| ", " && "),
    (r" \+ 1\b", " + 0"), (r" - 1\b", " - 0"),
    (r"\breturn true;", "return false;"), (r"\breturn false;", "return true;"),
    (r"\bif \(!", "if ("), (r"\bbreak;", ";"),
]


def source_files(under=None):
    out = subprocess.run(["git", "ls-files"] + ([under] if under else ["src", "host"]), cwd=TOP, capture_output=True,
                         text=True, check=True).stdout.split()
    return sorted(f for f in out if f.endswith(".cpp"))


def candidates(path):
    with open(os.path.join(TOP, path), encoding="utf-8", errors="replace") as f:
        lines = [l.rstrip("\n") for l in f]
    counts = {}
    for l in lines:
        counts[l.strip()] = counts.get(l.strip(), 0) + 1
    sites = []
    for l in lines:
        s = l.strip()
        if not s or s.startswith(("//", "#", "*", "static_assert")) or counts[s] != 1:
            continue
        code = s.split("//")[0]
        if '"' in code:  # keep strings (trace texts, XML names) out of the operator search
            code = re.sub(r'"(\\.|[^"\\])*"', lambda m: "\0" * len(m.group(0)), code)
        for pattern, repl in OPERATORS:
            for m in re.finditer(pattern, code):
                mutated = s[:m.start()] + re.sub(pattern, repl, s[m.start():m.end()]) + s[m.end():]
                sites.append((s, mutated))
    return sites


def generate(args):
    rng = random.Random(args.seed)
    n = 0
    for path in source_files(args.under):
        sites = candidates(path)
        rng.shuffle(sites)
        for original, mutated in sites[:args.per_file]:
            n += 1
            print(f"F{n:03d}\t{path}\t{original}\t{mutated}")


def read_faults(path):
    with open(path, encoding="utf-8") as f:
        for line in f:
            if line.strip() and not line.startswith("#"):
                yield line.rstrip("\n").split("\t")


def apply(path, original, mutated):
    full = os.path.join(TOP, path)
    with open(full, encoding="utf-8") as f:
        text = f.read()
    lines = text.split("\n")
    hits = [i for i, l in enumerate(lines) if l.strip() == original]
    if len(hits) != 1:
        return None
    i = hits[0]
    indent = lines[i][:len(lines[i]) - len(lines[i].lstrip())]
    lines[i] = indent + mutated
    with open(full, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))
    return text


def run(args):
    build = os.path.join(TOP, args.build)
    out = open(args.results, "a") if args.results else sys.stdout
    target = ["--target"] + args.target if args.target else []
    only = None
    if args.only:
        with open(args.only) as f:
            only = {l.split()[0] for l in f if l.strip() and l.split()[1] == "survived"}
    tests = ["-R", args.tests] if args.tests else []
    for fid, path, original, mutated in read_faults(args.faults):
        num = int(fid[1:])
        if num < args.start or num > args.end or (only is not None and fid not in only):
            continue
        saved = apply(path, original, mutated)
        if saved is None:
            print(f"{fid} invalid", file=out, flush=True)
            continue
        full = os.path.join(TOP, path)
        restore = lambda *_: open(full, "w", encoding="utf-8").write(saved)
        old = signal.signal(signal.SIGINT, lambda *a: (restore(), sys.exit(130)))
        try:
            built = subprocess.run(["cmake", "--build", build, "-j", str(args.jobs)] + target,
                                   capture_output=True).returncode == 0
            if not built:
                verdict = "invalid"
            else:
                tested = subprocess.run(["ctest", "--test-dir", build, "-j", str(args.jobs),
                                         "--stop-on-failure", "--timeout", "120", "-Q"] + tests,
                                        capture_output=True)
                verdict = "caught" if tested.returncode != 0 else "survived"
        finally:
            restore()
            signal.signal(signal.SIGINT, old)
        print(f"{fid} {verdict}", file=out, flush=True)
    # Leave the build matching the restored sources.
    subprocess.run(["cmake", "--build", build, "-j", str(args.jobs)] + target, capture_output=True)


def compare(args):
    def load(p):
        with open(p) as f:
            return dict(l.split() for l in f if l.strip())
    old, new = load(args.old), load(args.new)
    lost = sorted(k for k, v in old.items() if v == "caught" and new.get(k) == "survived")
    gained = sorted(k for k, v in new.items() if v == "caught" and old.get(k) == "survived")
    both = [k for k in old if k in new and old[k] != "invalid" and new[k] != "invalid"]
    print(f"compared {len(both)} faults: old catches {sum(old[k] == 'caught' for k in both)}, "
          f"new catches {sum(new[k] == 'caught' for k in both)}")
    print("caught before, missed now:", " ".join(lost) or "none")
    print("missed before, caught now:", " ".join(gained) or "none")
    return 1 if lost else 0


def main():
    p = argparse.ArgumentParser()
    sub = p.add_subparsers(dest="cmd", required=True)
    g = sub.add_parser("generate")
    g.add_argument("--per-file", type=int, default=4)
    g.add_argument("--seed", type=int, default=12)
    g.add_argument("--under")
    r = sub.add_parser("run")
    r.add_argument("--build", default="build")
    r.add_argument("--from", dest="start", type=int, default=0)
    r.add_argument("--to", dest="end", type=int, default=10**9)
    r.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    r.add_argument("--target", action="append")
    r.add_argument("--only")
    r.add_argument("--tests")
    r.add_argument("faults")
    r.add_argument("results", nargs="?")
    c = sub.add_parser("compare")
    c.add_argument("old")
    c.add_argument("new")
    a = p.parse_args()
    return {"generate": generate, "run": run, "compare": compare}[a.cmd](a) or 0


if __name__ == "__main__":
    sys.exit(main())
