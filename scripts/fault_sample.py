#!/usr/bin/env python3
"""Plants faults in the plug-in's own code and checks that the tests catch them.

A fault is one small change of one line (a flipped comparison, an off-by-one
constant, a wrong return code, an inverted condition). `pick` lists a random
sample of such faults of the current tree; `run` plants them one at a time in
a tree, rebuilds it and runs `ctest --stop-on-failure`; a fault is caught when
a test fails, escaped when all pass, and void when the tree no longer builds.

A fault is found again by the file's name and the exact text of its line, so
the same list can be run against a tree whose files moved (before and after a
change of the tests, say) and the two figures compared fault by fault.

  scripts/fault_sample.py pick --count 100 --draw 7 > faults.jsonl
  scripts/fault_sample.py run faults.jsonl --tree . --build build/faults > results.jsonl
  scripts/fault_sample.py compare before.jsonl after.jsonl

`run` configures the build directory itself (release, no benchmarks) when it
does not exist, restores every file it touched, and appends one JSON line
per fault as soon as it is known, so an interrupted run can be resumed with
--skip-done.
"""
import argparse
import json
import os
import random
import re
import signal
import subprocess
import sys
import time

PLUGIN_DIRS = ("frame", "runtime", "store", "wire", "udp", "quote", "report", "service")


def plugin_files(tree):
    out = []
    for d in PLUGIN_DIRS:
        root = os.path.join(tree, d)
        if not os.path.isdir(root):
            continue
        for name in sorted(os.listdir(root)):
            if not name.endswith((".cpp", ".h")):
                continue
            if "_test." in name or "test_support" in name or name.startswith("scratch_service"):
                continue
            out.append(os.path.join(d, name))
    return out


def mask_line(line, in_block):
    """Blanks comments and string/char literals (same length); returns (mask, in_block)."""
    out = []
    i, n = 0, len(line)
    while i < n:
        if in_block:
            end = line.find("*/", i)
            if end < 0:
                out.append(" " * (n - i))
                return "".join(out), True
            out.append(" " * (end + 2 - i))
            i = end + 2
            in_block = False
            continue
        c = line[i]
        if line.startswith("//", i):
            out.append(" " * (n - i))
            break
        if line.startswith("/*", i):
            in_block = True
            continue
        if c in "\"'":
            j = i + 1
            while j < n and line[j] != c:
                j += 2 if line[j] == "\\" else 1
            j = min(j + 1, n)
            out.append(c + "_" * max(0, j - i - 2) + (c if j - i >= 2 else ""))
            i = j
            continue
        out.append(c)
        i += 1
    return "".join(out), in_block


# (name, pattern on the masked line, replacement of the matched text)
OPERATORS = [
    ("eq-ne", re.compile(r"=="), lambda m: "!="),
    ("ne-eq", re.compile(r"!="), lambda m: "=="),
    ("le-lt", re.compile(r" <= "), lambda m: " < "),
    ("ge-gt", re.compile(r" >= "), lambda m: " > "),
    ("lt-le", re.compile(r" < "), lambda m: " <= "),
    ("gt-ge", re.compile(r" > "), lambda m: " >= "),
    ("and-or", re.compile(r"&&"), lambda m: "||"),
    ("or-and", re.compile(r"\|\|"), lambda m: "&&"),
    ("not-drop", re.compile(r"!(?=[A-Za-z_(])"), lambda m: ""),
    ("const-inc", re.compile(r"(?<![\w.])(\d+)(?![\w.])"), lambda m: str(int(m.group(1)) + 1)),
    ("plus-minus", re.compile(r" \+ 1\b"), lambda m: " - 1"),
    ("minus-plus", re.compile(r" - 1\b"), lambda m: " + 1"),
    ("true-false", re.compile(r"\btrue\b"), lambda m: "false"),
    ("false-true", re.compile(r"\bfalse\b"), lambda m: "true"),
    ("ret0-neg", re.compile(r"\breturn 0;"), lambda m: "return -1;"),
]

SKIP_LINE = re.compile(r"^\s*(#|static_assert|namespace|using |template|extern |\}|//)")


def sites(tree):
    for rel in plugin_files(tree):
        with open(os.path.join(tree, rel), encoding="utf-8") as f:
            lines = f.read().split("\n")
        in_block = False
        seen = {}
        for no, line in enumerate(lines):
            masked, in_block_after = mask_line(line, in_block)
            text = line.strip()
            occurrence = seen.get(text, 0)
            seen[text] = occurrence + 1
            skip = in_block or SKIP_LINE.match(line) or not masked.strip()
            in_block = in_block_after
            if skip:
                continue
            for name, pat, repl in OPERATORS:
                for m in pat.finditer(masked):
                    new = line[: m.start()] + repl(m) + line[m.end():]
                    if new != line:
                        yield {"file": os.path.basename(rel), "path": rel, "line": no + 1,
                               "text": text, "occurrence": occurrence, "op": name,
                               "column": m.start(), "new": new.strip()}


def family(site):
    """Kind of fault: comparison, constant, return code or flag; picked in equal shares."""
    if site["op"] == "ret0-neg" or (site["op"] == "const-inc" and "return" in site["text"]):
        return "return"
    if site["op"] in ("const-inc", "plus-minus", "minus-plus"):
        return "constant"
    if site["op"] in ("eq-ne", "ne-eq", "le-lt", "ge-gt", "lt-le", "gt-ge"):
        return "comparison"
    return "flag"


def cmd_pick(a):
    all_sites = list(sites(a.tree))
    rng = random.Random(a.draw)
    by_family = {}
    for s in all_sites:
        by_family.setdefault(family(s), []).append(s)
    picked = []
    names = sorted(by_family)
    for i, name in enumerate(names):
        share = a.count // len(names) + (1 if i < a.count % len(names) else 0)
        picked += rng.sample(by_family[name], min(share, len(by_family[name])))
    for s in sorted(picked, key=lambda s: (s["path"], s["line"], s["column"])):
        print(json.dumps(s, ensure_ascii=False))
    sizes = ", ".join(f"{n} {len(by_family[n])}" for n in names)
    print(f"{len(all_sites)} fault sites ({sizes}), {len(picked)} picked", file=sys.stderr)


def locate(tree, fault):
    """Path and line index of the fault's line in this tree, or None: first in a
    file of the same name, else in the one file that holds the line (renamed or
    split files)."""
    def hits_in(rel):
        with open(os.path.join(tree, rel), encoding="utf-8") as f:
            lines = f.read().split("\n")
        return [i for i, l in enumerate(lines) if l.strip() == fault["text"]]

    files = plugin_files(tree)
    for rel in files:
        if os.path.basename(rel) == fault["file"]:
            hits = hits_in(rel)
            if hits:
                return rel, hits[min(fault["occurrence"], len(hits) - 1)]
    holders = [(rel, h) for rel in files for h in [hits_in(rel)] if h]
    if len(holders) == 1:
        rel, hits = holders[0]
        return rel, hits[min(fault["occurrence"], len(hits) - 1)]
    return None


def run(cmd, cwd, timeout):
    try:
        p = subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           timeout=timeout, text=True, errors="replace")
        return p.returncode, p.stdout
    except subprocess.TimeoutExpired as e:
        return 124, (e.stdout or "") if isinstance(e.stdout, str) else ""


def ensure_build(tree, build):
    if not os.path.exists(os.path.join(build, "build.ninja")):
        rc, out = run(["cmake", "-S", tree, "-B", build, "-G", "Ninja",
                       "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS=-O1 -g0",
                       "-DTIKRON_BUILD_BENCH=OFF"], tree, 600)
        if rc != 0:
            sys.exit("configure failed:\n" + out)


def cmd_run(a):
    tree = os.path.abspath(a.tree)
    build = os.path.abspath(a.build)
    ensure_build(tree, build)
    done = set()
    if a.skip_done and os.path.exists(a.skip_done):
        with open(a.skip_done) as f:
            done = {json.loads(l)["id"] for l in f if l.strip()}
    rc, out = run(["cmake", "--build", build], tree, 3600)
    if rc != 0:
        sys.exit("the unchanged tree does not build:\n" + out[-3000:])
    with open(a.faults, encoding="utf-8") as f:
        faults = [json.loads(l) for l in f if l.strip()]
    for i, fault in enumerate(faults):
        fid = f'{fault["file"]}:{fault["line"]}:{fault["column"]}:{fault["op"]}'
        if fid in done:
            continue
        result = {"id": fid, "op": fault["op"], "file": fault["file"]}
        where = locate(tree, fault)
        if where is None:
            result["status"] = "missing"
        else:
            rel, idx = where
            path = os.path.join(tree, rel)
            with open(path, encoding="utf-8") as f:
                original = f.read()
            lines = original.split("\n")
            indent = lines[idx][: len(lines[idx]) - len(lines[idx].lstrip())]
            lines[idx] = indent + fault["new"]
            t0 = time.time()
            try:
                with open(path, "w", encoding="utf-8") as f:
                    f.write("\n".join(lines))
                rc, out = run(["cmake", "--build", build], tree, 1800)
                if rc != 0:
                    result["status"] = "void"
                else:
                    ctest = ["ctest", "--test-dir", build, "-j", str(a.jobs), "--timeout", str(a.test_timeout)]
                    if not a.every_test:
                        ctest.append("--stop-on-failure")
                    if a.tests:
                        ctest += ["-R", a.tests]
                    rc, out = run(ctest, tree, 3600)
                    result["status"] = "caught" if rc != 0 else "escaped"
                    if rc != 0:
                        failed = re.findall(r"\d+ - (\S+) \(", out)
                        result["by"] = failed if a.every_test else failed[:3]
            finally:
                with open(path, "w", encoding="utf-8") as f:
                    f.write(original)
                os.utime(path, None)
            result["seconds"] = round(time.time() - t0, 1)
        print(json.dumps(result), flush=True)
        print(f"[{i + 1}/{len(faults)}] {fid} {result['status']}", file=sys.stderr, flush=True)
    run(["cmake", "--build", build], tree, 3600)


def load(path):
    with open(path) as f:
        return {r["id"]: r for r in (json.loads(l) for l in f if l.strip())}


def cmd_compare(a):
    before, after = load(a.before), load(a.after)
    both = [k for k in before if k in after
            and before[k]["status"] in ("caught", "escaped") and after[k]["status"] in ("caught", "escaped")]
    cb = sum(before[k]["status"] == "caught" for k in both)
    ca = sum(after[k]["status"] == "caught" for k in both)
    print(f"faults valid in both trees: {len(both)}")
    print(f"caught before: {cb} ({100 * cb / max(1, len(both)):.1f} %)")
    print(f"caught after:  {ca} ({100 * ca / max(1, len(both)):.1f} %)")
    for k in both:
        if before[k]["status"] != after[k]["status"]:
            print(f"  {k}: {before[k]['status']} -> {after[k]['status']}")
    for name, res in (("before", before), ("after", after)):
        counts = {}
        for r in res.values():
            counts[r["status"]] = counts.get(r["status"], 0) + 1
        print(f"{name}: {counts}")


def main():
    # A stopped run still restores the file it planted a fault in.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = p.add_subparsers(dest="cmd", required=True)
    pk = sub.add_parser("pick", help="list a random sample of faults of a tree")
    pk.add_argument("--tree", default=".")
    pk.add_argument("--count", type=int, default=100)
    pk.add_argument("--draw", type=int, default=1, help="state of the random generator")
    rn = sub.add_parser("run", help="plant each fault, rebuild, run the tests")
    rn.add_argument("faults")
    rn.add_argument("--tree", default=".")
    rn.add_argument("--build", default="build/faults")
    rn.add_argument("--jobs", type=int, default=2)
    rn.add_argument("--test-timeout", type=int, default=120)
    rn.add_argument("--skip-done", help="results file of an earlier run: skip the faults in it")
    rn.add_argument("--tests", help="regular expression: run only the tests it matches")
    rn.add_argument("--every-test", action="store_true",
                    help="run every test for each fault and record all that fail (which tests catch what)")
    cp = sub.add_parser("compare", help="compare two result files fault by fault")
    cp.add_argument("before")
    cp.add_argument("after")
    a = p.parse_args()
    {"pick": cmd_pick, "run": cmd_run, "compare": cmd_compare}[a.cmd](a)


if __name__ == "__main__":
    main()
