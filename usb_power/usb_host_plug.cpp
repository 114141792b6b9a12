/// Plug states of the USB host inputs.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"
#include "usb_power/usb_c_entry.h"
#include "usb_power/usb_power.h"

namespace {

void publish_plug(int index, int status)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(usb_host_document.path);
    if (Json::Value* entry = find_usb_c_entry(array_in(root, "usb_c"), index)) {
        (*entry)["connected"] = status == 1;
    }
    write_json_to_file(usb_host_document.path, root);
}

}  // namespace

void update_usb_host_in1_plug(int status)
{
    publish_plug(usb_c_input_index, status);
}

void update_usb_host_in2_plug()
{
    publish_plug(usb_host_in2_index, usb_host_plug_status);
}
