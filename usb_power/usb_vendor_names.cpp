/// The table of USB vendor names, built before `main` from rows of constant data.
#include "usb_power/usb_vendor_names.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory_resource>
#include <unordered_map>

namespace {

// The ids with the sizes of their names, and the names one behind the other: data without a
// pointer, which the loader leaves alone and the processes share with the file.
struct VendorRow {
    std::uint16_t id;
    std::uint16_t name_size;  // with the zero byte behind it
};

// NOLINTBEGIN(cppcoreguidelines-macro-usage): what is made of a row is up to who includes it.
constexpr VendorRow vendor_rows[] = {
#define USB_VENDOR_ROW(id, name) {id, sizeof(name)},
#include "usb_vendor_rows.inc"
#undef USB_VENDOR_ROW
};

constexpr char vendor_texts[] =
#define USB_VENDOR_ROW(id, name) name "\0"
#include "usb_vendor_rows.inc"
#undef USB_VENDOR_ROW
    ;
// NOLINTEND(cppcoreguidelines-macro-usage)

using VendorNames = std::pmr::unordered_map<std::int32_t, const char*>;

// In the map, buckets included; an estimate, as more is taken where it is too little.
constexpr std::size_t bytes_of_entry = 40;

/// Of two rows with one id, the earlier stands.
VendorNames make_usb_vendor_names()
{
    // All entries from one block: thousands of allocations less at each start.
    static std::pmr::monotonic_buffer_resource memory(std::size(vendor_rows) * bytes_of_entry);
    VendorNames names(&memory);
    names.reserve(std::size(vendor_rows));
    const char* name = vendor_texts;
    for (const VendorRow& row : vendor_rows) {
        names.try_emplace(row.id, name);
        name += row.name_size;
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
