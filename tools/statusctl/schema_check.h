/// The documents held against their schemas, which are part of the executable.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace statusctl {

/// What is wrong with a document by the schema of its name ("inputs.json"), a line each; empty
/// for a document as the service writes it. A value that is quoted in a line is escaped as in
/// JSON, names of members are as they stand in the document. Throws std::invalid_argument where
/// there is no document of this name. Any thread, no locks.
std::vector<std::string> validate_document(const std::string& name, const Json::Value& document);

}  // namespace statusctl
