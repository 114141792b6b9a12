/// The kinds of message that the benchmark measures, each as messages by number: those of a
/// changing kind alternate, all others are the same. The service gets them as datagrams, and
/// the floor makes the changes that they stand for.
#pragma once

#include <cstdint>
#include <string>

#include "core/messages.h"

inline TypeC_Info typec_info(unsigned number)
{
    TypeC_Info record = {};
    record.Charging_mV = number % 2 == 0 ? 5000 : 20000;
    record.Charging_mA = 3000;
    record.Remote_DpMode_Support = 1;
    record.DpMode_Active = 1;
    record.PinAssignment = 4;
    record.PeerDeviceVID = 6092;
    record.PeerDevicePID = 0x1A2B;
    std::string("Audio interface").copy(record.PeerDeviceMFT_String, 15);
    return record;
}

inline CmdDataVideoStatus video_status(unsigned number)
{
    CmdDataVideoStatus record = {};
    record.isStable = 1;
    record.colorspace = number % 2 == 0 ? 0 : 2;
    return record;
}

constexpr CmdDataVideoTiming video_timing = {
    {0, 0, 148500000, 2200, 1920, 44, 148, 88, 67500, 1, 1125, 1080, 5, 36, 4, 60, 1}, 0, {}};
constexpr CmdDataLinkStatus link_up = {0, 1, 1, 0};

inline std::string datagram(std::uint32_t type, const std::string& payload)
{
    const MessageHeader header = {type, static_cast<std::uint32_t>(payload.size())};
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + payload;
}

template <typename Record>
std::string datagram(std::uint32_t type, const Record& record)
{
    return datagram(type, std::string(reinterpret_cast<const char*>(&record), sizeof record));
}

struct Kind {
    const char* name;
    bool has_cycle;  // on a document
    std::string (*message)(unsigned number);
};

enum KindIndex : unsigned {
    power,
    usb_c_record,
    changing_video,
    repeated_video,
    repeated_timing,
    repeated_link,
    unknown_type,
    kind_count,
};

// clang-format off
constexpr Kind kinds[kind_count] = {
    {"power",           true,  [](unsigned i) { return datagram(MSG_TYPE_POWER_STATUS, std::to_string(i % 2)); }},
    {"USB-C record",    true,  [](unsigned i) { return datagram(MSG_TYPE_TYPEC_INFO, typec_info(i)); }},
    {"changing video",  true,  [](unsigned i) { return datagram(MSG_TYPE_VIDEO_STATUS, video_status(i)); }},
    {"repeated video",  true,  [](unsigned) { return datagram(MSG_TYPE_VIDEO_STATUS, video_status(0)); }},
    {"repeated timing", false, [](unsigned) { return datagram(MSG_TYPE_VIDEO_TIMING, video_timing); }},
    {"repeated link",   false, [](unsigned) { return datagram(MSG_TYPE_LINK_STATUS, link_up); }},
    {"unknown type",    false, [](unsigned) { return datagram(99, std::string()); }},
};
// clang-format on
