/// The table of USB vendor names, built before `main` from the rows that
/// scripts/generate-usb-vendor-rows makes of the list.
#include "usb_power/usb_vendor_names.h"

#include <cstdint>
#include <unordered_map>

namespace {

/// Of two rows with one id, the earlier stands. A failure here is one to get memory at start, and
/// ends the process as it should.
const std::unordered_map<std::int32_t, const char*> usb_vendor_names = {
    // NOLINT(cert-err58-cpp)
#include "usb_vendor_rows.inc"
};

}  // namespace

const char* find_usb_vendor_name(int id)
{
    const auto found = usb_vendor_names.find(id);
    return found == usb_vendor_names.end() ? nullptr : found->second;
}
