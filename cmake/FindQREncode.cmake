# libqrencode, as the target QREncode::qrencode.
include(find-one-library)
find_one_library(QREncode qrencode.h qrencode)
