#!/usr/bin/env python3
"""Refuses an include that runs back up the layers: each folder of src/ may include its own headers
and those of the layers it builds on (directly or through another layer), nothing else.

Usage: check-layers.py LAYERS_FILE SRC_DIR, where LAYERS_FILE has lines "layer: below below ..."."""
import pathlib
import re
import sys

# The program's entry assembles every layer.
PROGRAM = {"app/main.cpp", "app/MirrowispApp.cpp", "app/MirrowispApp.h"}


def main() -> int:
    direct = {}
    for line in pathlib.Path(sys.argv[1]).read_text().splitlines():
        if ":" in line:
            name, below = line.split(":", 1)
            direct[name.strip()] = below.split()
    reach = {}

    def below(name):
        if name not in reach:
            reach[name] = set(direct.get(name, []))
            for dep in direct.get(name, []):
                reach[name] |= below(dep)
        return reach[name]

    src = pathlib.Path(sys.argv[2])
    include = re.compile(r'^\s*#\s*include\s+"([a-z]+)/')
    faults = []
    for path in sorted(src.rglob("*")):
        if path.suffix not in (".h", ".cpp") or not path.is_file():
            continue
        relative = path.relative_to(src).as_posix()
        layer = relative.split("/", 1)[0]
        if relative in PROGRAM or layer not in direct:
            continue
        allowed = below(layer) | {layer}
        for number, text in enumerate(path.read_text(errors="replace").splitlines(), 1):
            match = include.match(text)
            if match and match.group(1) in direct and match.group(1) not in allowed:
                faults.append(f"{relative}:{number}: {layer} includes {match.group(1)}, which does not lie below it")
    for fault in faults:
        print(fault)
    print(f"{len(faults)} includes run back up" if faults else "every include runs down the layers")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
