/// Charging control of the USB-C port.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"
#include "usb_power/usb_power.h"

void set_charging_enabled(int charging_enabled)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(usb_host_document.path);
    Json::Value& entry = entry_at(array_in(root, "usb_c"), 0, [] { return Json::Value(); });
    Json::Value& control = object_in(object_in(entry, "charging"), "control");
    if (set_flag(control, "charging_enabled", charging_enabled == 1)) {
        write_json_to_file(usb_host_document.path, root);
    }
}
