/// The table of USB vendor names, built before `main` from the rows that
/// scripts/generate-usb-vendor-rows makes of the list.
#include "usb_power/usb_vendor_names.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unordered_map>

namespace {

// Id, tab, name and a zero byte, row behind row, and one more zero byte: data without a pointer,
// which the loader leaves alone.
constexpr char vendor_rows[] =
#include "usb_vendor_rows.inc"
    ;

using VendorNames = std::unordered_map<std::int32_t, const char*>;

/// Of two rows with one id, the earlier stands.
VendorNames make_usb_vendor_names()
{
    VendorNames names;
    names.reserve(
        static_cast<std::size_t>(std::count(std::begin(vendor_rows), std::end(vendor_rows), '\0')));
    for (const char* row = vendor_rows; *row != '\0'; row += std::strlen(row) + 1) {
        names.try_emplace(std::atoi(row), std::strchr(row, '\t') + 1);
    }
    return names;
}

// A failure here is one to get memory at start, and ends the process as it should.
const VendorNames usb_vendor_names = make_usb_vendor_names();  // NOLINT(cert-err58-cpp)

}  // namespace

const char* find_usb_vendor_name(int id)
{
    const auto found = usb_vendor_names.find(id);
    return found == usb_vendor_names.end() ? nullptr : found->second;
}
