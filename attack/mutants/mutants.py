#!/usr/bin/env python3
"""Puts the faults of the *.list files into a copy of the tree, one at a time, and tells which ones no test notices.

usage: mutants.py [--only WORD] [--build-only]

A list names a file on a line "@ FILE"; below it, each mutant is a line "- OLD" and a line "+ NEW" (either may go on
in lines that begin with two blanks). OLD stands once in the file. In NEW, MUTANT is true while the fault is on; without it,
NEW stands for an expression in place of OLD. "# WHY" below a mutant explains one that may survive.
All are compiled in at once; MORVELLACINTO_MUTANT=N turns on the Nth."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
TREE = ROOT / "build/mutants/tree"
BUILD = TREE / "build/default"
SWITCH = '''#pragma once
#ifdef __cplusplus
#include <cstdlib>
namespace morvellacinto_mutants {
inline bool isOn(int number) {
    static const char* const text = std::getenv("MORVELLACINTO_MUTANT");
    static const int on = text != nullptr ? std::atoi(text) : 0;
    return on == number;
}
}
#endif
'''


def read_lists():
    mutants = []
    for listing in sorted(pathlib.Path(__file__).parent.glob("*.list")):
        file = None
        part = None
        for line in listing.read_text(encoding="utf-8").splitlines():
            mark, text = line[:2], line[2:]
            if mark == "@ ":
                file = text
            elif mark == "- ":
                mutants.append({"file": file, "old": text, "new": None, "why": None})
                part = "old"
            elif mark == "+ ":
                mutants[-1]["new"] = text
                part = "new"
            elif mark == "# ":
                mutants[-1]["why"] = text
            elif mark == "  " and part:
                mutants[-1][part] += "\n" + text
    return mutants


def put_in(mutants):
    shutil.rmtree(TREE / "src", ignore_errors=True)
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=ROOT, check=True, capture_output=True, text=True).stdout
    for name in filter(None, names.split("\0")):
        source, target = ROOT / name, TREE / name
        if source.is_file():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, target)
    texts = {}
    problems = 0
    for number, mutant in enumerate(mutants, 1):
        file = mutant["file"]
        text = texts.setdefault(file, (ROOT / file).read_text(encoding="utf-8"))
        if text.count(mutant["old"]) != 1:
            print(f"{file}: found {text.count(mutant['old'])} times: {mutant['old']}")
            problems += 1
            continue
        switch = f"(::morvellacinto_mutants::isOn({number}))"
        new = mutant["new"]
        new = new.replace("MUTANT", switch) if "MUTANT" in new else \
            f"({switch} ? ({new}) : ({mutant['old']}))"
        texts[file] = text.replace(mutant["old"], new)
    for file, text in texts.items():
        (TREE / file).write_text(text, encoding="utf-8")
    (TREE / "mutants.h").write_text(SWITCH, encoding="utf-8")
    if problems:
        sys.exit(f"{problems} mutants do not fit the tree")


def build():
    options = ["-DMORVELLACINTO_DEVELOPER_WARNINGS=OFF", "-DMORVELLACINTO_BUILD_EXAMPLES=OFF",
               f"-DCMAKE_CXX_FLAGS=-include {TREE / 'mutants.h'}"]
    if shutil.which("ccache"):
        options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
    subprocess.run(["cmake", "--preset", "default", *options], cwd=TREE, check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(BUILD)], check=True)


def notices(number, folder):
    """The name of the first test that fails, or None."""
    command = ["ctest", "--test-dir", str(folder), "--parallel", "2", "--stop-on-failure", "--timeout", "40"]
    done = subprocess.run(command, env=dict(os.environ, MORVELLACINTO_MUTANT=str(number)),
                          capture_output=True, text=True, check=False)
    failed = re.search(r"Test +#\d+: (\S+) .*\*\*\*", done.stdout)
    return failed.group(1) if failed else None if done.returncode == 0 else "ctest"


def nearest_tests(file):
    folder = pathlib.Path(file).parent
    parts = folder.parts[2:] if folder.parts[0] == "src" else folder.parts
    for length in range(len(parts), 0, -1):
        tests = BUILD / "tests" / pathlib.Path(*parts[:length])
        if (tests / "CTestTestfile.cmake").exists():
            return tests
    return BUILD / "tests"


def main():
    mutants = read_lists()
    only = sys.argv[sys.argv.index("--only") + 1] if "--only" in sys.argv else ""
    put_in(mutants)
    build()
    if "--build-only" in sys.argv:
        return 0
    if failed := notices(0, BUILD):
        sys.exit(f"without a fault {failed} fails")
    survivors = []
    tried = 0
    begin = time.monotonic()
    for number, mutant in enumerate(mutants, 1):
        if only not in mutant["file"]:
            continue
        tried += 1
        caught = notices(number, nearest_tests(mutant["file"])) or notices(number, BUILD)
        if not caught:
            survivors.append(mutant)
        print(f"{number:4} {'caught by ' + caught if caught else 'SURVIVES':60} {mutant['file']}",
              flush=True)
    print(f"{tried} faults, {len(survivors)} survive ({time.monotonic() - begin:.0f} s)")
    for mutant in survivors:
        print(f"  {mutant['file']}: {mutant['old']} -> {mutant['new']}\n    {mutant['why'] or 'NOT EXPLAINED'}")
    unexplained = [mutant for mutant in survivors if not mutant["why"]]
    return 1 if len(survivors) * 10 > tried or unexplained else 0


sys.exit(main())
