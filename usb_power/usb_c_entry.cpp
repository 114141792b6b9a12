/// The entries of `usb_c` in `usb-host.json`: how one is found, and how it is emptied.
#include "usb_power/usb_c_entry.h"

#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"
#include "usb_power/usb_power.h"

namespace {

bool is_charging_enabled(Json::Value& entry)
{
    return flag_in(object_in(object_in(entry, "charging"), "control"), "charging_enabled").asBool();
}

Json::Value empty_usb_c_entry(bool charging_enabled)
{
    Json::Value entry;
    entry["port"] = "USB-C";
    entry["index"] = usb_c_input_index;
    entry["connected"] = false;

    Json::Value& generic = entry["generic"];
    generic["host_supports_dp_alt_mode"] = false;
    generic["active_dp_alt_mode_pins"] = "N/A";
    for (const char* member : {"vendor_id", "vendor", "product_id", "product"}) {
        generic["partner"][member] = "N/A";
    }

    Json::Value& charging = entry["charging"];
    charging["vbus_voltage_nominal_v"] = 0;
    charging["max_vbus_current_a"] = 0;
    charging["charging_state"] = "N/A";
    charging["control"]["charging_enabled"] = charging_enabled;
    return entry;
}

}  // namespace

Json::Value* find_usb_c_entry(Json::Value& entries, int index)
{
    for (Json::Value& entry : entries) {
        if (holds_members(entry) && number_in(entry, "index").asInt() == index) {
            return &entry;
        }
    }
    return nullptr;
}

void reset_usb_c_entry()
{
    Json::Value root = read_document(usb_host_document.path);
    if (Json::Value* entry = find_usb_c_entry(array_in(root, "usb_c"), usb_c_input_index)) {
        *entry = empty_usb_c_entry(is_charging_enabled(*entry));
    }
    write_json_to_file(usb_host_document.path, root);
}
