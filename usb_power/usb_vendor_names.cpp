/// The table of USB vendor names. The compiler builds it: a start of the service takes no time for
/// it, and its memory is that of the executable file.
#include "usb_power/usb_vendor_names.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

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

/// A hash table with open addressing: a row stands at the place of its id, or behind it where
/// that is taken. Half of the places stay free, so that a search is short.
struct VendorTable {
    static constexpr std::size_t size = 2 * std::size(vendor_rows);
    std::uint16_t ids[size];
    std::uint32_t names[size];  // place in `vendor_texts`, plus 1; 0 where no row stands
};

/// The place of the row with this id, or the free one where it would stand.
constexpr std::size_t find_place(const VendorTable& table, int id)
{
    auto place = static_cast<std::size_t>(id) % VendorTable::size;
    while (table.names[place] != 0 && table.ids[place] != id) {
        place = (place + 1) % VendorTable::size;
    }
    return place;
}

/// Of two rows with one id, the earlier stands.
constexpr VendorTable make_usb_vendor_names()
{
    VendorTable table = {};
    std::uint32_t name = 1;
    for (const VendorRow& row : vendor_rows) {
        const std::size_t place = find_place(table, row.id);
        if (table.names[place] == 0) {
            table.ids[place] = row.id;
            table.names[place] = name;
        }
        name += row.name_size;
    }
    return table;
}
constexpr VendorTable usb_vendor_names = make_usb_vendor_names();

}  // namespace

const char* find_usb_vendor_name(int id)
{
    const std::uint32_t name = usb_vendor_names.names[find_place(usb_vendor_names, id)];
    return name == 0 ? nullptr : &vendor_texts[name - 1];
}
