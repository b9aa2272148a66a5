# libzint, as the target Zint::zint.
include(find-one-library)
find_one_library(Zint zint.h zint)
