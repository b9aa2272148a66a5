#!/usr/bin/env python3
"""What of a program is from which library, by the map that GNU ld writes (-Map).

usage: link_map.py bytes MAP
       link_map.py shares MAP PROGRAM FUNCTIONS FIRST LAST

bytes: for each library the bytes of code, constants, unwinding tables, data, and memory zeroed at the
start. What the linker makes itself, and the C library's part that every program has, stand under
"linker and start".

shares: of the instructions in LAST that are not in FIRST (both from count_instructions, of PROGRAM),
each library's share; then the FUNCTIONS busiest functions.
"""
import re
import subprocess
import sys
from bisect import bisect_right
from collections import Counter

START = "linker and start"
OUTSIDE = "C library, loader"
KINDS = ("code", "constants", "unwinding", "data", "zeroed")
# By output section; others are not loaded.
KIND_OF = {
    ".text": "code", ".init": "code", ".fini": "code", ".plt": "code", ".plt.got": "code",
    ".plt.sec": "code", ".rodata": "constants", ".ARM.extab": "unwinding", ".ARM.exidx": "unwinding",
    ".eh_frame": "unwinding", ".eh_frame_hdr": "unwinding", ".gcc_except_table": "unwinding",
    ".bss": "zeroed", ".tbss": "zeroed", ".dynsym": "constants", ".dynstr": "constants",
    ".hash": "constants", ".gnu.hash": "constants", ".gnu.version": "constants",
    ".gnu.version_r": "constants", ".rel.dyn": "constants", ".rel.plt": "constants",
    ".rela.dyn": "constants", ".rela.plt": "constants", ".interp": "constants",
    ".note.ABI-tag": "constants", ".note.gnu.build-id": "constants", ".note.gnu.property": "constants",
    ".data": "data", ".data.rel.ro": "data", ".got": "data", ".got.plt": "data", ".dynamic": "data",
    ".init_array": "data", ".fini_array": "data", ".tdata": "data", ".tm_clone_table": "data",
}


def library_of(path):
    match = re.match(r"(?:.*/)?([^/]*\.a)\(.*\)$", path)
    if match:
        name = match.group(1)
        return "the service" if name.startswith("libqrcode_") else name
    if ".ltrans" in path:
        return "libzbar.a"  # the only one that is optimised again when linking
    return "the service" if "/main.cpp.o" in path else START


def function_of(section, path):
    name = re.sub(r"^\.text\.?((unlikely|startup|hot|exit)\.)?", "", section)
    return name or re.sub(r".*[(/]|\)$", "", path)


def pieces(map_path):
    """(address, size, kind, library, function) of each input section that is loaded."""
    found, kind, section = [], None, None
    with open(map_path, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            if line.startswith("Linker script and memory map"):
                break
        for line in lines:
            output = re.match(r"(\.[^\s]+)", line)
            if output:
                kind = KIND_OF.get(output.group(1))
                continue
            alone = re.match(r" ([.*][^\s]*)\s*$", line)
            if alone:
                section = alone.group(1)
                continue
            piece = re.match(r" (\S+)?\s+0x([0-9a-f]+)\s+0x([0-9a-f]+)(?:\s+(\S.*))?$", line)
            if piece and kind:
                name, address, size = piece.group(1) or section, int(piece[2], 16), int(piece[3], 16)
                path = (piece.group(4) or "").strip()
                if name and size and (path or name == "*fill*"):
                    found.append((address, size, kind, library_of(path), function_of(name, path)))
            section = None
    if not found:
        sys.exit(f"link_map.py: {map_path}: no map of GNU ld")
    return sorted(found)


def print_bytes(map_path):
    table = {}
    for _, size, kind, library, _ in pieces(map_path):
        table.setdefault(library, Counter())[kind] += size
    row = "{:<26}" + " {:>10}" * (len(KINDS) + 1)
    print(row.format("bytes", *KINDS, "in the file"))
    total = Counter()
    for library, sizes in sorted(table.items(), key=lambda entry: -sum(entry[1].values())):
        total.update(sizes)
        print(row.format(library, *(sizes[kind] for kind in KINDS), sum(sizes.values()) - sizes["zeroed"]))
    print(row.format("all", *(total[kind] for kind in KINDS), sum(total.values()) - total["zeroed"]))


def read_counts(path):
    with open(path, encoding="ascii") as lines:
        next(lines)
        return Counter({int(place, 16): int(count) for place, count in map(str.split, lines)})


def code_begin(program):
    """Link address of the program's first executable segment, which counts are given from."""
    headers = subprocess.run(["readelf", "-lW", program], check=True, capture_output=True, text=True)
    for line in headers.stdout.splitlines():
        words = line.split()
        if words[:1] == ["LOAD"] and "E" in words[6:-1]:
            return int(words[2], 16)
    sys.exit(f"link_map.py: {program}: no code")


def print_shares(map_path, program, functions, first, last):
    code = [piece for piece in pieces(map_path) if piece[2] == "code"]
    begins = [piece[0] for piece in code]
    base = code_begin(program)
    libraries, names = Counter(), Counter()
    counts = read_counts(last)
    counts.subtract(read_counts(first))
    for place, count in counts.items():
        at = bisect_right(begins, place + base) - 1
        library, name = OUTSIDE, "(any)"
        if at >= 0 and place + base < code[at][0] + code[at][1]:
            library, name = code[at][3:]
        libraries[library] += count
        names[library, name] += count
    total = sum(libraries.values())
    for library, count in libraries.most_common():
        print(f"  {100 * count / total:6.2f} %  {library}")
    busiest = names.most_common(functions)
    plain = subprocess.run(["c++filt"], input="\n".join(name for (_, name), _ in busiest), check=True,
                           capture_output=True, text=True).stdout.splitlines()
    for ((library, _), count), name in zip(busiest, plain):
        print(f"  {100 * count / total:6.2f} %  {library}: {name}")


def main():
    words = sys.argv[1:]
    if len(words) == 2 and words[0] == "bytes":
        print_bytes(words[1])
    elif len(words) == 6 and words[0] == "shares":
        print_shares(words[1], words[2], int(words[3]), words[4], words[5])
    else:
        print(__doc__, file=sys.stderr)
        sys.exit(2)


main()
