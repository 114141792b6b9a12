/// A sequence of datagrams, each behind its size in two bytes, to a service that has just started.
/// What it remembers of one decides what the next one does.
#include "core/shared_state.h"
#include "fuzz/device.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    restore_device();
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (rest.size() >= 2) {
        const auto low = static_cast<unsigned char>(rest[0]);
        const auto high = static_cast<unsigned char>(rest[1]);
        const std::string_view datagram = rest.substr(2, low + 256U * high);
        deliver(datagram);
        rest.remove_prefix(2 + datagram.size());
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
    }
    require(sound_document(usb_host_document)["usb_c"].size() == 2, "the USB-C ports stay");
    require(sound_document(ethernet_document)["ethernet"].size() == 4, "the Ethernet ports stay");
    require(sound_document(power_document)["power"].size() == 3, "the power stays");
    require(sound_document(outputs_document)["outputs"].size() == 1, "the output stays");
    return 0;
}
