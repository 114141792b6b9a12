/// The entries of `ethernet.json` that have to be built anew. No locks, any thread.
#pragma once

#include <string>

#include <json/value.h>

constexpr Json::ArrayIndex ethernet_port_count = 4;

/// A `link` that is down.
Json::Value down_link();

/// An entry for a port that the document lacks.
Json::Value make_ethernet_entry(const std::string& name);
