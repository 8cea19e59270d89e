#!/usr/bin/env python3
"""Puts faults that people make into a copy of the tree, one at a time, and tells which ones no test notices.

usage: mutants.py [--list] [NAME...]
NAME is a list ("linux"), a fault ("linux/drain-endless") or the begin of a path; all faults without one.

An entry of a list, a file NAME.txt beside this one:
    @ path                  for this entry and those that follow
    # slug: the fault
    - what it replaces, which stands exactly once in the file; several lines each begin with "- "
    + what stands there instead
A text without MUTANT stands for the old one as a whole: an expression for an expression, statements for what ends in
";" or "}". A lone "+" leaves the statements out. In a text with MUTANT, that is true while the fault is on.
All are compiled in at once, and MORVELLACINTO_MUTANT chooses one. Nothing can be switched in a constant expression.
"""
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
WORK = ROOT / "build/mutants"
SOURCE, BUILD, SWITCH, MEMORY = WORK / "source", WORK / "build", WORK / "mutants.h", WORK / "caught.json"
SECONDS_A_TEST = 20  # a fault that makes a test hang is caught
BLIND = r"^usage\.|_refused_"  # tests that measure, and those that only compile
SWITCH_TEXT = """#pragma once
#include <cstdlib>
namespace mutants {
[[maybe_unused]] static bool on(unsigned long fault) {
    static const char* const text = std::getenv("MORVELLACINTO_MUTANT");
    static const unsigned long chosen = text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
    return chosen == fault;
}
}
"""


def read_list(listing):
    path, faults = None, []
    for number, line in enumerate(listing.read_text().splitlines(), 1):
        mark, text = line[:1], line[2:]
        if mark == "@":
            path = text
        elif mark == "#":
            slug, _, sentence = text.partition(": ")
            name = f"{listing.stem}/{slug}"
            faults.append({"name": name, "path": path, "fault": sentence, "-": [], "+": [],
                           "number": zlib.crc32(name.encode())})
        elif mark in ("-", "+") and faults:
            faults[-1][mark].append(text)
        elif line:
            sys.exit(f"{listing.name}:{number}: no line of a list: {line}")
    return faults


def switchable(fault):
    old, new = "\n".join(fault["-"]), "\n".join(fault["+"])
    switch = f"mutants::on({fault['number']}UL)"
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
    for before, after in zip(places, places[1:]):
        if before[1] > after[0]:
            problems.append(f"{before[2]['name']} and {after[2]['name']} change the same text of {path}")
    for begin, end, fault in reversed(places):
        text = text[:begin] + switchable(fault) + text[end:]
    return f'#include "{SWITCH}"\n#line 1\n{text}', problems


def write_tree(faults):
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=ROOT, check=True, capture_output=True, text=True).stdout.split("\0")
    wanted = {name for name in names if name and (ROOT / name).is_file()}
    problems = [f"{fault['name']}: there is no {fault['path']}" for fault in faults if fault["path"] not in wanted]
    for old in [file for file in SOURCE.rglob("*") if file.is_file()]:
        if str(old.relative_to(SOURCE)) not in wanted:
            old.unlink()
    SOURCE.mkdir(parents=True, exist_ok=True)
    for target, content, original in [(SWITCH, SWITCH_TEXT.encode(), None)] + [
            (SOURCE / name, (ROOT / name).read_bytes(), ROOT / name) for name in sorted(wanted)]:
        if own := [fault for fault in faults if original and ROOT / fault["path"] == original]:
            text, found = mutate(own[0]["path"], content.decode(), own)
            content, problems = text.encode(), problems + found
        if not target.is_file() or target.read_bytes() != content:  # what stays is not compiled again
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
        if original:
            shutil.copymode(original, target)
    if problems:
        sys.exit("\n".join(problems))


def build():
    options = ["-DMORVELLACINTO_DEVELOPER_WARNINGS=OFF", "-DMORVELLACINTO_BUILD_EXAMPLES=OFF",
               "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1"]
    if shutil.which("ccache"):
        options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
    subprocess.run(["cmake", "--preset", "default", "-B", str(BUILD), *options], cwd=SOURCE, check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(BUILD)], check=True)
    for file in BUILD.rglob("*.cmake"):
        if "add_test" in (text := file.read_text()):
            file.write_text(re.sub(r"\bTIMEOUT \d+", f"TIMEOUT {SECONDS_A_TEST}", text))


def failing(number, folder, *selection):
    """The first test that fails, and fails again; None when all pass."""
    costs = BUILD / folder / "Testing/Temporary/CTestCostData.txt"
    costs.unlink(missing_ok=True)  # by which the longest would go first
    run = subprocess.run(
        ["ctest", "--test-dir", str(BUILD / folder), "-j2", "--stop-on-failure", "--repeat", "until-pass:2",
         "--timeout", str(SECONDS_A_TEST), "-E", BLIND, *selection],
        env=dict(os.environ, MORVELLACINTO_MUTANT=str(number)), capture_output=True, text=True, check=False)
    failed = re.search(r"^\s+\d+ - (\S+) \((?!Not Run|Skipped)", run.stdout, re.MULTILINE)
    return failed.group(1) if failed else None if run.returncode == 0 else "ctest"


def catching(fault, before):
    """The test that catches the fault: what did so before is tried first, then what is near."""
    folder = pathlib.PurePath(fault["path"]).parent
    folder = pathlib.PurePath("tests") / (folder.relative_to("src/morvellacinto") if folder.parts[0] == "src" else folder)
    while not (BUILD / folder / "CTestTestfile.cmake").exists():
        folder = folder.parent
    tries = [(".", "-R", f"^{re.escape(before)}$")] if before else []
    near = {folder, pathlib.PurePath("tests/integration" if fault["path"].startswith("tools") else folder)}
    tries += [(each,) for each in sorted(near - {pathlib.PurePath("tests")})] + [(".",)]
    return next(filter(None, (failing(fault["number"], *each) for each in tries)), None)


def main():
    arguments = [name for name in sys.argv[1:] if name != "--list"]
    faults = [fault for listing in sorted(HERE.glob("*.txt")) if listing.stem != "survivors" for fault in read_list(listing)]
    if len({fault["name"] for fault in faults}) < len(faults):
        sys.exit("two faults have the same name")
    chosen = [fault for fault in faults if not arguments or any(
        fault["name"] == name or fault["name"].split("/")[0] == name or fault["path"].startswith(name) for name in arguments)]
    if "--list" in sys.argv:
        for fault in chosen:
            print(f"{fault['name']} ({fault['number']}) {fault['path']}: {fault['fault']}")
        return 0
    write_tree(faults)
    build()
    begin = time.monotonic()
    if failed := failing(0, "."):
        sys.exit(f"without a fault, {failed} fails")
    memory = json.loads(MEMORY.read_text()) if MEMORY.exists() else {}
    counts, survivors = {}, []
    for fault in chosen:
        caught = catching(fault, memory.get(fault["name"]))
        print(f"{fault['name']}: {'caught by ' + caught if caught else 'SURVIVES'}", flush=True)
        memory[fault["name"]] = caught
        MEMORY.write_text(json.dumps(memory, indent=0))
        tried, alive = counts.get(folder := str(pathlib.PurePath(fault["path"]).parent), (0, 0))
        counts[folder] = (tried + 1, alive + (not caught))
        survivors += [] if caught else [fault]
    for folder, (tried, alive) in sorted(counts.items()):
        print(f"{folder}: {tried - alive} of {tried} caught")
    lines = (HERE / "survivors.txt").read_text().splitlines() if (HERE / "survivors.txt").exists() else []
    reasons = dict(line.split(": ", 1) for line in lines if line)
    for fault in survivors:
        print(f"survives: {fault['name']}, {fault['fault']}: {reasons.get(fault['name'], 'NOT EXPLAINED')}")
    for name in reasons.keys() - {fault["name"] for fault in survivors} & {fault["name"] for fault in chosen}:
        print(f"survivors.txt explains what is caught: {name}")
    print(f"{len(survivors)} of {len(chosen)} survive ({time.monotonic() - begin:.0f} s)")
    explained = all(fault["name"] in reasons for fault in survivors)
    return 0 if explained and (arguments or len(survivors) * 10 <= len(chosen)) else 1


sys.exit(main())
