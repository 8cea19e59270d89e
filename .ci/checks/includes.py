#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Arrows between the folders run one way, and public headers include the standard library alone."""

import pathlib
import re
import subprocess
import sys

ALLOWED = {
    "foundation": set(),
    "platform": {"foundation"},
    "settings": {"platform", "foundation"},
    "transport": {"settings", "platform", "foundation"},
    "location": {"platform", "foundation"},
    "context": {"transport", "location", "platform", "foundation"},
    "audience": {"transport", "context", "location", "settings", "platform", "foundation"},
    "jsonmapping": {"platform", "foundation"},
}
ADAPTERS_MAY_USE = {"platform", "foundation"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
STANDARD = re.compile(r"^[a-z_0-9]+$")

problems = []
files = subprocess.run(["git", "ls-files", "src", "adapters"], check=True, text=True,
                       capture_output=True).stdout.split()
for name in files:
    path = pathlib.Path(name)
    if path.suffix not in {".h", ".cpp"}:
        continue
    in_core = path.parts[0] == "src"
    folder = path.parts[2] if in_core and len(path.parts) > 3 else None
    is_public = path.suffix == ".h" and (in_core or "include" in path.parts)
    for kind, target in INCLUDE.findall(path.read_text(encoding="utf-8")):
        parts = target.split("/")
        if parts[0] == "morvellacinto":
            if not in_core:
                if parts[1] not in ADAPTERS_MAY_USE | {"native", "scripted"}:
                    problems.append(f"{name}: an adapter includes {target}")
            elif parts[1] in ALLOWED:
                if folder and parts[1] != folder and parts[1] not in ALLOWED[folder]:
                    problems.append(f"{name}: {folder} must not include {target}")
            elif target != "morvellacinto/Version.h":
                problems.append(f"{name}: the library includes {target}")
        elif (in_core or is_public) and not (kind == "<" and STANDARD.match(target)) \
                and target != "cxxabi.h":
            problems.append(f"{name}: includes {target}, which is not of the standard library")

print("\n".join(problems) or f"{len(files)} files keep to the arrows")
sys.exit(1 if problems else 0)
