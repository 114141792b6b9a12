#include "tools/statusctl/diff.h"

#include <algorithm>
#include <set>

namespace statusctl {

namespace {

bool is_absent_or(Json::ValueType type, const Json::Value* value)
{
    return value == nullptr || value->type() == type;
}

bool has_entries(const Json::Value* value)
{
    return value != nullptr && !value->empty();
}

/// Whether both states are looked into rather than compared as they are.
bool both_are(Json::ValueType type, const Json::Value* before, const Json::Value* after)
{
    return is_absent_or(type, before) && is_absent_or(type, after) &&
           (has_entries(before) || has_entries(after));
}

std::set<std::string> names_in(const Json::Value* before, const Json::Value* after)
{
    std::set<std::string> names;
    for (const Json::Value* state : {before, after}) {
        if (state != nullptr) {
            const Json::Value::Members members = state->getMemberNames();
            names.insert(members.begin(), members.end());
        }
    }
    return names;
}

const Json::Value* member_of(const Json::Value* object, const std::string& name)
{
    return object == nullptr ? nullptr : object->find(name.data(), name.data() + name.size());
}

Json::ArrayIndex size_of(const Json::Value* array)
{
    return array == nullptr ? 0 : array->size();
}

const Json::Value* entry_of(const Json::Value* array, Json::ArrayIndex position)
{
    return position < size_of(array) ? &(*array)[position] : nullptr;
}

/// Goes no deeper than the parser lets a document be.
void compare(const std::string& path, const Json::Value* before, const Json::Value* after,
             std::vector<Change>& changes)
{
    if (both_are(Json::objectValue, before, after)) {
        const std::string prefix = path.empty() ? "" : path + '.';
        for (const std::string& name : names_in(before, after)) {
            compare(prefix + name, member_of(before, name), member_of(after, name), changes);
        }
    } else if (both_are(Json::arrayValue, before, after)) {
        const Json::ArrayIndex size = std::max(size_of(before), size_of(after));
        for (Json::ArrayIndex i = 0; i < size; ++i) {
            compare(path + '[' + std::to_string(i) + ']', entry_of(before, i), entry_of(after, i),
                    changes);
        }
    } else if (before == nullptr || after == nullptr || *before != *after) {
        changes.push_back({path, before, after});
    }
}

}  // namespace

std::vector<Change> differences(const Json::Value* before, const Json::Value* after)
{
    std::vector<Change> changes;
    compare("", before, after, changes);
    return changes;
}

}  // namespace statusctl
