/// The state of the Ethernet ports, read from the driver and published.
#include <array>
#include <cstdio>
#include <mutex>

#include "core/paths.h"
#include "core/shared_state.h"
#include "ethernet/ethernet.h"
#include "ethernet/ethernet_codes.h"
#include "ethernet/ethernet_entries.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"

namespace {

/// As the driver's file gives it, in this order, for one port after the other.
struct PortStatus {
    int link;  // 1 up
    int speed;
    int duplex;
};
using PortStatuses = std::array<PortStatus, ethernet_port_count>;

constexpr Json::ArrayIndex lan4_position = 3;

bool read_port_status(std::FILE* file, PortStatus& status)
{
    return std::fscanf(file, "%d %d %d", &status.link, &status.speed, &status.duplex) == 3;
}

/// The four ports, or all of them down where the file doesn't give all of them.
PortStatuses read_port_statuses()
{
    PortStatuses statuses = {};
    std::FILE* file = std::fopen(ethernet_port_status_path, "r");
    if (file == nullptr) {
        return statuses;
    }
    for (PortStatus& status : statuses) {
        if (!read_port_status(file, status)) {
            statuses = {};
            break;
        }
    }
    static_cast<void>(std::fclose(file));
    return statuses;
}

bool is_enabled(const Json::Value& entry)
{
    const Json::Value& control = entry["control"];
    if (!control.isObject() || !control.isMember("enabled")) {
        return true;
    }
    const Json::Value& enabled = control["enabled"];
    return !enabled.isConvertibleTo(Json::booleanValue) || enabled.asBool();
}

/// Whether the USB side of LAN4, as it is selected, is plugged in. An input whose link has not
/// been reported yet does not count.
bool is_lan4_plugged_in()
{
    switch (usb_eth_select) {
        case 0:
            return usb_host_plug_status == 1;
        case 1:
            return input_cache[usb_c_input].connected == 1;
        default:
            return false;
    }
}

Json::Value link_of(const PortStatus& status)
{
    Json::Value link = down_link();
    if (status.link == 1) {
        link["status"] = true;
        link["speed"] = text_of_code(speed_texts, status.speed, "N/A");
        link["mode"] = text_of_code(duplex_texts, status.duplex, "N/A");
    }
    return link;
}

}  // namespace

void update_ethernet_status()
{
    const PortStatuses statuses = read_port_statuses();
    const auto make_entry = [] { return make_ethernet_entry("LAN"); };

    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(ethernet_document.path);
    Json::Value& entries = array_in(root, "ethernet");
    for (Json::ArrayIndex position = 0; position < ethernet_port_count; ++position) {
        Json::Value& entry = entry_at(entries, position, make_entry);
        const bool can_have_link =
            is_enabled(entry) && (position != lan4_position || is_lan4_plugged_in());
        entry["link"] = can_have_link ? link_of(statuses[position]) : down_link();
    }
    write_json_to_file(ethernet_document.path, root);
}
