/// Enabling and disabling the Ethernet ports.
#include <cstring>
#include <mutex>

#include "core/shared_state.h"
#include "ethernet/ethernet.h"
#include "ethernet/ethernet_entries.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"

void set_ethernet_port_enabled(int port, const char* state)
{
    if (port < 1 || port > static_cast<int>(ethernet_port_count)) {
        return;
    }
    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(ethernet_document.path);
    // Only a status update builds the array: a document that holds just what was enabled would
    // pass for one that knows the ports.
    if (!root.isMember("ethernet") || !root["ethernet"].isArray()) {
        return;
    }

    const auto make_entry = [port] { return make_ethernet_entry("LAN" + std::to_string(port)); };
    Json::Value& entry =
        entry_at(root["ethernet"], static_cast<Json::ArrayIndex>(port - 1), make_entry);
    object_in(entry, "control")["enabled"] = std::strcmp(state, "on") == 0;
    write_json_to_file(ethernet_document.path, root);
}
