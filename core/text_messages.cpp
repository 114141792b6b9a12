/// The messages that carry a text: their numbers are read, logged and handed on. Text that is
/// no number counts as 0, and so does a number that is missing.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "audio/audio.h"
#include "core/core.h"
#include "core/log.h"
#include "core/shared_state.h"
#include "ethernet/ethernet.h"
#include "usb_power/usb_power.h"
#include "video/video.h"

namespace {

void handle_power_status(const char* text)
{
    power_status = std::atoi(text);
    LOG_INFO("Power status message received Power status=%d", power_status);
    update_power_source();
}

void handle_power_v_value(const char* text)
{
    const int value = std::atoi(text);
    LOG_INFO("Power MSG_TYPE_POWER_V_VALUE message received Power status=%d", value);
    update_power_current(value);
}

void handle_ethernet_control(const char* text)
{
    int port = 0;
    char state[8] = "";
    int select = 0;
    static_cast<void>(std::sscanf(text, "%d %7s %d", &port, state, &select));
    if (port == 4) {
        usb_eth_select = select;
        LOG_INFO("USB Ethernet select status received usb_eth_select=%d", usb_eth_select);
    }
    set_ethernet_port_enabled(port, state);
}

void handle_charger_status(const char* text)
{
    int charging_enabled = 0;
    static_cast<void>(std::sscanf(text, "%d", &charging_enabled));
    LOG_INFO("USB-C Charger status message received charging_enabled=%d", charging_enabled);
    set_charging_enabled(charging_enabled);
}

void handle_hdcp_version(const char* text)
{
    int hdcp_port = 0;
    int hdcp_cap = 0;
    static_cast<void>(std::sscanf(text, "%d %d", &hdcp_port, &hdcp_cap));
    LOG_INFO("HDCP Version status message received hdcp_port=%d, hdcp_cap=%d", hdcp_port, hdcp_cap);
    apply_hdcp_version(hdcp_port, hdcp_cap);
}

void handle_uac_control(const char* text)
{
    int uac_port = 0;
    int enabled = 0;
    int uac_plug_flag = 0;
    static_cast<void>(std::sscanf(text, "%d %d %d", &uac_port, &enabled, &uac_plug_flag));
    LOG_INFO("USB Audio control message received uac_port=%d, enabled=%d, uac_plug_flag=%d",
             uac_port, enabled, uac_plug_flag);
    apply_uac_control(uac_port, enabled, uac_plug_flag);
}

void handle_usb_host_in2(const char* text)
{
    usb_host_plug_status = std::atoi(text);
    LOG_INFO("USB Host IN2 status message received usb_host_plug_status=%d", usb_host_plug_status);
    update_usb_host_in2_plug();
}

void handle_usb_host_in1(const char* text)
{
    const int status = std::atoi(text);
    LOG_INFO("USB Host IN1 status message received usb_host_in1_plug_status=%d", status);
    update_usb_host_in1_plug(status);
}

// clang-format off
constexpr struct {
    std::uint32_t type;
    void (*handler)(const char* text);
} text_handlers[] = {
    {MSG_TYPE_POWER_STATUS,     handle_power_status},
    {MSG_TYPE_POWER_V_VALUE,    handle_power_v_value},
    {MSG_TYPE_ETHERNET_CONTROL, handle_ethernet_control},
    {MSG_TYPE_CHARGER_STATUS,   handle_charger_status},
    {MSG_TYPE_HDCP_VERSION,     handle_hdcp_version},
    {MSG_TYPE_UAC_CONTROL,      handle_uac_control},
    {MSG_TYPE_USB_HOST_IN2,     handle_usb_host_in2},
    {MSG_TYPE_USB_HOST_IN1,     handle_usb_host_in1},
};
// clang-format on

}  // namespace

bool handle_text_message(std::uint32_t type, const char* text)
{
    const auto* row = std::find_if(std::begin(text_handlers), std::end(text_handlers),
                                   [type](const auto& entry) { return entry.type == type; });
    if (row == std::end(text_handlers)) {
        return false;
    }
    row->handler(text);
    return true;
}
