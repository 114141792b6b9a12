/**
 * The messages of status_json_service: everything that a sender can say to it.
 *
 * A message is one datagram on the service's socket: a MessageHeader, then a payload of
 * `length` bytes. The payload is a packed record, or a short zero-terminated or plain ASCII
 * text with decimal numbers. Nothing is answered. Numbers are in the byte order of the host,
 * reserved bytes are ignored, and a datagram is at most 1,023 bytes.
 *
 * Usable from C11 and from C++17 on; depends on nothing but the standard headers.
 */
#ifndef STATUS_JSON_SERVICE_MESSAGES_H
#define STATUS_JSON_SERVICE_MESSAGES_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/* NOLINTBEGIN(modernize-use-using): the header is also read by C compilers. */

enum MessageType {
    MSG_TYPE_VIDEO_STATUS = 1,         /* CmdDataVideoStatus */
    MSG_TYPE_LINK_STATUS = 2,          /* CmdDataLinkStatus */
    MSG_TYPE_HDCP_STATUS = 3,          /* CmdDataHDCPStatus */
    MSG_TYPE_VIDEO_TIMING = 4,         /* CmdDataVideoTiming */
    MSG_TYPE_AUDIO_STATUS = 5,         /* CmdDataAudioStatus */
    MSG_TYPE_ETHERNET_STATUS = 6,      /* no payload, any length: read the ports anew */
    MSG_TYPE_TYPEC_INFO = 7,           /* TypeC_Info */
    MSG_TYPE_POWER_STATUS = 8,         /* text "SOURCE": 0 PoE, 1 adapter */
    MSG_TYPE_POWER_V_VALUE = 9,        /* text "CURRENT", published as it is */
    MSG_TYPE_ETHERNET_CONTROL = 10,    /* text "PORT on|off [SELECT]", PORT 1 to 4; with port 4
                                          SELECT says what LAN4 hangs on: 0, also where it is left
                                          out, USB host input IN2; 1 the USB-C input */
    MSG_TYPE_CHARGER_STATUS = 11,      /* text "ENABLED": 1 enabled */
    MSG_TYPE_HDCP_VERSION = 12,        /* text "PORT CAPABILITY": PORT 1 USB-C, else HDMI;
                                          CAPABILITY 0 off, 1 HDCP 1.4, else HDCP 2.2 */
    MSG_TYPE_UAC_CONTROL = 14,         /* text "PORT ENABLED PLUGGED": PORT logged only, ENABLED 1
                                          enabled, PLUGGED not 0 plugged in */
    MSG_TYPE_USB_HOST_IN2 = 15,        /* text "PLUGGED": 1 plugged in */
    MSG_TYPE_USB_HOST_IN1 = 16,        /* text "PLUGGED": 1 plugged in */
    MSG_TYPE_HDMI_VIDEO_MODE = 17,     /* CmdDataHdmiVideoMode */
    MSG_TYPE_VIDEO_START_WORKING = 18, /* text "PORT": 0 HDMI, 1 USB-C; not empty */
};

/** Stands at the start of every datagram. */
typedef struct __attribute__((packed)) MessageHeader {
    uint32_t type;
    uint32_t length; /* bytes of the payload, without this header */
} MessageHeader;
static_assert(sizeof(MessageHeader) == 8, "wire size");

/*
 * `port` of a record: 1 is the USB-C input and every other value the HDMI input, but for
 * CmdDataHdmiVideoMode. Fields marked "logged only" reach the service's log and nothing else.
 */

/** The signal on a video input. Its resolution comes with its timing, not from here. */
typedef struct __attribute__((packed)) CmdDataVideoStatus {
    uint8_t port;
    uint8_t isStable; /* not 0: a stable signal is present */
    uint8_t isMute;   /* logged only */
    uint8_t reserved_1;
    uint16_t hactive;    /* pixels; logged only */
    uint16_t vactive;    /* lines; logged only */
    uint8_t frameRate;   /* logged only */
    uint8_t colorspace;  /* 0 RGB, 1 YCbCr 4:2:2, 2 YCbCr 4:4:4, 3 YCbCr 4:2:0 */
    uint8_t deepcolor;   /* bits per colour: 0 8, 1 10, 2 12 */
    uint8_t aspectRatio; /* logged only */
    uint8_t interlaced;  /* logged only */
    uint8_t color_range; /* 0 default, 1 limited, 2 full */
    uint8_t reserved_2[2];
} CmdDataVideoStatus;
static_assert(sizeof(CmdDataVideoStatus) == 16, "wire size");
static_assert(offsetof(CmdDataVideoStatus, hactive) == 4, "wire offset");
static_assert(offsetof(CmdDataVideoStatus, frameRate) == 8, "wire offset");
static_assert(offsetof(CmdDataVideoStatus, color_range) == 13, "wire offset");

/** The audio on a video input. */
typedef struct __attribute__((packed)) CmdDataAudioStatus {
    uint8_t port;
    uint8_t fromPort;    /* logged only */
    uint8_t isStable;    /* not 0: audio is present */
    uint8_t isMute;      /* logged only */
    uint8_t audioCoding; /* 0 LPCM, every other value another coding */
    uint8_t sampleFreq;  /* kHz: 0 32, 1 44.1, 2 48, 3 88.2, 4 96, 5 176.4, 6 192, 7 768 */
    uint8_t sampleDepth; /* logged only */
    uint8_t channels;
    uint8_t audType; /* logged only */
    uint8_t reserved[3];
} CmdDataAudioStatus;
static_assert(sizeof(CmdDataAudioStatus) == 12, "wire size");
static_assert(offsetof(CmdDataAudioStatus, audioCoding) == 4, "wire offset");
static_assert(offsetof(CmdDataAudioStatus, audType) == 8, "wire offset");

/** The link of a video input. */
typedef struct __attribute__((packed)) CmdDataLinkStatus {
    uint8_t port;
    uint8_t isConnect; /* 1 connected, every other value not connected */
    uint8_t isHpd;     /* logged only */
    uint8_t reserved;
} CmdDataLinkStatus;
static_assert(sizeof(CmdDataLinkStatus) == 4, "wire size");
static_assert(offsetof(CmdDataLinkStatus, isHpd) == 2, "wire offset");

/** The HDCP version that the signal of a video input uses. */
typedef struct __attribute__((packed)) CmdDataHDCPStatus {
    uint8_t port;
    uint8_t isEncrypted; /* logged only */
    uint8_t status;      /* 1 HDCP 1.4, 2 HDCP 2.2, every other value none */
    uint8_t reserved;
} CmdDataHDCPStatus;
static_assert(sizeof(CmdDataHDCPStatus) == 4, "wire size");
static_assert(offsetof(CmdDataHDCPStatus, status) == 2, "wire offset");

/** Whether the HDMI input receives HDMI or DVI. */
typedef struct __attribute__((packed)) CmdDataHdmiVideoMode {
    uint8_t port; /* 0; every other value is ignored */
    uint8_t mode; /* 1 HDMI, 2 DVI */
    uint8_t reserved[2];
} CmdDataHdmiVideoMode;
static_assert(sizeof(CmdDataHdmiVideoMode) == 4, "wire size");
static_assert(offsetof(CmdDataHdmiVideoMode, mode) == 1, "wire offset");

/** A video timing. Horizontal lengths are in pixels, vertical ones in lines. */
typedef struct __attribute__((packed)) VideoTimingFields {
    uint8_t port;
    uint8_t scan_mode;    /* 0 progressive, 1 interlaced */
    uint32_t pixel_clock; /* Hz */
    uint16_t h_total_pixels;
    uint16_t h_active_pixels;
    uint16_t h_sync_pulse_width;
    uint16_t h_sync_back_porch;
    uint16_t h_sync_front_porch;
    uint32_t h_sync_frequency_hz; /* lines per second */
    uint16_t h_sync_polarity;     /* 0 negative, 1 positive */
    uint16_t v_total_pixels;
    uint16_t v_active_pixels;
    uint16_t v_sync_pulse_width;
    uint16_t v_sync_back_porch;
    uint16_t v_sync_front_porch;
    uint16_t v_sync_frequency_hz; /* frames per second; 0 where none is given */
    uint16_t v_sync_polarity;     /* 0 negative, 1 positive */
} VideoTimingFields;
static_assert(sizeof(VideoTimingFields) == 36, "wire size");
static_assert(offsetof(VideoTimingFields, pixel_clock) == 2, "wire offset");
static_assert(offsetof(VideoTimingFields, h_sync_frequency_hz) == 16, "wire offset");
static_assert(offsetof(VideoTimingFields, v_total_pixels) == 22, "wire offset");
static_assert(offsetof(VideoTimingFields, v_sync_polarity) == 34, "wire offset");

/** A timing as the video pipeline reports it. */
typedef struct __attribute__((packed)) CmdDataVideoTiming {
    VideoTimingFields timing;
    uint8_t current_play_port; /* logged only */
    uint8_t reserved[3];
} CmdDataVideoTiming;
static_assert(sizeof(CmdDataVideoTiming) == 40, "wire size");
static_assert(offsetof(CmdDataVideoTiming, current_play_port) == 36, "wire offset");

/** The USB-C port and its partner. */
typedef struct __attribute__((packed)) TypeC_Info {
    uint8_t ChargingState; /* 0 inactive, 1 charging */
    uint8_t ChargingMode;  /* logged only */
    uint8_t reserved_1[2];
    uint32_t Charging_mV;
    uint32_t Charging_mA;
    uint8_t Power_Role;            /* logged only */
    uint8_t Data_Role;             /* logged only */
    uint8_t Plug_Orientation;      /* logged only */
    uint8_t Remote_DpMode_Support; /* 1 the partner supports DisplayPort alternate mode */
    uint8_t DpMode_Active;         /* 1 PinAssignment is in use */
    uint8_t reserved_2;
    uint16_t PeerDeviceVID;
    uint16_t PeerDevicePID;        /* 0: the partner's text is not shown */
    char PeerDeviceMFT_String[22]; /* ends at its first zero byte, or at the field's end */
    int32_t PinAssignment;         /* 4 C, 8 D, 16 E */
    uint8_t RemotePdSupport;       /* logged only */
    uint8_t RemotePdRevision;      /* logged only */
    uint8_t reserved_3[2];
} TypeC_Info;
static_assert(sizeof(TypeC_Info) == 52, "wire size");
static_assert(offsetof(TypeC_Info, Charging_mV) == 4, "wire offset");
static_assert(offsetof(TypeC_Info, Power_Role) == 12, "wire offset");
static_assert(offsetof(TypeC_Info, PeerDeviceVID) == 18, "wire offset");
static_assert(offsetof(TypeC_Info, PeerDeviceMFT_String) == 22, "wire offset");
static_assert(offsetof(TypeC_Info, PinAssignment) == 44, "wire offset");
static_assert(offsetof(TypeC_Info, RemotePdRevision) == 49, "wire offset");

/* NOLINTEND(modernize-use-using) */

#endif
