# zbar, as the target ZBarLib::zbar.
include(find-one-library)
find_one_library(ZBarLib zbar.h zbar)
