/// The device that a fuzz target plays: the service's documents and state, without its threads
/// and its socket. The paths are the service's own, so targets run in scripts/sandbox.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <json/value.h>

#include "store/documents.h"

/// The state that the service's folders share, as it is at start. What one file keeps to itself,
/// as the last current and the ring's used slots, stays from run to run.
void restore_state();

/// That, and the documents as seeded.
void restore_device();

/// Takes a datagram through the ring to its handler.
void deliver(std::string_view datagram);

std::string read_text(const char* path);
void write_text(const char* path, std::string_view text);

/// Ends the run, which keeps its input, where `holds` is false.
void require(bool holds, const char* what);

/// The parsed document; requires that its top level has the member that the default text has, of
/// the same kind.
Json::Value sound_document(const StatusDocument& document);
