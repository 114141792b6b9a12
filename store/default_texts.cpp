/// The documents as they stand before anything has been reported, to the byte, the missing blank of
/// the first `"index":1` included: by its text a document is known as seeded.
#include "store/documents.h"

// clang-format off

constexpr std::string_view inputs_default_text = R"({
  "inputs": [
    {
      "port_type": "HDMI",
      "index":1,
      "video": {
        "connected": false,
        "signal_present": false,
        "signal_type": "N/A",
        "active_resolution": "N/A",
        "total_resolution": "N/A",
        "refresh_rate_hz": 0,
        "embedded_audio_present": false,
        "color": {
          "color_space": "N/A",
          "color_depth": "N/A",
          "color_range": "N/A"
        },
        "hdcp": {
          "active_hdcp_version": "None",
          "control": {
            "allowed_hdcp_version": "HDCP 2.2"
          }
        },
        "timing": {
          "scan": "N/A",
          "pixel_clock_hz": 0,
          "h_total_pixels": 0,
          "h_active_pixels": 0,
          "h_sync_pulse_width": 0,
          "h_sync_back_porch": 0,
          "h_sync_front_porch": 0,
          "h_sync_frequency_hz": 0,
          "h_sync_polarity": "N/A",
          "v_total_pixels": 0,
          "v_active_pixels": 0,
          "v_sync_pulse_width": 0,
          "v_sync_back_porch": 0,
          "v_sync_front_porch": 0,
          "v_sync_frequency_hz": 0,
          "v_sync_polarity": "N/A"
        }
      },
      "audio": {
        "connected": false,
        "signal_present": false,
        "format": "N/A",
        "sample_frequency": "N/A",
        "channel": 0
      }
    },
    {
      "port_type": "USB-C",
      "index": 1,
      "video": {
        "connected": false,
        "signal_present": false,
        "signal_type": "N/A",
        "active_resolution": "N/A",
        "total_resolution": "N/A",
        "refresh_rate_hz": 0,
        "embedded_audio_present": false,
        "color": {
          "color_space": "N/A",
          "color_depth": "N/A",
          "color_range": "N/A"
        },
        "hdcp": {
          "active_hdcp_version": "None",
          "control": {
            "allowed_hdcp_version": "HDCP 2.2"
          }
        },
        "timing": {
          "scan": "N/A",
          "pixel_clock_hz": 0,
          "h_total_pixels": 0,
          "h_active_pixels": 0,
          "h_sync_pulse_width": 0,
          "h_sync_back_porch": 0,
          "h_sync_front_porch": 0,
          "h_sync_frequency_hz": 0,
          "h_sync_polarity": "N/A",
          "v_total_pixels": 0,
          "v_active_pixels": 0,
          "v_sync_pulse_width": 0,
          "v_sync_back_porch": 0,
          "v_sync_front_porch": 0,
          "v_sync_frequency_hz": 0,
          "v_sync_polarity": "N/A"
        }
      },
      "audio": {
        "connected": false,
        "signal_present": false,
        "format": "N/A",
        "sample_frequency": "N/A",
        "channel": 0
      }
    },
    {
      "port_type": "UAC",
      "index": 1,
      "control": {
        "enabled": true
      },
      "audio": {
        "connected": false,
        "signal_present": false,
        "format": "N/A",
        "sample_frequency": "N/A",
        "channel": 0
      }
    }
  ]
}
)";
static_assert(inputs_default_text.size() == 2945);

constexpr std::string_view usb_host_default_text = R"({
  "usb_c": [
    {
      "port": "USB-C",
      "index": 1,
      "connected": false,
      "generic": {
        "host_supports_dp_alt_mode": false,
        "active_dp_alt_mode_pins": "N/A",
        "partner": {
          "vendor_id": "N/A",
          "vendor": "N/A",
          "product_id": "N/A",
          "product": "N/A"
        }
      },
      "charging": {
        "vbus_voltage_nominal_v": 0,
        "max_vbus_current_a": 0,
        "charging_state": "N/A",
        "control": {
          "charging_enabled": false
        }
      }
    },
    {
      "port": "USB-C",
      "index": 2,
      "connected": false,
      "generic": {
        "host_supports_dp_alt_mode": false,
        "active_dp_alt_mode_pins": "N/A",
        "partner": {
          "vendor_id": "N/A",
          "vendor": "N/A",
          "product_id": "N/A",
          "product": "N/A"
        }
      },
      "charging": {
        "vbus_voltage_nominal_v": 0,
        "max_vbus_current_a": 0,
        "charging_state": "N/A",
        "control": {
          "charging_enabled": false
        }
      }
    }
  ]
}
)";
static_assert(usb_host_default_text.size() == 1096);

constexpr std::string_view ethernet_default_text = R"({
  "ethernet": [
    {
      "port": "LAN1",
      "type": "UTP",
      "link": {
        "status": false,
        "speed": "N/A",
        "mode": "N/A"
      },
      "control": {
        "enabled": true
      }
    },
    {
      "port": "LAN2",
      "type": "UTP",
      "link": {
        "status": false,
        "speed": "N/A",
        "mode": "N/A"
      },
      "control": {
        "enabled": true
      }
    },
    {
      "port": "LAN3",
      "type": "SFP",
      "link": {
        "status": false,
        "speed": "N/A",
        "mode": "N/A"
      },
      "control": {
        "enabled": true
      }
    },
    {
      "port": "LAN4",
      "type": "USB-Ethernet",
      "link": {
        "status": false,
        "speed": "N/A",
        "mode": "N/A"
      },
      "control": {
        "enabled": true
      }
    }
  ]
}
)";
static_assert(ethernet_default_text.size() == 844);

constexpr std::string_view power_default_text = R"({
  "power": {
    "power_source": "PoE",
    "measured_power_voltage_v": 11900,
    "measured_power_current_a": 0
  }
}
)";
static_assert(power_default_text.size() == 121);

constexpr std::string_view outputs_default_text = R"({
  "outputs": [
    {
      "port_type": "UAC",
      "index": 1,
      "audio": {
        "connected": true,
        "signal_present": true,
        "format": "PCM",
        "sample_frequency": "48 kHz",
        "channel": 2
      }
    }
  ]
}
)";
static_assert(outputs_default_text.size() == 247);

// clang-format on
