/// `statusctl get`: a document, or one member of it.
#include <algorithm>
#include <iostream>

#include "tools/statusctl/documents.h"
#include "tools/statusctl/message_types.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"

namespace statusctl {

namespace {

/// The steps of a path such as `inputs[0].video.color` or `inputs.0.video.color`: names of
/// members, and positions or ports in arrays. Throws InputError.
std::vector<std::string> path_steps(std::string_view path)
{
    std::vector<std::string> steps;
    for (std::string_view rest = path; !rest.empty();) {
        const bool bracket = rest.front() == '[';
        // A dot leads to every name but the first.
        const bool dot = rest.front() == '.';
        const bool begins_well = bracket || dot != steps.empty();
        rest.remove_prefix(bracket || dot ? 1 : 0);
        const std::size_t end = std::min(rest.find_first_of(bracket ? "]" : ".["), rest.size());
        if (!begins_well || end == 0 || (bracket && end == rest.size())) {
            throw InputError(printable(path) + " is no path such as inputs[0].video.connected");
        }
        steps.emplace_back(rest.substr(0, end));
        rest.remove_prefix(bracket ? end + 1 : end);
    }
    return steps;
}

/// The entry at a position, or else that of a port with this name.
const Json::Value* entry_of(const Json::Value& array, const std::string& step)
{
    const auto position = number_in<Json::ArrayIndex>(step);
    if (position) {
        return *position < array.size() ? &array[*position] : nullptr;
    }
    for (const Json::Value& entry : array) {
        for (const char* member : {"port_type", "port"}) {
            const Json::Value name = entry.isObject() ? entry[member] : Json::Value();
            if (name.isString() && same_but_for_case(name.asString(), step)) {
                return &entry;
            }
        }
    }
    return nullptr;
}

/// What stands there; null where nothing does.
const Json::Value* value_at(const Json::Value& root, const std::vector<std::string>& steps)
{
    const Json::Value* value = &root;
    for (const std::string& step : steps) {
        value = value->isArray()    ? entry_of(*value, step)
                : value->isObject() ? value->find(step.data(), step.data() + step.size())
                                    : nullptr;
        if (value == nullptr) {
            break;
        }
    }
    return value;
}

/// Reads into `root`; where that fails, says why on standard error and gives false.
bool read_into(const StatusDocument& document, Json::Value& root)
{
    const DocumentRead result = read_document_safely(document);
    if (result.state != ReadState::good) {
        std::cerr << "statusctl: " << document.path << ": " << printable(result.reason) << '\n';
        return false;
    }
    root = result.root;
    return true;
}

int get_all()
{
    Json::Value all(Json::objectValue);
    int status = 0;
    for (const StatusDocument& document : status_documents) {
        Json::Value root;
        if (read_into(document, root)) {
            all[std::string(document.name)] = root;
        } else {
            status = 1;
        }
    }
    std::cout << json_lines(all) << '\n';
    return status;
}

int run_get(const Arguments& arguments)
{
    if (arguments.words.empty()) {
        return get_all();
    }
    const StatusDocument& document = status_documents[document_named(arguments.words[0])];
    const std::string path = arguments.words.size() > 1 ? arguments.words[1] : "";
    const std::vector<std::string> steps = path_steps(path);
    Json::Value root;
    if (!read_into(document, root)) {
        return 1;
    }
    const Json::Value* value = value_at(root, steps);
    if (value == nullptr) {
        std::cerr << "statusctl: " << document.path << ": no member " << printable(path) << '\n';
        return 1;
    }
    const bool raw_text = value->isString() && !arguments.has("json");
    std::cout << (raw_text ? printable(value->asString()) : json_lines(*value)) << '\n';
    return 0;
}

constexpr option options[] = {help_option, {"json", no_argument, nullptr, 0}, {}};

}  // namespace

const Command get_command = {"get",
                             "Print a document, or one member of it",
                             R"(statusctl get [--json] [DOCUMENT [PATH]]
  DOCUMENT   A document by its name; all of them by default
  PATH       A member, such as inputs[HDMI].video.connected or inputs[0].video.connected
  --json     Print text as JSON too
)",
                             options,
                             2,
                             false,
                             run_get};

}  // namespace statusctl
