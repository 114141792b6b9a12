/// Every path of the outside world that the service touches. All of them are fixed.
#pragma once

constexpr const char* log_configuration_path = "/etc/log4cpp/status_json_service.conf";

constexpr const char* message_socket_path = "/tmp/json_app.sock";

constexpr const char* run_directory = "/var/run";
constexpr const char* status_directory = "/var/run/status";
constexpr const char* inputs_document_path = "/var/run/status/inputs.json";
constexpr const char* usb_host_document_path = "/var/run/status/usb-host.json";
constexpr const char* ethernet_document_path = "/var/run/status/ethernet.json";
constexpr const char* power_document_path = "/var/run/status/power.json";
constexpr const char* outputs_document_path = "/var/run/status/outputs.json";

/// Written by the video driver: the timing of the input that plays.
constexpr const char* videoip_timing_path = "/sys/devices/platform/videoip/timing_info";
/// Written by the Ethernet driver: link, speed and duplex of the four ports.
constexpr const char* ethernet_port_status_path =
    "/sys/devices/platform/ftgmac/Q42_all_port_status";
