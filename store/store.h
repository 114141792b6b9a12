/// The cycle that changes a document, and the events that announce a change. The documents are the
/// store: between two messages no copy of one lives in memory.
#pragma once

#include <cstdint>

#include <json/value.h>

// --- read_document.cpp ---

/// The parsed document: an object, or null where it is missing, unreadable, not valid JSON or
/// of another kind. In the service under `document_mutex`.
Json::Value read_document(const char* path);

// --- write_json_to_file.cpp ---

/// Rewrites the document at `path` in place and announces it as its row in documents.h says. The
/// one delayed event is that of `inputs.json`. `root` is an object or null, as `read_document`
/// gives it. A failure is reported on standard error and not to the caller. Under `document_mutex`;
/// takes the lock of the timer or of the event sender.
void write_json_to_file(const char* path, const Json::Value& root);

// --- update_events.cpp ---

/// Broadcasts the name of an event, zero-terminated and at most 1,023 bytes long, to
/// `update_event_group`. `destination` is the netlink port for a copy of its own, -1 for none.
/// A failure to set up the message is reported on standard error, and the event is lost. Any
/// thread; takes a lock of its own.
void send_update_event(std::int32_t destination, const char* name);

/// Starts the delay of the event of `inputs.json` anew. Where the timer can't be had,
/// there is no event for this write. Takes `update_timer_mutex`.
void arm_input_update_timer();
