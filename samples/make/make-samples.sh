#!/bin/bash
# usage: make-samples.sh
# Makes the pictures and texts in the folder above anew. Needs what the project needs
# to build, and Debian's packages qrencode and zint. Running it again gives the same files, byte for
# byte; the test samples_test checks that each is read as README.md says.
# Ends with 0, 1 when one cannot be made, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

arguments 0 0 "$@"
samples=$project/samples
for tool in qrencode zint; do
    command -v "$tool" > /dev/null || fail "$tool is not installed (Debian's package $tool)"
done
"$project/scripts/build.sh" release make_samples

raw="$(mktemp -d)"
trap 'rm -rf "$raw"' EXIT

# text NAME TEXT: the text that the code NAME holds.
text() {
    printf '%s' "$2" >"$raw/$1.txt"
}

# qr NAME LEVEL TEXT: a QR code of one pixel a module, without a margin; LEVEL (L, M, Q, H) is how
# much of it may be lost.
qr() {
    text "$1" "$3"
    qrencode --8bit --size=1 --margin=0 --level="$2" --output="$raw/$1.png" "$3"
}

# bar NAME TYPE TEXT: a barcode with the margin it needs and its text below.
bar() {
    text "$1" "$3"
    zint --barcode="$2" --quietzones --output="$raw/$1.png" --data="$3"
}

# No two texts are the same, and all but one are long enough (11 bytes) to be reported.
qr plain M 'VISITOR PASS 2024-0117'
qr rotated M 'https://visit.example.com/p/7QX2K9'
qr tilted M 'DELIVERY;DOCK 3;ORDER 55012'
qr curved Q 'CUP-LOAN 7 CAFETERIA'
qr far-away M 'https://visit.example.com/far'
qr blurred M 'GUEST-ANNA-LINDQVIST-1400'
qr noisy M 'STAFF:004512:NIGHT SHIFT'
qr glare H 'ROOM 12-041 CLEANING CREW'
qr faint M 'COURIER 4471 PICKUP 16:30'
qr coloured M 'EVENT-TICKET-A17-ROW-5'
qr speckled M 'BADGE-RETURN-000731'
qr inverted M 'phone-pass:3f9a27c1'
qr dusty-screen M 'phone-pass:b84e60d2'
qr uneven-light M 'CONTRACTOR-8831-BLOCK-C'
qr worn M 'LOCKER-KEY-0226-EAST'
qr faded M 'PARKING LEVEL 2 BAY 118'
qr bleached M 'CANTEEN-CARD-55-0917'
qr washed-out M 'MEMBER 20931 SWIM HALL'
qr overexposed M 'LIBRARY-USER-6610842'
qr several-codes-1 L 'https://visit.example.com/hello'
qr several-codes-2 L 'FLOOR-03-GUEST'
qr badge-qr M 'BADGE 00482 JOHN SMITH'
bar badge-bar CODE128 'LNR-00482-S'
qr ten-characters M 'DOOR-KEY-1'
qr eleven-characters M 'DOOR-KEY-02'
bar code128 CODE128 'EMP-0048-2217'
bar ean13 EANX '4006381333931'

# zint, because it can say in the code that the text is UTF-8 (26); without that the reader guesses
# the encoding, and guesses wrong.
text umlaut 'Zürich Besucher 7'
zint --barcode=QRCODE --secure=2 --eci=26 --scale=0.5 --output="$raw/umlaut.png" \
    --data='Zürich Besucher 7'

"$project/build/release/samples/make/make_samples" "$raw" "$samples"
