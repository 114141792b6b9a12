#include "tools/statusctl/diff.h"

#include <algorithm>
#include <set>

namespace statusctl {

namespace {

bool is_object(const Json::Value* value)
{
    return value != nullptr && value->isObject() && !value->empty();
}

bool is_array(const Json::Value* value)
{
    return value != nullptr && value->isArray() && !value->empty();
}

const Json::Value* member_of(const Json::Value* object, const std::string& name)
{
    return is_object(object) ? object->find(name.data(), name.data() + name.size()) : nullptr;
}

const Json::Value* entry_of(const Json::Value* array, Json::ArrayIndex position)
{
    return is_array(array) && position < array->size() ? &(*array)[position] : nullptr;
}

void compare(const std::string& path, const Json::Value* before, const Json::Value* after,
             std::vector<Change>& changes);

void compare_objects(const std::string& path, const Json::Value* before, const Json::Value* after,
                     std::vector<Change>& changes)
{
    std::set<std::string> names;
    for (const Json::Value* state : {before, after}) {
        if (is_object(state)) {
            const Json::Value::Members members = state->getMemberNames();
            names.insert(members.begin(), members.end());
        }
    }
    for (const std::string& name : names) {
        compare(path.empty() ? name : path + "." + name, member_of(before, name),
                member_of(after, name), changes);
    }
}

void compare_arrays(const std::string& path, const Json::Value* before, const Json::Value* after,
                    std::vector<Change>& changes)
{
    const Json::ArrayIndex size =
        std::max(is_array(before) ? before->size() : 0, is_array(after) ? after->size() : 0);
    for (Json::ArrayIndex i = 0; i < size; ++i) {
        compare(path + "[" + std::to_string(i) + "]", entry_of(before, i), entry_of(after, i),
                changes);
    }
}

/// Looks into objects and arrays where the other state has the same kind or nothing; otherwise
/// they are values like any other.
void compare(const std::string& path, const Json::Value* before, const Json::Value* after,
             std::vector<Change>& changes)
{
    const bool one_is_absent = before == nullptr || after == nullptr;
    if ((is_object(before) && is_object(after)) ||
        (one_is_absent && (is_object(before) || is_object(after)))) {
        compare_objects(path, before, after, changes);
    } else if ((is_array(before) && is_array(after)) ||
               (one_is_absent && (is_array(before) || is_array(after)))) {
        compare_arrays(path, before, after, changes);
    } else if (one_is_absent ? before != after : *before != *after) {
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
