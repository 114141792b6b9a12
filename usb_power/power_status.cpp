/// The power source and the current that is drawn.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"
#include "usb_power/usb_power.h"
#include "usb_power/usb_power_codes.h"

namespace {

constexpr int poe_voltage_mv = 11900;
constexpr int adapter_voltage_mv = 24000;

// The last current that was reported. Dispatch thread only.
int last_power_v_value = -1;

}  // namespace

void update_power_source()
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(power_document.path);
    if (const char* source = text_of_code(power_source_texts, power_status, nullptr)) {
        Json::Value& power = object_in(root, "power");
        power["power_source"] = source;
        power["measured_power_voltage_v"] = power_status == 0 ? poe_voltage_mv : adapter_voltage_mv;
    } else if (!root.isMember("power")) {
        root["power"] = Json::Value(Json::objectValue);
    }
    write_json_to_file(power_document.path, root);
}

void update_power_current(int value)
{
    if (value == last_power_v_value) {
        return;
    }
    last_power_v_value = value;

    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(power_document.path);
    object_in(root, "power")["measured_power_current_a"] = value;
    write_json_to_file(power_document.path, root);
}
