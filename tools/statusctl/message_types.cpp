#include "tools/statusctl/message_types.h"

#include <strings.h>

#include <sstream>
#include <type_traits>

#include "audio/audio_codes.h"
#include "core/messages.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"
#include "usb_power/usb_power_codes.h"
#include "video/video_codes.h"

namespace statusctl {

namespace {

constexpr CodeText port_texts[] = {
    {0, "HDMI"},
    {1, "USB-C"},
};

constexpr CodeText switch_texts[] = {
    {0, "off"},
    {1, "on"},
};

constexpr CodeText flag_texts[] = {
    {0, "no"},
    {1, "yes"},
};

constexpr CodeText ethernet_port_texts[] = {
    {1, "LAN1"},
    {2, "LAN2"},
    {3, "LAN3"},
    {4, "LAN4"},
};

template <typename Member>
constexpr FieldKind kind_of()
{
    if (std::is_array_v<Member>) {
        return FieldKind::text;
    }
    return std::is_signed_v<Member> ? FieldKind::signed_number : FieldKind::unsigned_number;
}

// clang-format off
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): only a macro names a member and its place at once.
#define FIELD(record, member, ...)                                                      \
    {#member, kind_of<decltype(record::member)>(), offsetof(record, member),            \
     sizeof(record::member), Words{__VA_ARGS__}}

constexpr MessageField video_status_fields[] = {
    FIELD(CmdDataVideoStatus, port, port_texts),
    FIELD(CmdDataVideoStatus, isStable, flag_texts),
    FIELD(CmdDataVideoStatus, isMute, flag_texts),
    FIELD(CmdDataVideoStatus, hactive),
    FIELD(CmdDataVideoStatus, vactive),
    FIELD(CmdDataVideoStatus, frameRate),
    FIELD(CmdDataVideoStatus, colorspace, color_space_texts),
    FIELD(CmdDataVideoStatus, deepcolor, color_depth_texts),
    FIELD(CmdDataVideoStatus, aspectRatio),
    FIELD(CmdDataVideoStatus, interlaced),
    FIELD(CmdDataVideoStatus, color_range, color_range_texts),
};

constexpr MessageField audio_status_fields[] = {
    FIELD(CmdDataAudioStatus, port, port_texts),
    FIELD(CmdDataAudioStatus, fromPort),
    FIELD(CmdDataAudioStatus, isStable, flag_texts),
    FIELD(CmdDataAudioStatus, isMute, flag_texts),
    FIELD(CmdDataAudioStatus, audioCoding, audio_format_texts),
    FIELD(CmdDataAudioStatus, sampleFreq, sample_frequency_texts),
    FIELD(CmdDataAudioStatus, sampleDepth),
    FIELD(CmdDataAudioStatus, channels),
    FIELD(CmdDataAudioStatus, audType),
};

constexpr MessageField link_status_fields[] = {
    FIELD(CmdDataLinkStatus, port, port_texts),
    FIELD(CmdDataLinkStatus, isConnect, flag_texts),
    FIELD(CmdDataLinkStatus, isHpd, flag_texts),
};

constexpr MessageField hdcp_status_fields[] = {
    FIELD(CmdDataHDCPStatus, port, port_texts),
    FIELD(CmdDataHDCPStatus, isEncrypted, flag_texts),
    FIELD(CmdDataHDCPStatus, status, active_hdcp_texts),
};

constexpr MessageField hdmi_video_mode_fields[] = {
    FIELD(CmdDataHdmiVideoMode, port, port_texts),
    FIELD(CmdDataHdmiVideoMode, mode, signal_type_texts),
};

constexpr MessageField video_timing_fields[] = {
    FIELD(VideoTimingFields, port, port_texts),
    FIELD(VideoTimingFields, scan_mode, scan_texts),
    FIELD(VideoTimingFields, pixel_clock),
    FIELD(VideoTimingFields, h_total_pixels),
    FIELD(VideoTimingFields, h_active_pixels),
    FIELD(VideoTimingFields, h_sync_pulse_width),
    FIELD(VideoTimingFields, h_sync_back_porch),
    FIELD(VideoTimingFields, h_sync_front_porch),
    FIELD(VideoTimingFields, h_sync_frequency_hz),
    FIELD(VideoTimingFields, h_sync_polarity, polarity_texts),
    FIELD(VideoTimingFields, v_total_pixels),
    FIELD(VideoTimingFields, v_active_pixels),
    FIELD(VideoTimingFields, v_sync_pulse_width),
    FIELD(VideoTimingFields, v_sync_back_porch),
    FIELD(VideoTimingFields, v_sync_front_porch),
    FIELD(VideoTimingFields, v_sync_frequency_hz),
    FIELD(VideoTimingFields, v_sync_polarity, polarity_texts),
    FIELD(CmdDataVideoTiming, current_play_port, port_texts),
};
static_assert(offsetof(CmdDataVideoTiming, timing) == 0, "its fields count from the payload's start");

constexpr MessageField typec_info_fields[] = {
    FIELD(TypeC_Info, ChargingState, charging_state_texts),
    FIELD(TypeC_Info, ChargingMode),
    FIELD(TypeC_Info, Charging_mV),
    FIELD(TypeC_Info, Charging_mA),
    FIELD(TypeC_Info, Power_Role),
    FIELD(TypeC_Info, Data_Role),
    FIELD(TypeC_Info, Plug_Orientation),
    FIELD(TypeC_Info, Remote_DpMode_Support, flag_texts),
    FIELD(TypeC_Info, DpMode_Active, flag_texts),
    FIELD(TypeC_Info, PeerDeviceVID),
    FIELD(TypeC_Info, PeerDevicePID),
    FIELD(TypeC_Info, PeerDeviceMFT_String),
    FIELD(TypeC_Info, PinAssignment, pin_assignment_texts),
    FIELD(TypeC_Info, RemotePdSupport),
    FIELD(TypeC_Info, RemotePdRevision),
};

constexpr MessageField item(const char* name, Words item_words = {})
{
    return {name, FieldKind::decimal_item, 0, 0, item_words};
}

constexpr MessageField power_status_items[] = {item("SOURCE", power_source_texts)};
constexpr MessageField power_v_value_items[] = {item("CURRENT")};
constexpr MessageField ethernet_control_items[] = {
    item("PORT", ethernet_port_texts),
    {"STATE", FieldKind::word_item, 0, 0, switch_texts},
    {"SELECT", FieldKind::decimal_item, 0, 0, {}, true}};
constexpr MessageField charger_status_items[] = {item("ENABLED", switch_texts)};
constexpr MessageField hdcp_version_items[] = {
    item("PORT", port_texts), item("CAPABILITY", allowed_hdcp_texts)};
constexpr MessageField uac_control_items[] = {
    item("PORT"), item("ENABLED", switch_texts), item("PLUGGED", flag_texts)};
constexpr MessageField usb_host_items[] = {item("PLUGGED", flag_texts)};
constexpr MessageField play_port_items[] = {item("PORT", port_texts)};
// clang-format on

/// Whether the rows stand in the record's order, overlap nowhere, and leave out nothing but
/// its reserved bytes.
constexpr bool covers(Rows<MessageField> fields, std::size_t size, std::size_t reserved)
{
    std::size_t end = 0;
    for (const MessageField& field : fields) {
        if (field.offset < end) {
            return false;
        }
        reserved -= field.offset - end;
        end = field.offset + field.width;
    }
    return end <= size && reserved == size - end;
}

// All types that the enumeration can hold without growing wider.
constexpr std::size_t type_count = 32;

// clang-format off
// NOLINTBEGIN(cppcoreguidelines-macro-usage): only a macro gives a name its spelling.
#define KIND(type, ...)                                                     \
    case MSG_TYPE_##type:                                                   \
        static_assert(MSG_TYPE_##type < type_count);                        \
        return {"MSG_TYPE_" #type, MSG_TYPE_##type, __VA_ARGS__}
#define RECORD(type, Record, fields, reserved)                              \
    KIND(type, PayloadKind::record, sizeof(Record), fields);                \
        static_assert(covers(fields, sizeof(Record), reserved))
#define TEXT(type, items) KIND(type, PayloadKind::text, 0, items)
// NOLINTEND(cppcoreguidelines-macro-usage)

/// The row of a type. What core/messages.h gains must get one, or this does not build.
#pragma GCC diagnostic push
#pragma GCC diagnostic error "-Wswitch"
constexpr MessageKind kind_of_type(MessageType type)
{
    switch (type) {
        RECORD(VIDEO_STATUS, CmdDataVideoStatus, video_status_fields, 3);
        RECORD(LINK_STATUS, CmdDataLinkStatus, link_status_fields, 1);
        RECORD(HDCP_STATUS, CmdDataHDCPStatus, hdcp_status_fields, 1);
        RECORD(VIDEO_TIMING, CmdDataVideoTiming, video_timing_fields, 3);
        RECORD(AUDIO_STATUS, CmdDataAudioStatus, audio_status_fields, 3);
        KIND(ETHERNET_STATUS, PayloadKind::none, 0, {});
        RECORD(TYPEC_INFO, TypeC_Info, typec_info_fields, 5);
        TEXT(POWER_STATUS, power_status_items);
        TEXT(POWER_V_VALUE, power_v_value_items);
        TEXT(ETHERNET_CONTROL, ethernet_control_items);
        TEXT(CHARGER_STATUS, charger_status_items);
        TEXT(HDCP_VERSION, hdcp_version_items);
        TEXT(UAC_CONTROL, uac_control_items);
        TEXT(USB_HOST_IN2, usb_host_items);
        TEXT(USB_HOST_IN1, usb_host_items);
        RECORD(HDMI_VIDEO_MODE, CmdDataHdmiVideoMode, hdmi_video_mode_fields, 2);
        TEXT(VIDEO_START_WORKING, play_port_items);
    }
    return {};
}
#pragma GCC diagnostic pop
// clang-format on

struct KindTable {
    MessageKind rows[type_count] = {};
    std::size_t count = 0;
};

constexpr KindTable kind_table = [] {
    KindTable table;
    for (std::size_t type = 0; type < type_count; ++type) {
        const MessageKind kind = kind_of_type(static_cast<MessageType>(type));
        if (kind.name != nullptr) {
            table.rows[table.count++] = kind;
        }
    }
    return table;
}();

constexpr std::string_view type_prefix = "MSG_TYPE_";

std::string type_of_field(const MessageField& field)
{
    switch (field.kind) {
        case FieldKind::unsigned_number:
            return "uint" + std::to_string(8 * field.width);
        case FieldKind::signed_number:
            return "int" + std::to_string(8 * field.width);
        case FieldKind::text:
            return "text, " + std::to_string(field.width) + " bytes";
        case FieldKind::decimal_item:
            return "decimal";
        case FieldKind::word_item:
            break;
    }
    return "word";
}

void list_field(std::ostream& lines, const MessageField& field)
{
    lines << "    " << padded(field.name, 24) << padded(type_of_field(field), 16) << words_of(field)
          << '\n';
}

}  // namespace

bool same_but_for_case(std::string_view one, std::string_view other)
{
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

Rows<MessageKind> message_kinds()
{
    return {kind_table.rows, kind_table.count};
}

const MessageKind& message_kind_named(std::string_view name)
{
    for (const MessageKind& kind : message_kinds()) {
        const std::string_view full = kind.name;
        if (same_but_for_case(name, full) ||
            same_but_for_case(name, full.substr(type_prefix.size()))) {
            return kind;
        }
    }
    throw InputError("there is no type " + printable(name) + "; send --list shows the types");
}

std::string field_names(const MessageKind& kind)
{
    std::string names;
    for (const MessageField& field : kind.fields) {
        names += names.empty() ? "" : " ";
        names += field.is_optional ? "[" + std::string(field.name) + "]" : field.name;
    }
    return names;
}

std::string words_of(const MessageField& field)
{
    std::string list;
    for (const CodeText& row : field.words) {
        list += list.empty() ? "" : ", ";
        list += field.kind == FieldKind::word_item ? "" : std::to_string(row.code) + " ";
        list += row.text;
    }
    return list;
}

std::string list_of_messages(Rows<MessageKind> kinds)
{
    std::ostringstream lines;
    for (const MessageKind& kind : kinds) {
        lines << kind.name << " (" << kind.type << ')';
        if (kind.payload == PayloadKind::text) {
            lines << ", a text: " << field_names(kind);
        } else if (kind.payload == PayloadKind::none) {
            lines << ", without payload";
        }
        lines << '\n';
        for (const MessageField& field : kind.fields) {
            list_field(lines, field);
        }
    }
    return lines.str();
}

}  // namespace statusctl
