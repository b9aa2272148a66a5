#!/usr/bin/env python3
"""Makes the cards that docs/reading-a-sheet.md gives rates of, and counts what came of them.

usage: cards.py texts N SEED [LONGEST]   N random texts of 11 to 80 (LONGEST) letters and digits
       cards.py sealed N SEED            N texts of the form PASS-...XXXX, a CRC-16 at their end
       cards.py barcodes N SEED FOLDER   pictures of N barcodes of each kind, a folder for each; zint
       cards.py rates < JSON             counts what scripts/inspect.sh --cards --json printed: by
                                         level, version, mask and folder; kinds of false symbols
The same seed gives the same cards. Ends with 0, or 1 when one cannot be made, 2 on wrong usage.
"""
import binascii
import collections
import json
import os
import random
import string
import subprocess
import sys

LETTERS = string.ascii_letters + string.digits
CAPITALS = string.ascii_uppercase + string.digits


def check_digit(digits):
    """Of EAN, UPC and GTIN: weights 3 and 1 from the right."""
    total = sum(int(d) * (3 if (len(digits) - i) % 2 else 1) for i, d in enumerate(digits))
    return str(-total % 10)


def crc(text):
    """CRC-16 (CCITT, begun with FFFF), as 4 hexadecimal digits."""
    return "%04X" % binascii.crc_hqx(text.encode(), 0xFFFF)


def texts(rand, count, longest="80"):
    for _ in range(count):
        print("".join(rand.choices(LETTERS, k=rand.randint(11, int(longest)))))


def sealed(rand, count):
    for _ in range(count):
        text = "PASS-" + "".join(rand.choices(LETTERS, k=rand.randint(6, 60)))
        print(text + crc(text))


def barcodes(rand, count, folder):
    def some(of, low, high):
        return "".join(rand.choices(of, k=rand.randint(low, high)))

    digits = string.digits
    # For each kind what zint is given, and what zbar makes of that.
    kinds = {
        "CODE128": lambda: some(LETTERS, 11, 16),
        "CODE39": lambda: some(CAPITALS, 11, 12),
        "CODE93": lambda: some(CAPITALS, 11, 14),
        "CODABAR": lambda: "A" + some(digits, 11, 14) + "B",
        "C25INTER": lambda: some(digits, 12, 12),
        "EANX": lambda: some("123456789", 1, 1) + some(digits, 11, 11),
        "UPCA": lambda: some(digits, 11, 11),
        "DBAR_OMN": lambda: some(digits, 13, 13),
        "DBAR_EXP": lambda: "[10]" + some(CAPITALS, 9, 12),
    }
    read = {
        "EANX": lambda data: data + check_digit(data),
        "UPCA": lambda data: data + check_digit(data),
        "DBAR_OMN": lambda data: "01" + data + check_digit(data),
        "DBAR_EXP": lambda data: "10" + data[4:],
    }
    for kind, make in kinds.items():
        os.makedirs(os.path.join(folder, kind), exist_ok=True)
        for n in range(count):
            data = make()
            name = os.path.join(folder, kind, "%04d" % n)
            subprocess.run(["zint", "--barcode=" + kind, "--quietzones", "--notext", "--height=50",
                            "--data=" + data, "-o", name + ".png"], check=True)
            with open(name + ".txt", "w", encoding="ascii") as file:
                file.write(read.get(kind, lambda data: data)(data) + "\n")


def rates():
    made = collections.Counter()
    wrong = collections.Counter()
    symbols = collections.Counter()
    for line in sys.stdin:
        card = json.loads(line)
        of_card = [("level", card["level"]), ("version", card["version"]), ("mask", card["mask"]),
                   ("folder", os.path.basename(os.path.dirname(card["source"])))]
        made.update(of_card)
        if card["wrong"]:
            wrong.update(of_card)
        for view in card["wrongViews"]:
            came, text = view["text"], card["text"]
            same_rest = len(came) == len(text) and came[2:] == text[2:]
            symbols[view["symbologies"] + (", first 2 bytes" if same_rest else ", otherwise")] += 1
            symbols["begins with PASS-"] += came.startswith("PASS-")
            symbols["CRC-16 at its end holds"] += came[-4:] == crc(came[:-4])
    for key in sorted(made, key=str):
        print("%-8s %-9s %6d cards, %4d ever wrong" % (*key, made[key], wrong[key]))
    for what, views in symbols.most_common():
        print("wrong views: %4d %s" % (views, what))


def main():
    makers = {"texts": texts, "sealed": sealed, "barcodes": barcodes}
    try:
        if sys.argv[1:] == ["rates"]:
            rates()
        elif sys.argv[1:2] in (["-h"], ["--help"]):
            print(__doc__.strip())
        else:
            make, count, seed = makers[sys.argv[1]], int(sys.argv[2]), int(sys.argv[3])
            make(random.Random(seed), count, *sys.argv[4:])
    except json.JSONDecodeError as error:
        print("cards.py: standard input is not what inspect.sh --cards --json prints: %s" % error,
              file=sys.stderr)
        return 1
    except (IndexError, KeyError, TypeError, ValueError):
        print("cards.py: wrong usage: %s; see cards.py --help" % " ".join(sys.argv[1:]),
              file=sys.stderr)
        return 2
    except (OSError, subprocess.CalledProcessError) as error:
        print("cards.py: %s" % error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
