#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Puts faults that people make into a copy of the tree, one at a time, and tells which ones no test notices.

usage: mutants.py [--list] [NAME...]     with names of lists ("linux"), of faults ("linux/signals") or begins of paths

An entry of a list, which is a file NAME.txt beside this one:
    @ path [folder]     of this and all that follow; the folder of tests/ that is tried first if it is no mirror of the path
    # slug: the fault
    - the text that it changes, which stands once in the file; each line behind a "- "
    + the text instead: an expression, or statements for what ends in ";" or "}"; none leaves the statements out
With MUTANT in it, which is true while the fault is on, the new text stands as it is. All are compiled in at once, so no
constant expression can change, and MORVELLACINTO_MUTANT chooses one. survivors.txt tells why some live, "name: why"."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import zlib

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
SOURCE, BUILD, MEMORY = (ROOT / "build/mutants" / name for name in ("source", "build", "caught.json"))
SECONDS_A_TEST = 30  # a fault that makes a test hang is caught
BLIND = "_refused_"  # tests that only compile
SWITCH = """#ifndef MUTANTS_ARE_SWITCHED
#define MUTANTS_ARE_SWITCHED
#include <cstdlib>
namespace mutants {
[[maybe_unused]] static bool on(unsigned long fault) {
    static const char* const text = std::getenv("MORVELLACINTO_MUTANT");
    static const unsigned long chosen = text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
    return chosen == fault;
}
}
#endif
#line 1
"""


def read_list(listing):
    path, near, faults = None, None, []
    for number, line in enumerate(listing.read_text().splitlines(), 1):
        mark, text = line[:1], line[2:]
        if mark == "@":
            path, near = (text.split() + [str(pathlib.PurePath(text).parent).removeprefix("src/morvellacinto/")])[:2]
        elif mark == "#":
            slug, _, sentence = text.partition(": ")
            name = f"{listing.stem}/{slug}"
            faults.append({"name": name, "path": path, "near": near, "fault": sentence, "-": [], "+": [],
                           "number": zlib.crc32(name.encode())})
        elif mark in ("-", "+") and faults:
            faults[-1][mark].append(text)
        elif line:
            sys.exit(f"{listing.name}:{number}: no line of a list: {line}")
    return faults


def switchable(fault):
    old, new, switch = "\n".join(fault["-"]), "\n".join(fault["+"]), f"mutants::on({fault['number']}UL)"
    if "MUTANT" in new:
        return new.replace("MUTANT", switch)
    if new == "":
        return f"if (!{switch}) {{ {old} }}"
    if old.endswith((";", "}")):
        return f"if ({switch}) {{ {new} }} else {{ {old} }}"
    return f"({switch} ? ({new}) : ({old}))"


def mutate(path, text, faults):
    """The text with all faults in it, and a sentence for each that does not fit."""
    places, problems = [], []
    for fault in faults:
        old = "\n".join(fault["-"])
        if old == "" or text.count(old) != 1:
            problems.append(f"{fault['name']}: stands {text.count(old)} times in {path}: {old}")
        else:
            places.append((text.index(old), text.index(old) + len(old), fault))
    places.sort(key=lambda place: place[:2])
    problems += [f"{before[2]['name']} and {after[2]['name']} change the same text of {path}"
                 for before, after in zip(places, places[1:]) if before[1] > after[0]]
    for begin, end, fault in reversed(places):
        text = text[:begin] + switchable(fault) + text[end:]
    return SWITCH + text, problems


def write_tree(faults):
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=ROOT, check=True, capture_output=True, text=True).stdout.split("\0")
    problems = [f"{fault['name']}: there is no {fault['path']}" for fault in faults if fault["path"] not in names]
    for name in (name for name in names if (ROOT / name).is_file()):
        content, target = (ROOT / name).read_bytes(), SOURCE / name
        if own := [fault for fault in faults if fault["path"] == name]:
            text, found = mutate(name, content.decode(), own)
            content, problems = text.encode(), problems + found
        if not target.is_file() or target.read_bytes() != content:  # what stays is not compiled again
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
        shutil.copymode(ROOT / name, target)
    if problems:
        sys.exit("\n".join(problems))


def build():
    options = ["-DMORVELLACINTO_DEVELOPER_WARNINGS=OFF", "-DMORVELLACINTO_BUILD_EXAMPLES=OFF",
               "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1"] + ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] * bool(shutil.which("ccache"))
    subprocess.run(["cmake", "--preset", "default", "-B", str(BUILD), *options], cwd=SOURCE, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(BUILD), "--target", "tests/all"], check=True)
    for file in BUILD.rglob("*.cmake"):
        if "add_test" in (text := file.read_text()):
            file.write_text(re.sub(r"\bTIMEOUT \d+", f"TIMEOUT {SECONDS_A_TEST}", text))


def failing(number, folder, *selection):
    """The first test that fails, and fails again; None when all pass."""
    (BUILD / folder / "Testing/Temporary/CTestCostData.txt").unlink(missing_ok=True)  # by which the longest would go first
    run = subprocess.run(
        ["ctest", "--test-dir", str(BUILD / folder), "-j2", "--stop-on-failure", "--repeat", "until-pass:2",
         "--timeout", str(SECONDS_A_TEST), "-E", BLIND, *selection],
        env=dict(os.environ, MORVELLACINTO_MUTANT=str(number)), capture_output=True, text=True, check=False)
    failed = re.search(r"^\s+\d+ - (\S+ \((?!Not Run|Skipped).+\))", run.stdout, re.MULTILINE)
    return failed[1] if failed else None if run.returncode == 0 else "ctest"


def catching(fault, before):
    """The test that catches the fault: what did so before is tried first, then what is near."""
    folder = pathlib.PurePath("tests", fault["near"])
    while not (BUILD / folder / "CTestTestfile.cmake").exists():
        folder = folder.parent
    tries = [("tests", "-R", f"^{re.escape(before.split()[0])}$")] if before else []
    tries += [(folder,)] * (folder.name != "tests") + [("tests",)]
    return next(filter(None, (failing(fault["number"], *each) for each in tries)), None)


def main():
    arguments = [name for name in sys.argv[1:] if name != "--list"]
    faults = [fault for listing in sorted(HERE.glob("*.txt")) if listing.stem != "survivors" for fault in read_list(listing)]
    assert len({fault["name"] for fault in faults}) == len(faults), "two faults have the same name"
    chosen = [fault for fault in faults if not arguments or any(
        fault["name"] == name or fault["name"].split("/")[0] == name or fault["path"].startswith(name) for name in arguments)]
    if "--list" in sys.argv:
        return print("\n".join(f"{each['name']} ({each['number']}) {each['path']}: {each['fault']}" for each in chosen))
    write_tree(faults)
    build()
    begin = time.monotonic()
    if failed := failing(0, "tests"):
        sys.exit(f"without a fault, {failed} fails")
    memory = json.loads(MEMORY.read_text()) if MEMORY.exists() else {}
    counts, survivors = {}, []
    for fault in chosen:
        caught = catching(fault, memory.get(fault["name"]))
        print(f"{fault['name']}: {'caught by ' + caught if caught else 'SURVIVES'}", flush=True)
        memory[fault["name"]] = caught
        MEMORY.write_text(json.dumps(memory, indent=0))
        counts.setdefault(str(pathlib.PurePath(fault["path"]).parent), []).append(bool(caught))
        survivors += [] if caught else [fault]
    for folder, verdicts in sorted(counts.items()):
        print(f"{folder}: {sum(verdicts)} of {len(verdicts)} caught")
    reasons = dict(line.split(": ", 1) for line in (HERE / "survivors.txt").read_text().splitlines() if line)
    for fault in survivors:
        print(f"survives: {fault['name']}, {fault['fault']}: {reasons.get(fault['name'], 'NOT EXPLAINED')}")
    for name in reasons.keys() - {fault["name"] for fault in survivors} & {fault["name"] for fault in chosen}:
        print(f"survivors.txt explains what is caught: {name}")
    print(f"{len(survivors)} of {len(chosen)} survive ({time.monotonic() - begin:.0f} s)")
    is_good = all(fault["name"] in reasons for fault in survivors) and (arguments or len(survivors) * 10 <= len(chosen))
    return 0 if is_good else 1


sys.exit(main())
