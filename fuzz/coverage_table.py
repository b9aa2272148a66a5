#!/usr/bin/env python3
# usage: coverage_table.py < EXPORT
# Prints what llvm-cov's "export -summary-only" says of lines: each file of the service that was built in, and
# the parts of the libraries that strangers' bytes pass. Ends with 0, 1 when the export names none of them.
import json
import re
import sys

PARTS = [  # the first that a path matches counts
    (r"/qrcode_src/(.*)", None),
    (r"zbar/zbar/decoder/", "zbar: decoders of bars"),
    (r"zbar/zbar/qrcode/", "zbar: QR codes"),
    (r"zbar/zbar/sqcode\.c", "zbar: SQ codes"),
    (r"zbar/zbar/", "zbar: the rest"),
    (r"libjpeg-turbo/(jd|jid|jquant|jutils|jmem|jcomapi|jerror)", "libjpeg-turbo: decoder"),
    (r"/grfmt_jpeg\.cpp", "OpenCV: JPEG, both ways"),
    (r"/grfmt_bmp\.cpp", "OpenCV: BMP, both ways"),
]

parts = {}
for file in json.load(sys.stdin)["data"][0]["files"]:
    for pattern, name in PARTS:
        match = re.search(pattern, file["filename"])
        if match:
            lines = file["summary"]["lines"]
            part = parts.setdefault(name or match[1], [0, 0])
            part[0] += lines["covered"]
            part[1] += lines["count"]
            break
if not parts:
    sys.exit("coverage_table.py: no file of the service or its libraries in the export")
print(f"{'lines of':34} {'reached':>8} {'of':>8}")
for name, (covered, count) in sorted(parts.items()):
    print(f"{name:34} {covered:8} {count:8} {100 * covered / count:5.1f} %")
