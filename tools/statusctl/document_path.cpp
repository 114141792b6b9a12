#include "tools/statusctl/document_path.h"

#include <algorithm>
#include <charconv>

#include "tools/statusctl/input_error.h"
#include "tools/statusctl/printable.h"

namespace statusctl {

namespace {

const Json::Value* entry_of(const Json::Value& array, const std::string& step)
{
    Json::ArrayIndex position = 0;
    const char* const end = step.data() + step.size();
    const auto [stop, error] = std::from_chars(step.data(), end, position);
    const bool there = error == std::errc() && stop == end && position < array.size();
    return there ? &array[position] : nullptr;
}

}  // namespace

std::vector<std::string> path_steps(std::string_view path)
{
    std::vector<std::string> steps;
    bool well_formed = true;
    for (std::string_view rest = path; !rest.empty() && well_formed;) {
        const bool bracket = rest.front() == '[';
        // A dot leads to every name but the first.
        const bool dot = rest.front() == '.';
        well_formed = bracket || dot != steps.empty();
        rest.remove_prefix(bracket || dot ? 1 : 0);
        const std::size_t end = std::min(rest.find_first_of(bracket ? "]" : ".["), rest.size());
        well_formed = well_formed && end > 0 && (!bracket || end < rest.size());
        steps.emplace_back(rest.substr(0, end));
        rest.remove_prefix(std::min(bracket ? end + 1 : end, rest.size()));
    }
    if (!well_formed) {
        throw InputError(printable(path) + " is no path such as inputs[0].video.connected");
    }
    return steps;
}

const Json::Value* value_at(const Json::Value& root, const std::vector<std::string>& steps)
{
    const Json::Value* value = &root;
    for (const std::string& step : steps) {
        if (value->isArray()) {
            value = entry_of(*value, step);
        } else if (value->isObject()) {
            value = value->find(step.data(), step.data() + step.size());
        } else {
            return nullptr;
        }
        if (value == nullptr) {
            return nullptr;
        }
    }
    return value;
}

}  // namespace statusctl
