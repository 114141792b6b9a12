/// The paths of the outside world that the service touches, but for those of the documents, which
/// store/documents.h lists. All of them are fixed.
#pragma once

constexpr const char* log_configuration_path = "/etc/log4cpp/status_json_service.conf";

constexpr const char* message_socket_path = "/tmp/json_app.sock";

constexpr const char* run_directory = "/var/run";
constexpr const char* status_directory = "/var/run/status";

/// Written by the video driver: the timing of the input that plays.
constexpr const char* videoip_timing_path = "/sys/devices/platform/videoip/timing_info";
/// Written by the Ethernet driver: link, speed and duplex of the four ports.
constexpr const char* ethernet_port_status_path =
    "/sys/devices/platform/ftgmac/Q42_all_port_status";
