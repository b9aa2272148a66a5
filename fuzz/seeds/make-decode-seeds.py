#!/usr/bin/env python3
# usage: make-decode-seeds.py
# Makes the pictures in the folder decode beside it anew, all but found-*, which fuzzing has found: a small
# one of every kind of JPEG that the decoder has code for, cut and damaged ones, and the BMPs that OpenCV
# reads whether wanted or not.
# Needs cjpeg (Debian's package libjpeg-turbo-progs, 2.1.5). Running it again gives the same files, byte
# for byte. Ends with 0, 1 when one cannot be made, 2 on wrong usage.
import pathlib
import random
import shutil
import struct
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent / "decode"
SOI, EOI = b"\xff\xd8", b"\xff\xd9"


def save(name, content):
    (FOLDER / name).write_bytes(content)


def segment(marker, content):
    return struct.pack(">BBH", 0xFF, marker, len(content) + 2) + content


def drawing(columns, rows, colours=True):
    """Bars, a slope and some noise, so that all coefficients occur."""
    noise = random.Random(columns * 1000 + rows)
    pixels = bytearray()
    for y in range(rows):
        for x in range(columns):
            grey = (255 if (x // 3 + y // 7) % 2 else 30) - noise.randrange(20)
            pixels += bytes((grey, 255 - 3 * x % 256, 5 * y % 256) if colours else (grey,))
    return b"P%d %d %d 255\n" % (6 if colours else 5, columns, rows) + bytes(pixels)


def cjpeg(*options, columns=32, rows=32, colours=True):
    done = subprocess.run(["cjpeg", *options], input=drawing(columns, rows, colours),
                          capture_output=True, check=False)
    if done.returncode != 0:
        sys.exit(f"make-decode-seeds.py: cjpeg {' '.join(options)}: {done.stderr.decode()}")
    return done.stdout


def split(jpeg):
    """The JPEG as a list of (marker, bytes with the marker, up to the next segment)."""
    parts, at = [(0xD8, SOI)], 2
    while at < len(jpeg):
        marker, end = jpeg[at + 1], at + 2
        if marker != 0xD9:
            end += struct.unpack_from(">H", jpeg, end)[0]
        if marker == 0xDA: # its data runs up to a marker that is neither a stuffed byte nor a restart
            while not (jpeg[end] == 0xFF and jpeg[end + 1] not in (0, *range(0xD0, 0xD8))):
                end += 1
        parts.append((marker, jpeg[at:end]))
        at = end
    return parts


def join(parts):
    return b"".join(content for _, content in parts)


def without(jpeg, *markers):
    return join(part for part in split(jpeg) if part[0] not in markers)


def behind_soi(jpeg, *segments):
    return SOI + b"".join(segments) + jpeg[2:]


class Coder:
    """Writes made-up coefficients with the tables of the standard, for what cjpeg does not make."""

    def __init__(self):
        parts = split(cjpeg("-baseline"))
        self.huffman = b"".join(content for marker, content in parts if marker == 0xC4)
        self.codes = {}
        for marker, content in parts:
            if marker == 0xC4:
                self.codes[content[4]] = self.read_table(content[5:])

    @staticmethod
    def read_table(content):
        codes, code, at = {}, 0, 16
        for length in range(1, 17):
            for _ in range(content[length - 1]):
                codes[content[at]] = format(code, "0%db" % length)
                code, at = code + 1, at + 1
            code *= 2
        return codes

    def blocks(self, count, seed, classes=(0x00, 0x10)):
        """The bits of blocks: a DC difference and up to three coefficients each."""
        noise, bits, level = random.Random(seed), "", 0
        for _ in range(count):
            size = noise.randrange(6)
            up = level < 0
            level += (1 if up else -1) * (1 << size >> 1)
            bits += self.codes[classes[0]][size] + ("1" if up else "0") * min(size, 1)
            bits += ("0" if up else "1") * (size - 1)
            for _ in range(noise.randrange(4)):
                size = noise.randrange(1, 5)
                bits += self.codes[classes[1]][noise.randrange(6) * 16 + size]
                bits += format(noise.randrange(1 << size), "0%db" % size)
            bits += self.codes[classes[1]][0]
        return bits

    @staticmethod
    def pack(bits):
        bits += "1" * (-len(bits) % 8)
        data = bytes(int(bits[i : i + 8], 2) for i in range(0, len(bits), 8))
        return data.replace(b"\xff", b"\xff\x00")

    def jpeg(self, factors, columns=24, rows=24, sof=0xC0, precision=8, ids=b"\1\2\3\4", extra=b"",
             wide=False, quantisers=1, height=None, scans=None, restart=0, huffman=True, behind=b""):
        """factors: (horizontal, vertical) of each component; scans: lists of components of each scan,
        one with all by default."""
        count = len(factors)
        parts = SOI + extra
        for table in range(quantisers):
            steps = bytes(range(2 + table, 66 + table))
            if wide:
                steps = b"".join(struct.pack(">H", 5 * step) for step in steps)
            parts += segment(0xDB, bytes([(16 if wide else 0) + table]) + steps)
        frame = struct.pack(">BHHB", precision, rows if height is None else height, columns, count)
        for index, (across, down) in enumerate(factors):
            frame += bytes([ids[index], across * 16 + down, index % quantisers])
        parts += segment(sof, frame)
        if huffman:
            parts += self.huffman
        if restart:
            parts += segment(0xDD, struct.pack(">H", restart))
        most = [max(factor[way] for factor in factors) for way in (0, 1)]
        units = -(-columns // (8 * most[0])) * -(-rows // (8 * most[1]))
        for scan in scans or [list(range(count))]:
            chosen = b"".join(bytes([ids[index], 0x11 if index in (1, 2) else 0]) for index in scan)
            parts += segment(0xDA, bytes([len(scan)]) + chosen + b"\0\x3f\0")
            bits = ""
            for unit in range(units):
                if restart and unit and unit % restart == 0:
                    parts += self.pack(bits) + bytes([0xFF, 0xD0 + (unit // restart - 1) % 8])
                    bits = ""
                for index in scan:
                    classes = (1, 0x11) if index in (1, 2) else (0, 0x10)
                    area = factors[index][0] * factors[index][1]
                    bits += self.blocks(area, 99 * unit + index, classes)
            parts += self.pack(bits)
        return parts + behind + EOI


def adobe(transform):
    return segment(0xEE, b"Adobe" + struct.pack(">HHHB", 100, 0, 0, transform))


def exif(order, orientation):
    """A header of TIFF with an orientation and two tags whose values stand behind the table."""
    form = ">" if order == b"MM" else "<"
    tags = [(0x0112, 3, 1, orientation), (0x010F, 2, 12, 50), (0x011A, 5, 1, 62)]
    entries = b"".join(
        struct.pack(form + "HHI", tag, kind, count)
        + (struct.pack(form + "HH", value, 0) if kind == 3 else struct.pack(form + "I", value))
        for tag, kind, count, value in tags)
    body = order + struct.pack(form + "HIH", 42, 8, len(tags)) + entries + struct.pack(form + "I", 0)
    return segment(0xE1, b"Exif\0\0" + body + b"Camera Maker" + struct.pack(form + "II", 72, 1))


def cjpeg_kinds():
    small = ("-quality", "75")
    for name, options in {
        "444": ["-sample", "1x1"], "422": ["-sample", "2x1"], "420": ["-sample", "2x2"],
        "440": ["-sample", "1x2"], "411": ["-sample", "4x1"], "410": ["-sample", "4x2"],
        "odd-factors": ["-sample", "3x1,1x1,1x1"], "odd-factors-2": ["-sample", "2x2,2x1,1x2"],
        "chroma-larger": ["-sample", "1x1,2x2,1x1"], "rgb": ["-rgb"],
        "optimised": ["-optimize"], "restart-blocks": ["-restart", "1B"],
        "restart-rows": ["-restart", "1"], "quality-1": ["-quality", "1"],
        "quality-100": ["-quality", "100"], "rough-quality": ["-quality", "3", "-baseline"],
        "progressive": ["-progressive"], "progressive-restart": ["-progressive", "-restart", "1B"],
    }.items():
        save(name + ".jpg", cjpeg(*small, *options))
    save("camera-444.jpg", cjpeg("-quality", "99", "-sample", "1x1", columns=24, rows=24))
    save("camera-420.jpg", cjpeg("-quality", "99", "-sample", "2x2", columns=24, rows=24))
    save("grey.jpg", cjpeg(*small, colours=False))
    save("grey-progressive.jpg", cjpeg(*small, "-progressive", colours=False))
    for columns, rows in ((1, 1), (8, 8), (9, 9), (16, 16), (17, 17), (1, 40), (500, 1), (3000, 2)):
        quiet = ("-quality", "20")
        save(f"{columns}x{rows}.jpg", cjpeg(*quiet, columns=columns, rows=rows))
        save(f"{columns}x{rows}-444.jpg", cjpeg(*quiet, "-sample", "1x1", columns=columns, rows=rows))


def scan_scripts():
    """Scans given by hand: one component each, spectral selection, successive approximation."""
    script = FOLDER / "script"
    for name, options, text in (
        ("one-component-scans", [], "0;1;2;"),
        ("two-scans", [], "0;1 2;"),
        ("spectral", ["-progressive"], "0 1 2:0-0,0,0;0:1-5,0,0;0:6-63,0,0;1:1-63,0,0;2:1-63,0,0;"),
        ("successive", ["-progressive"],
         "0 1 2:0-0,0,2;0:1-63,0,2;1:1-63,0,2;2:1-63,0,2;0 1 2:0-0,2,1;0:1-63,2,1;"
         "0 1 2:0-0,1,0;0:1-63,1,0;1:1-63,2,1;2:1-63,2,1;"),
    ):
        script.write_text(text.replace(";", ";\n"))
        save(name + ".jpg", cjpeg("-quality", "60", *options, "-scans", str(script), columns=24, rows=24))
    script.unlink()


def cut_and_damaged():
    progressive = split(cjpeg("-progressive", "-quality", "50", columns=24, rows=24))
    scans = [index for index, part in enumerate(progressive) if part[0] == 0xDA]
    for number, index in enumerate(scans, 1):
        save(f"progressive-{number}-scans.jpg", join(progressive[: index + 1]) + EOI)
    save("progressive-cut.jpg", join(progressive[: scans[2] + 1]))
    plain = cjpeg("-quality", "60", columns=24, rows=24)
    save("cut-in-data.jpg", plain[:-40])
    save("cut-in-header.jpg", plain[:200])
    save("no-eoi.jpg", plain[:-2])
    save("garbage-behind.jpg", plain + b"garbage\xff\xd8\xff")
    save("garbage-before.jpg", SOI + b"\xff\xff\xffgarbage" + plain[2:])
    save("two-pictures.jpg", plain + cjpeg("-quality", "20", columns=9, rows=9))
    save("two-pictures-in-one.jpg", behind_soi(plain, cjpeg("-quality", "20", columns=9, rows=9)[2:-2]))
    save("no-tables-of-codes.jpg", without(cjpeg("-baseline", columns=24, rows=24), 0xC4))
    save("no-quantisers.jpg", without(plain, 0xDB))
    save("no-frame.jpg", without(plain, 0xC0))
    save("no-scan.jpg", without(plain, 0xDA))
    save("tables-only.jpg", without(plain, 0xC0, 0xDA))
    save("fill-bytes.jpg", b"".join(b"\xff\xff" * (m != 0xD8) + c for m, c in split(plain)))
    restarts = bytearray(cjpeg("-restart", "1B", "-quality", "30", columns=40, rows=24))
    second = restarts.index(b"\xff\xd1")
    missing = restarts[:second] + restarts[second + 2 :]
    restarts[second + 1] = 0xD5
    save("restart-wrong-number.jpg", bytes(restarts))
    save("restart-missing.jpg", bytes(missing))


def application_segments():
    plain = cjpeg("-quality", "40", columns=16, rows=16)
    save("exif-big-endian.jpg", behind_soi(plain, exif(b"MM", 6)))
    save("exif-little-endian.jpg", behind_soi(plain, exif(b"II", 3)))
    save("exif-short.jpg", behind_soi(plain, exif(b"II", 1)[:2] + b"\0\x0fExif\0\0II*\0\x08\0\0"))
    profile = struct.pack(">I4s4s4s4s4s", 128, b"lcms", b"\2\x10\0\0", b"mntr", b"RGB ", b"XYZ ")
    save("icc.jpg", behind_soi(plain, segment(0xE2, b"ICC_PROFILE\0\1\1" + profile + bytes(104))))
    save("many-segments.jpg", behind_soi(
        plain, *(segment(0xE0 + n, b"App %d" % n) for n in range(1, 16)),
        segment(0xFE, b"a comment"), segment(0xFE, b""), segment(0xE1, b"http://ns.adobe.com/xap/1.0/\0<x/>")))
    thumbnail = b"JFIF\0\1\2\0\0\1\0\1\2\2" + bytes(range(12))
    save("jfif-thumbnail.jpg", SOI + segment(0xE0, thumbnail) + without(plain, 0xE0)[2:])
    save("jfxx.jpg", behind_soi(plain, segment(0xE0, b"JFXX\0\x13\2\2" + bytes(12))))
    save("segment-past-the-end.jpg", plain[:20] + b"\xff\xe4\xff\xffabc" + plain[20:])
    # More than the decoder is shown is skipped: the data has to come from elsewhere, or not at all.
    save("skip-past-the-end.jpg", SOI + b"".join(b"\xff\xe5\xff\xff" for _ in range(9)))


def coded_by_hand():
    coder, same = Coder(), [(1, 1)] * 3
    save("hand-rgb.jpg", coder.jpeg(same, extra=adobe(0)))
    save("hand-ycc.jpg", coder.jpeg(same, extra=adobe(1)))
    save("hand-rgb-by-name.jpg", coder.jpeg(same, ids=b"RGB"))
    save("cmyk.jpg", coder.jpeg([(1, 1)] * 4, extra=adobe(0)))
    save("cmyk-no-adobe.jpg", coder.jpeg([(1, 1)] * 4))
    save("ycck.jpg", coder.jpeg([(1, 1)] * 4, extra=adobe(2)))
    save("ycck-420.jpg", coder.jpeg([(2, 2), (1, 1), (1, 1), (2, 2)], columns=17, extra=adobe(2)))
    save("two-components.jpg", coder.jpeg([(1, 1)] * 2))
    save("extended.jpg", coder.jpeg([(2, 1), (1, 1), (1, 1)], sof=0xC1))
    save("four-tables.jpg", coder.jpeg([(1, 1)] * 4, quantisers=4, extra=adobe(2)))
    save("wide-tables.jpg", coder.jpeg(same, sof=0xC1, wide=True))
    save("12-bit.jpg", coder.jpeg([(1, 1)], sof=0xC1, precision=12))
    save("lossless.jpg", coder.jpeg([(1, 1)], sof=0xC3))
    save("arithmetic.jpg", coder.jpeg([(1, 1)], sof=0xC9, extra=segment(0xCC, b"\x00\x10")))
    save("arithmetic-progressive.jpg", coder.jpeg([(1, 1)], sof=0xCA))
    save("hierarchical.jpg", coder.jpeg([(1, 1)], sof=0xC5))
    save("dnl.jpg", coder.jpeg([(1, 1)], height=0, behind=segment(0xDC, struct.pack(">H", 24))))
    save("scans-4-components.jpg", coder.jpeg([(1, 1)] * 4, scans=[[0], [1, 2], [3]]))
    save("a-component-missing.jpg", coder.jpeg(same, scans=[[0], [2]]))
    save("a-component-twice.jpg", coder.jpeg(same, scans=[[0, 1, 2], [1]]))
    save("hand-restart.jpg", coder.jpeg([(1, 1)], columns=48, restart=1))
    save("no-codes-by-hand.jpg", coder.jpeg(same, huffman=False))
    save("more-tables.jpg", coder.jpeg(same, extra=segment(0xC4, b"\x03" + bytes(15) + b"\1\0")))
    # A table whose all-zero codes are the longest: the zeros behind a cut picture are used up before
    # its last row.
    greedy = segment(0xC4, b"\x00\0" + b"\1" + bytes(14) + b"\x0b") + segment(
        0xC4, b"\x10\0\1" + bytes(14) + b"\x0a")
    save("zeros-used-up.jpg", SOI + segment(0xDB, b"\0" + bytes([1] * 64)) + segment(
        0xC0, struct.pack(">BHHB", 8, 640, 640, 1) + b"\1\x11\0") + greedy + segment(
        0xDA, b"\1\1\0\0\x3f\0"))


def bmp(columns, rows, bits, data, compression=0, colours=0, core=False):
    palette = b"".join(bytes([i * 37 % 256, i * 59 % 256, i * 83 % 256] + [0] * (not core))
                       for i in range(colours))
    if core:
        header = struct.pack("<IHHHH", 12, columns, rows, 1, bits)
    else:
        header = struct.pack("<IiiHHIIiiII", 40, columns, rows, 1, bits, compression, len(data), 0, 0,
                             colours, 0)
    start = 14 + len(header) + len(palette)
    return struct.pack("<2sIII", b"BM", start + len(data), 0, start) + header + palette + data


def bmps():
    noise = random.Random(7)
    save("24.bmp", bmp(7, 5, 24, noise.randbytes(24 * 5)))
    save("24-top-down.bmp", bmp(7, -5, 24, noise.randbytes(24 * 5)))
    save("32.bmp", bmp(6, 4, 32, noise.randbytes(96)))
    save("16.bmp", bmp(6, 4, 16, noise.randbytes(48)))
    save("16-masks.bmp", bmp(6, 4, 16, struct.pack("<III", 0xF800, 0x7E0, 0x1F) + noise.randbytes(48), 3))
    save("palette-8.bmp", bmp(8, 6, 8, noise.randbytes(48), colours=256)[:1200])
    save("palette-4.bmp", bmp(9, 6, 4, noise.randbytes(48), colours=16))
    save("palette-1.bmp", bmp(40, 6, 1, noise.randbytes(48), colours=2))
    save("core.bmp", bmp(9, 6, 4, noise.randbytes(48), colours=16, core=True))
    # Runs, a literal run, a jump, the end of a row and of the picture.
    save("rle8.bmp", bmp(16, 6, 8, b"\x08\1\x08\2\0\0\0\5\1\2\3\4\5\0\3\6\0\0\0\2\4\1\6\7\0\1", 1, 16))
    save("rle4.bmp", bmp(16, 6, 4, b"\x08\x12\x08\x34\0\0\0\5\x12\x34\x50\0\3\x67\0\0\0\2\4\1\6\x78\0\1", 2, 16))


def main():
    if sys.argv[1:] in (["-h"], ["--help"]):
        for line in pathlib.Path(__file__).read_text().splitlines()[1:]:
            if not line.startswith("#"):
                return 0
            print(line[2:])
    if sys.argv[1:]:
        print("make-decode-seeds.py: takes no arguments; see --help", file=sys.stderr)
        return 2
    if shutil.which("cjpeg") is None:
        sys.exit("make-decode-seeds.py: cjpeg is not installed (Debian's package libjpeg-turbo-progs)")
    FOLDER.mkdir(exist_ok=True)
    for old in FOLDER.iterdir():
        if not old.name.startswith("found-"):
            old.unlink()
    cjpeg_kinds()
    scan_scripts()
    cut_and_damaged()
    application_segments()
    coded_by_hand()
    bmps()
    return 0


if __name__ == "__main__":
    sys.exit(main())
