#include "store/input_entries.h"

#include "store/json_access.h"

Json::Value& input_entry(Json::Value& root, unsigned position, const char* member)
{
    const auto make_entry = [member] {
        Json::Value entry;
        entry[member] = Json::Value();
        return entry;
    };
    return entry_at(array_in(root, "inputs"), position, make_entry);
}

Json::Value& input_video(Json::Value& root, unsigned position)
{
    return object_in(input_entry(root, position, "video"), "video");
}
