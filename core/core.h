/// The road of a message through the process: socket, ring, dispatch.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/messages.h"

// --- message_ring.cpp ---

/// Bytes of a slot of the ring, and so of a message's buffer. The longest record with its
/// header takes 60 bytes.
constexpr std::size_t message_slot_size = 1024;

/// Copies a datagram of `size` bytes into the ring: at most 1,023 of them, and a zero byte
/// behind. When 128 messages wait already, drops it and counts that; the first drop and every
/// hundredth after it are logged. Ingress thread only; takes `queue_mutex`, never waits for the
/// dispatch thread.
void message_queue_push(const void* data, std::size_t size);

/// Waits for a message and copies its whole slot to `buffer`, which has room for
/// `message_slot_size` bytes; the last byte is zero. Always true. Dispatch thread only; takes
/// `queue_mutex`.
bool message_queue_pop(void* buffer);

// --- ingress.cpp ---

/// Entry of the ingress thread: binds the message socket and puts every datagram into the
/// ring, for ever. Where the socket can't be set up, says so on standard error and ends the
/// process with status 1.
void* run_ingress(void* unused);

// --- dispatch.cpp ---

/// What a row of the dispatch table calls. Both pointers are valid for the call only.
using MessageHandler = void (*)(const MessageHeader* header, const void* payload);

struct MessageHandlerEntry {
    std::uint32_t type;
    std::uint32_t length;  // bytes of the payload, or `any_length`
    MessageHandler handler;
};
constexpr std::uint32_t any_length = 0xFFFFFFFF;

/// The first row for messages of this type and payload length; null where there is none.
const MessageHandlerEntry* find_message_handler(std::uint32_t type, std::uint32_t length);

/// Does all the work of one message. `buffer` holds `message_slot_size` bytes and ends in a
/// zero byte. Dispatch thread, without locks.
void dispatch_message(const unsigned char* buffer);

/// Entry of the dispatch thread: works through the ring, one message at a time, for ever.
void* run_dispatch(void* unused);

// --- record_messages.cpp: log a message, then apply it. Dispatch thread, without locks. ---

void handle_video_status(const MessageHeader* header, const void* payload);
void handle_audio_status(const MessageHeader* header, const void* payload);
void handle_link_status(const MessageHeader* header, const void* payload);
void handle_ethernet_status(const MessageHeader* header, const void* payload);
void handle_video_timing(const MessageHeader* header, const void* payload);
void handle_video_start_working(const MessageHeader* header, const void* payload);
void handle_hdcp_status(const MessageHeader* header, const void* payload);
void handle_hdmi_video_mode(const MessageHeader* header, const void* payload);
void handle_typec_info(const MessageHeader* header, const void* payload);

// --- text_messages.cpp ---

/// Reads, logs and applies a text message. False, and nothing done, where `type` is none.
/// Dispatch thread, without locks.
bool handle_text_message(std::uint32_t type, const char* text);
