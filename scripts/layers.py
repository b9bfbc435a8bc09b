#!/usr/bin/env python3
"""The floors of src/ and a check that includes only go down them.

Reads every `#include "folder/File.h"` line under src/ that names a file of
src/ (public headers under include/ are not counted) and counts the includes
from folder to folder.

  layers.py [--table] [--check] [SRC]

--table prints the folder-to-folder include counts; --check (the default)
exits non-zero when the folders form a cycle, an include goes up the
floors below or a system library that belongs behind the platform
interfaces is included outside platform/linux, naming every offending line.
"""

import argparse
import os
import re
import sys
from collections import defaultdict

# Bottom first. A folder may include its own files and those of any folder
# listed before it; the subsystems are ordered among themselves the same way.
FLOORS = [
    ("leaf helpers", ["util"]),
    ("platform interfaces", ["platform/dispatch", "platform/media", "platform"]),
    ("Linux implementations", ["platform/linux"]),
    ("SDK base", ["sdk"]),
    ("subsystems", ["resources", "eventqueue", "ui", "analytics", "events", "ads"]),
    ("top", ["top"]),
]

# Folders whose headers only the listed files (and the folder itself) may
# include: the Linux implementations are built in one place on the top floor.
SEALED = {"platform/linux": {"top/LinuxWiring.cpp"}}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')

# System libraries that belong behind the platform interfaces: only
# platform/linux includes them. cairo and pango stay in the view layer,
# which draws with them.
SYSTEM = re.compile(r'^\s*#\s*include\s+<(SDL|curl/|openssl/|X11/)')



def rank_of():
    ranks = {}
    for floor in FLOORS:
        for folder in floor[1]:
            ranks[folder] = len(ranks)
    return ranks


def read_includes(src):
    """Yields (file, line number, including folder, included folder)."""
    for root, _, names in os.walk(src):
        for name in sorted(names):
            if not name.endswith((".h", ".cpp")):
                continue
            path = os.path.join(root, name)
            rel = os.path.relpath(path, src)
            with open(path, encoding="utf-8", errors="replace") as source:
                for number, line in enumerate(source, 1):
                    match = INCLUDE.match(line)
                    if not match or not os.path.isfile(os.path.join(src, match.group(1))):
                        continue
                    yield rel, number, os.path.dirname(rel), os.path.dirname(match.group(1))


def count(src):
    table = defaultdict(int)
    for _, _, source, target in read_includes(src):
        if source != target:
            table[(source, target)] += 1
    return table


def components(table):
    """Strongly connected components of the folder graph (Tarjan)."""
    graph = defaultdict(set)
    for source, target in table:
        graph[source].add(target)
        graph.setdefault(target, set())
    index, low, stack, on_stack, found = {}, {}, [], set(), []

    def visit(node):
        index[node] = low[node] = len(index)
        stack.append(node)
        on_stack.add(node)
        for successor in sorted(graph[node]):
            if successor not in index:
                visit(successor)
                low[node] = min(low[node], low[successor])
            elif successor in on_stack:
                low[node] = min(low[node], index[successor])
        if low[node] == index[node]:
            component = []
            while True:
                member = stack.pop()
                on_stack.discard(member)
                component.append(member)
                if member == node:
                    break
            found.append(sorted(component))

    for node in sorted(graph):
        if node not in index:
            visit(node)
    return found


def violations(src):
    """Every include that goes against the floors, as printable lines."""
    ranks = rank_of()
    found = []
    for rel, number, source, target in read_includes(src):
        if source == target:
            continue
        where = f"{rel}:{number}: {source} -> {target}"
        if source not in ranks or target not in ranks:
            found.append(f"{where}: folder not on any floor")
        elif target in SEALED and rel not in SEALED[target]:
            found.append(f"{where}: only {', '.join(sorted(SEALED[target]))} may include {target}")
        elif ranks[target] > ranks[source]:
            found.append(f"{where}: includes upwards")
    return found


def system_includes(src):
    """Includes of SYSTEM libraries outside platform/linux, as printable
    lines."""
    found = []
    for root, _, names in os.walk(src):
        for name in sorted(names):
            path = os.path.join(root, name)
            rel = os.path.relpath(path, src)
            if rel.startswith("platform/linux/"):
                continue
            if not name.endswith((".h", ".cpp")):
                continue
            with open(path, encoding="utf-8", errors="replace") as source:
                for number, line in enumerate(source, 1):
                    if SYSTEM.match(line):
                        found.append(f"{rel}:{number}: {line.strip()}")
    return sorted(found)


def print_table(table, out=sys.stdout):
    folders = sorted({folder for pair in table for folder in pair})
    width = max(len(folder) for folder in folders)
    header = "from / to"
    out.write(f"{header:<{width}} " + " ".join(f"{i:>3}" for i in range(len(folders))) + "\n")
    for i, source in enumerate(folders):
        cells = " ".join(
            f"{table.get((source, target), 0) or '.':>3}" for target in folders
        )
        out.write(f"{source:<{width}} {cells}  ({i})\n")
    cyclic = [component for component in components(table) if len(component) > 1]
    out.write(f"{len(table)} folder pairs, {sum(table.values())} includes; ")
    out.write("cycles: " + ("; ".join(" ".join(c) for c in cyclic) if cyclic else "none") + "\n")


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("src", nargs="?", default=os.path.join(os.path.dirname(__file__), "..", "src"))
    parser.add_argument("--table", action="store_true", help="print the include table")
    parser.add_argument("--check", action="store_true", help="fail on a cycle or an upward include")
    args = parser.parse_args(argv)
    if args.table:
        print_table(count(args.src))
        for line in system_includes(args.src):
            print(f"system library outside platform/linux: {line}")
    if args.check or not args.table:
        problems = violations(args.src)
        cyclic = [c for c in components(count(args.src)) if len(c) > 1]
        problems += [f"folders include each other: {' '.join(c)}" for c in cyclic]
        problems += [
            f"{line}: system library outside platform/linux" for line in system_includes(args.src)
        ]
        for problem in problems:
            print(problem)
        if problems:
            return 1
        print("layers: every include goes down the floors")
    return 0


if __name__ == "__main__":
    sys.exit(main())
