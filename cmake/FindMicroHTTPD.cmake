# libmicrohttpd, as the target MicroHTTPD::microhttpd.
include(find-one-library)
find_one_library(MicroHTTPD microhttpd.h microhttpd)
