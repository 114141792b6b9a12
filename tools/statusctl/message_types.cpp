#include "tools/statusctl/message_types.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <type_traits>

#include "audio/audio_codes.h"
#include "core/messages.h"
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

template <typename Row, std::size_t count>
constexpr Rows<Row> rows(const Row (&table)[count])
{
    return {table, count};
}

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
    FIELD(CmdDataVideoStatus, port, rows(port_texts)),
    FIELD(CmdDataVideoStatus, isStable),
    FIELD(CmdDataVideoStatus, isMute),
    FIELD(CmdDataVideoStatus, hactive),
    FIELD(CmdDataVideoStatus, vactive),
    FIELD(CmdDataVideoStatus, frameRate),
    FIELD(CmdDataVideoStatus, colorspace, rows(color_space_texts)),
    FIELD(CmdDataVideoStatus, deepcolor, rows(color_depth_texts)),
    FIELD(CmdDataVideoStatus, aspectRatio),
    FIELD(CmdDataVideoStatus, interlaced),
    FIELD(CmdDataVideoStatus, color_range, rows(color_range_texts)),
};

constexpr MessageField audio_status_fields[] = {
    FIELD(CmdDataAudioStatus, port, rows(port_texts)),
    FIELD(CmdDataAudioStatus, fromPort),
    FIELD(CmdDataAudioStatus, isStable),
    FIELD(CmdDataAudioStatus, isMute),
    FIELD(CmdDataAudioStatus, audioCoding, rows(audio_format_texts)),
    FIELD(CmdDataAudioStatus, sampleFreq, rows(sample_frequency_texts)),
    FIELD(CmdDataAudioStatus, sampleDepth),
    FIELD(CmdDataAudioStatus, channels),
    FIELD(CmdDataAudioStatus, audType),
};

constexpr MessageField link_status_fields[] = {
    FIELD(CmdDataLinkStatus, port, rows(port_texts)),
    FIELD(CmdDataLinkStatus, isConnect),
    FIELD(CmdDataLinkStatus, isHpd),
};

constexpr MessageField hdcp_status_fields[] = {
    FIELD(CmdDataHDCPStatus, port, rows(port_texts)),
    FIELD(CmdDataHDCPStatus, isEncrypted),
    FIELD(CmdDataHDCPStatus, status, rows(active_hdcp_texts)),
};

constexpr MessageField hdmi_video_mode_fields[] = {
    FIELD(CmdDataHdmiVideoMode, port, rows(port_texts)),
    FIELD(CmdDataHdmiVideoMode, mode, rows(signal_type_texts)),
};

constexpr MessageField video_timing_fields[] = {
    FIELD(VideoTimingFields, port, rows(port_texts)),
    FIELD(VideoTimingFields, scan_mode, rows(scan_texts)),
    FIELD(VideoTimingFields, pixel_clock),
    FIELD(VideoTimingFields, h_total_pixels),
    FIELD(VideoTimingFields, h_active_pixels),
    FIELD(VideoTimingFields, h_sync_pulse_width),
    FIELD(VideoTimingFields, h_sync_back_porch),
    FIELD(VideoTimingFields, h_sync_front_porch),
    FIELD(VideoTimingFields, h_sync_frequency_hz),
    FIELD(VideoTimingFields, h_sync_polarity, rows(polarity_texts)),
    FIELD(VideoTimingFields, v_total_pixels),
    FIELD(VideoTimingFields, v_active_pixels),
    FIELD(VideoTimingFields, v_sync_pulse_width),
    FIELD(VideoTimingFields, v_sync_back_porch),
    FIELD(VideoTimingFields, v_sync_front_porch),
    FIELD(VideoTimingFields, v_sync_frequency_hz),
    FIELD(VideoTimingFields, v_sync_polarity, rows(polarity_texts)),
    FIELD(CmdDataVideoTiming, current_play_port, rows(port_texts)),
};
static_assert(offsetof(CmdDataVideoTiming, timing) == 0, "its fields count from the payload's start");

constexpr MessageField typec_info_fields[] = {
    FIELD(TypeC_Info, ChargingState, rows(charging_state_texts)),
    FIELD(TypeC_Info, ChargingMode),
    FIELD(TypeC_Info, Charging_mV),
    FIELD(TypeC_Info, Charging_mA),
    FIELD(TypeC_Info, Power_Role),
    FIELD(TypeC_Info, Data_Role),
    FIELD(TypeC_Info, Plug_Orientation),
    FIELD(TypeC_Info, Remote_DpMode_Support),
    FIELD(TypeC_Info, DpMode_Active),
    FIELD(TypeC_Info, PeerDeviceVID),
    FIELD(TypeC_Info, PeerDevicePID),
    FIELD(TypeC_Info, PeerDeviceMFT_String),
    FIELD(TypeC_Info, PinAssignment, rows(pin_assignment_texts)),
    FIELD(TypeC_Info, RemotePdSupport),
    FIELD(TypeC_Info, RemotePdRevision),
};

constexpr MessageField item(const char* name, Words item_words = {})
{
    return {name, FieldKind::decimal_item, 0, 0, item_words};
}

constexpr MessageField power_status_items[] = {item("SOURCE", rows(power_source_texts))};
constexpr MessageField power_v_value_items[] = {item("CURRENT")};
constexpr MessageField ethernet_control_items[] = {
    item("PORT"),
    {"STATE", FieldKind::word_item, 0, 0, rows(switch_texts)},
    {"SELECT", FieldKind::decimal_item, 0, 0, {}, true}};
constexpr MessageField charger_status_items[] = {item("ENABLED", rows(switch_texts))};
constexpr MessageField hdcp_version_items[] = {
    item("PORT", rows(port_texts)), item("CAPABILITY", rows(allowed_hdcp_texts))};
constexpr MessageField uac_control_items[] = {
    item("PORT"), item("ENABLED", rows(switch_texts)), item("PLUGGED")};
constexpr MessageField usb_host_items[] = {item("PLUGGED")};
constexpr MessageField play_port_items[] = {item("PORT", rows(port_texts))};
// clang-format on

/// Whether the rows stand in the record's order, overlap nowhere, and leave out nothing but
/// its reserved bytes.
template <std::size_t count>
constexpr bool covers(const MessageField (&fields)[count], std::size_t size, std::size_t reserved)
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

static_assert(covers(video_status_fields, sizeof(CmdDataVideoStatus),
                     sizeof(CmdDataVideoStatus::reserved_1) +
                         sizeof(CmdDataVideoStatus::reserved_2)));
static_assert(covers(audio_status_fields, sizeof(CmdDataAudioStatus),
                     sizeof(CmdDataAudioStatus::reserved)));
static_assert(covers(link_status_fields, sizeof(CmdDataLinkStatus),
                     sizeof(CmdDataLinkStatus::reserved)));
static_assert(covers(hdcp_status_fields, sizeof(CmdDataHDCPStatus),
                     sizeof(CmdDataHDCPStatus::reserved)));
static_assert(covers(hdmi_video_mode_fields, sizeof(CmdDataHdmiVideoMode),
                     sizeof(CmdDataHdmiVideoMode::reserved)));
static_assert(covers(video_timing_fields, sizeof(CmdDataVideoTiming),
                     sizeof(CmdDataVideoTiming::reserved)));
static_assert(covers(typec_info_fields, sizeof(TypeC_Info),
                     sizeof(TypeC_Info::reserved_1) + sizeof(TypeC_Info::reserved_2) +
                         sizeof(TypeC_Info::reserved_3)));

// clang-format off
#define KIND(type) "MSG_TYPE_" #type, MSG_TYPE_##type  // NOLINT(cppcoreguidelines-macro-usage)
constexpr PayloadKind record = PayloadKind::record;
constexpr PayloadKind text = PayloadKind::text;
constexpr MessageKind message_kinds[] = {
    {KIND(VIDEO_STATUS), record, sizeof(CmdDataVideoStatus), rows(video_status_fields)},
    {KIND(LINK_STATUS), record, sizeof(CmdDataLinkStatus), rows(link_status_fields)},
    {KIND(HDCP_STATUS), record, sizeof(CmdDataHDCPStatus), rows(hdcp_status_fields)},
    {KIND(VIDEO_TIMING), record, sizeof(CmdDataVideoTiming), rows(video_timing_fields)},
    {KIND(AUDIO_STATUS), record, sizeof(CmdDataAudioStatus), rows(audio_status_fields)},
    {KIND(ETHERNET_STATUS), PayloadKind::none, 0, {}},
    {KIND(TYPEC_INFO), record, sizeof(TypeC_Info), rows(typec_info_fields)},
    {KIND(POWER_STATUS), text, 0, rows(power_status_items)},
    {KIND(POWER_V_VALUE), text, 0, rows(power_v_value_items)},
    {KIND(ETHERNET_CONTROL), text, 0, rows(ethernet_control_items)},
    {KIND(CHARGER_STATUS), text, 0, rows(charger_status_items)},
    {KIND(HDCP_VERSION), text, 0, rows(hdcp_version_items)},
    {KIND(UAC_CONTROL), text, 0, rows(uac_control_items)},
    {KIND(USB_HOST_IN2), text, 0, rows(usb_host_items)},
    {KIND(USB_HOST_IN1), text, 0, rows(usb_host_items)},
    {KIND(HDMI_VIDEO_MODE), record, sizeof(CmdDataHdmiVideoMode), rows(hdmi_video_mode_fields)},
    {KIND(VIDEO_START_WORKING), text, 0, rows(play_port_items)},
};
// clang-format on

constexpr std::string_view type_prefix = "MSG_TYPE_";

char lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

void list_words(std::ostream& lines, const MessageField& field)
{
    const char* separator = "";
    for (const CodeText& row : field.words) {
        lines << separator;
        if (field.kind != FieldKind::word_item) {
            lines << row.code << ' ';
        }
        lines << row.text;
        separator = ", ";
    }
    lines << '\n';
}

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
    lines << "    " << std::left << std::setw(24) << field.name << std::setw(16)
          << type_of_field(field);
    list_words(lines, field);
}

}  // namespace

bool same_but_for_case(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

const MessageKind* find_message_kind(std::string_view name)
{
    for (const MessageKind& kind : message_kinds) {
        const std::string_view full = kind.name;
        if (same_but_for_case(name, full) ||
            same_but_for_case(name, full.substr(type_prefix.size()))) {
            return &kind;
        }
    }
    return nullptr;
}

const MessageField* find_field(const MessageKind& kind, std::string_view name)
{
    const auto* const field =
        std::find_if(kind.fields.begin(), kind.fields.end(),
                     [name](const MessageField& candidate) { return candidate.name == name; });
    return field == kind.fields.end() ? nullptr : field;
}

std::string items_of_text(const MessageKind& kind)
{
    std::string line;
    for (const MessageField& item : kind.fields) {
        line += line.empty() ? "" : " ";
        line += item.is_optional ? "[" + std::string(item.name) + "]" : item.name;
    }
    return line;
}

std::string list_of_messages()
{
    std::ostringstream lines;
    for (const MessageKind& kind : message_kinds) {
        lines << kind.name << " (" << kind.type << ')';
        if (kind.payload == PayloadKind::text) {
            lines << ", a text: " << items_of_text(kind);
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
