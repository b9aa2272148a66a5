#include "scan_watch.h"

#include <zbar.h>

namespace
{

std::vector<WatchedScan> scans;

WatchedSymbol ReadSymbol(const zbar::zbar_symbol_t* symbol)
{
    WatchedSymbol seen;
    const zbar::zbar_symbol_type_t type = zbar_symbol_get_type(symbol);
    seen.symbology = std::string(zbar::zbar_get_symbol_name(type)) + zbar_get_addon_name(type);
    seen.text.assign(zbar_symbol_get_data(symbol), zbar_symbol_get_data_length(symbol));
    for (unsigned i = 0; i < zbar_symbol_get_loc_size(symbol); ++i) {
        seen.corners.emplace_back(zbar_symbol_get_loc_x(symbol, i),
                                  zbar_symbol_get_loc_y(symbol, i));
    }
    return seen;
}

} // namespace

extern "C" {
int __real_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image);
int __wrap_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image);

int __wrap_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image)
{
    const int result = __real_zbar_scan_image(scanner, image);
    WatchedScan scan;
    for (const zbar::zbar_symbol_t* symbol = zbar_image_first_symbol(image); symbol != nullptr;
         symbol = zbar_symbol_next(symbol)) {
        scan.symbols.push_back(ReadSymbol(symbol));
    }
    scans.push_back(scan);
    return result;
}
}

void Watch_Begin()
{
    scans.clear();
}

const std::vector<WatchedScan>& Watch_Scans()
{
    return scans;
}
