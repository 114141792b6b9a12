/// A sequence of what is reported to a service that has just started, each behind two bytes: 12
/// bits of size, and 4 that say whether it is a datagram or the file of a driver. What the service
/// remembers of one decides what the next one does.
#include <unistd.h>

#include "core/paths.h"
#include "core/shared_state.h"
#include "ethernet/ethernet_entries.h"
#include "fuzz/device.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    restore_device();
    unlink(videoip_timing_path);
    unlink(ethernet_port_status_path);
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (rest.size() >= 2) {
        const auto low = static_cast<unsigned char>(rest[0]);
        const auto high = static_cast<unsigned char>(rest[1]);
        const std::string_view report = rest.substr(2, low + 256U * (high % 16));
        switch (high / 16) {
            case 1:
                write_text(videoip_timing_path, report);
                break;
            case 2:
                write_text(ethernet_port_status_path, report);
                break;
            default:
                deliver(report);
        }
        rest.remove_prefix(2 + report.size());
    }
    const Json::Value inputs = sound_document(inputs_document)["inputs"];
    require(inputs.size() == 3, "the inputs stay");
    for (Json::ArrayIndex position = 0; position < 2; ++position) {
        const Json::Value& video = inputs[position]["video"];
        require(input_cache[position].connected != 0 ||
                    (!video["connected"].asBool() && !video["signal_present"].asBool() &&
                     video["active_resolution"] == "N/A" && video["refresh_rate_hz"] == 0 &&
                     !inputs[position]["audio"]["connected"].asBool()),
                "an input without a link is empty");
        const Json::Value& timing = video["timing"];
        require(timing["h_total_pixels"].asUInt() >= timing["h_active_pixels"].asUInt() &&
                    timing["v_total_pixels"].asUInt() >= timing["v_active_pixels"].asUInt(),
                "a timing that is no signal is not published");
    }
    require(sound_document(usb_host_document)["usb_c"].size() == 2, "the USB-C ports stay");
    const Json::Value ports = sound_document(ethernet_document)["ethernet"];
    require(ports.size() == ethernet_port_count, "the Ethernet ports stay");
    for (const Json::Value& port : ports) {
        const Json::Value& link = port["link"];
        require(link["status"].asBool() || link == down_link(), "no link shows no speed");
    }
    require(sound_document(power_document)["power"].size() == 3, "the power stays");
    require(sound_document(outputs_document)["outputs"].size() == 1, "the output stays");
    return 0;
}
