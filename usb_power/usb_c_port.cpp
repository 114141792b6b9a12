/// The USB-C port: its partner, DisplayPort alternate mode and charging.
#include <cstdio>
#include <cstring>
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"
#include "usb_power/usb_power.h"
#include "usb_power/usb_power_codes.h"
#include "usb_power/usb_vendor_names.h"

namespace {

struct HexId {
    char text[5];
};

HexId hex_id(std::uint16_t id)
{
    HexId hex = {};
    static_cast<void>(std::snprintf(hex.text, sizeof hex.text, "%04X", unsigned{id}));
    return hex;
}

const char* active_pins(const TypeC_Info& report)
{
    return report.DpMode_Active == 1
               ? text_of_code(pin_assignment_texts, report.PinAssignment, "N/A")
               : "N/A";
}

const char* vendor_name(std::uint16_t id)
{
    const char* name = find_usb_vendor_name(id);
    return name != nullptr ? name : "Unknown";
}

const char* charging_state(const TypeC_Info& report)
{
    return power_status == 0 ? "Unavailable"
                             : text_of_code(charging_state_texts, report.ChargingState, "N/A");
}

/// Numbers are compared with their kinds. The parser gives a number the signed kind, so in
/// practice one that was read always differs from one that is reported.
bool set_unsigned(Json::Value& object, const char* name, std::uint32_t number)
{
    const Json::Value reported = Json::UInt{number};
    Json::Value& member = object[name];
    if (member != reported) {
        member = reported;
        return true;
    }
    return false;
}

bool set_partner(Json::Value& partner, const TypeC_Info& report)
{
    const HexId product_id = hex_id(report.PeerDevicePID);
    const ManufacturerText manufacturer = manufacturer_text(report);
    bool changed = set_text(partner, "vendor_id", hex_id(report.PeerDeviceVID).text);
    changed |= set_text(partner, "vendor", vendor_name(report.PeerDeviceVID));
    changed |= set_text(partner, "product_id", product_id.text);
    changed |= set_text(partner, "product",
                        report.PeerDevicePID == 0 ? "Not Supported" : manufacturer.text);
    return changed;
}

/// Without a charging state the figures mean nothing. While the power supply makes charging
/// unavailable, they still say what the partner would get.
bool set_charging(Json::Value& charging, const TypeC_Info& report)
{
    const char* state = charging_state(report);
    const bool has_figures = std::strcmp(state, "N/A") != 0 && std::strcmp(state, "Inactive") != 0;
    bool changed =
        set_unsigned(charging, "vbus_voltage_nominal_v", has_figures ? report.Charging_mV : 0);
    changed |= set_unsigned(charging, "max_vbus_current_a", has_figures ? report.Charging_mA : 0);
    changed |= set_text(charging, "charging_state", state);
    return changed;
}

}  // namespace

ManufacturerText manufacturer_text(const TypeC_Info& report)
{
    ManufacturerText text = {};
    std::memcpy(text.text, report.PeerDeviceMFT_String, sizeof report.PeerDeviceMFT_String);
    return text;
}

void update_usb_c_port(const TypeC_Info* report)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(usb_host_document.path);
    Json::Value& entry = entry_at(array_in(root, "usb_c"), 0, [] { return Json::Value(); });
    entry["connected"] = true;

    Json::Value& generic = object_in(entry, "generic");
    bool changed =
        set_flag(generic, "host_supports_dp_alt_mode", report->Remote_DpMode_Support == 1);
    changed |= set_text(generic, "active_dp_alt_mode_pins", active_pins(*report));
    changed |= set_partner(object_in(generic, "partner"), *report);
    changed |= set_charging(object_in(entry, "charging"), *report);
    if (changed) {
        write_json_to_file(usb_host_document.path, root);
    }
}
