/// A sequence of datagrams, each written as its type, the size of its payload, both in one byte,
/// and the payload. What the service remembers of one decides what the next one does.
#include <cstring>

#include "core/messages.h"
#include "core/shared_state.h"
#include "fuzz/device.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

enum class Link { unknown, down, up };

/// Takes what a link status says of its input from the buffer that the service read it in.
void follow(const unsigned char* buffer, Link (&links)[2])
{
    MessageHeader header;
    std::memcpy(&header, buffer, sizeof header);
    CmdDataLinkStatus status;
    std::memcpy(&status, buffer + sizeof header, sizeof status);
    if (header.type == MSG_TYPE_LINK_STATUS && header.length == sizeof status) {
        links[status.port == 1 ? 1 : 0] = status.isConnect == 1 ? Link::up : Link::down;
    }
}

/// An input without a link shows nothing, whatever was reported of it.
void require_empty(const Json::Value& input)
{
    const Json::Value& video = input["video"];
    require(!video["connected"].asBool() && !video["signal_present"].asBool() &&
                video["signal_type"] == "N/A" && video["active_resolution"] == "N/A" &&
                video["color"]["color_space"] == "N/A" &&
                video["hdcp"]["active_hdcp_version"] == "None" &&
                video["timing"]["pixel_clock_hz"] == 0 && video["refresh_rate_hz"] == 0 &&
                !video["embedded_audio_present"].asBool() && !input["audio"]["connected"].asBool(),
            "an input without a link is empty");
}

void require_sound_inputs(const Json::Value& inputs, const Link (&links)[2])
{
    require(inputs.size() == 3 && inputs[0]["port_type"] == "HDMI" &&
                inputs[1]["port_type"] == "USB-C" && inputs[2]["port_type"] == "UAC",
            "the inputs keep their places");
    for (Json::ArrayIndex position = 0; position < 2; ++position) {
        const bool is_cached =
            (input_cache[position].connected == 1) == (links[position] == Link::up);
        require(is_cached || links[position] == Link::unknown, "the cache follows the link");
        require(links[position] != Link::up || inputs[position]["video"]["connected"].asBool(),
                "a link that is up shows");
        if (links[position] == Link::down) {
            require_empty(inputs[position]);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Link links[2] = {};
    restore_device();
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (rest.size() >= 2) {
        const std::string_view payload = rest.substr(2, static_cast<unsigned char>(rest[1]));
        follow(deliver(datagram(static_cast<unsigned char>(rest[0]), payload)), links);
        rest.remove_prefix(2 + payload.size());
    }

    require_sound_inputs(sound_document(inputs_document)["inputs"], links);
    require(sound_document(usb_host_document)["usb_c"].size() == 2, "there are two USB-C ports");
    require(sound_document(ethernet_document)["ethernet"].size() == 4,
            "there are four Ethernet ports");
    require(sound_document(power_document)["power"]["measured_power_voltage_v"].isInt(),
            "there is a voltage");
    require(sound_document(outputs_document)["outputs"].size() == 1, "there is one output");
    return 0;
}
