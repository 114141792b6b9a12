/// The dispatch thread: finds the work of each message and has it done, one after the other.
#include <cstring>

#include "core/core.h"
#include "core/log.h"

namespace {

// clang-format off
constexpr MessageHandlerEntry message_handlers[] = {
    {MSG_TYPE_VIDEO_STATUS,        sizeof(CmdDataVideoStatus),   handle_video_status},
    {MSG_TYPE_AUDIO_STATUS,        sizeof(CmdDataAudioStatus),   handle_audio_status},
    {MSG_TYPE_LINK_STATUS,         sizeof(CmdDataLinkStatus),    handle_link_status},
    {MSG_TYPE_ETHERNET_STATUS,     any_length,                   handle_ethernet_status},
    {MSG_TYPE_VIDEO_TIMING,        sizeof(CmdDataVideoTiming),   handle_video_timing},
    {MSG_TYPE_VIDEO_START_WORKING, any_length,                   handle_video_start_working},
    {MSG_TYPE_HDCP_STATUS,         sizeof(CmdDataHDCPStatus),    handle_hdcp_status},
    {MSG_TYPE_HDMI_VIDEO_MODE,     sizeof(CmdDataHdmiVideoMode), handle_hdmi_video_mode},
    {MSG_TYPE_TYPEC_INFO,          sizeof(TypeC_Info),           handle_typec_info},
};
// clang-format on

}  // namespace

const MessageHandlerEntry* find_message_handler(std::uint32_t type, std::uint32_t length)
{
    for (const MessageHandlerEntry& entry : message_handlers) {
        if (entry.type == type && (entry.length == any_length || entry.length == length)) {
            return &entry;
        }
    }
    return nullptr;
}

// The length in the header is the sender's word and is not compared with what arrived: the
// fields behind a short datagram are read from the buffer, which always has room for the
// largest record.
void dispatch_message(const unsigned char* buffer)
{
    MessageHeader header;
    std::memcpy(&header, buffer, sizeof header);
    const unsigned char* payload = buffer + sizeof header;

    if (const MessageHandlerEntry* entry = find_message_handler(header.type, header.length)) {
        entry->handler(&header, payload);
        return;
    }
    if (handle_text_message(header.type, reinterpret_cast<const char*>(payload))) {
        return;
    }
    LOG_INFO("Unknown message type %d or length %d", static_cast<int>(header.type),
             static_cast<int>(header.length));
}

void* run_dispatch(void* /*unused*/)
{
    unsigned char buffer[message_slot_size];
    for (;;) {
        static_cast<void>(message_queue_pop(buffer));
        dispatch_message(buffer);
    }
}
