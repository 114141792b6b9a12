/// Access to documents that anything on the device may have damaged.
#include "store/json_access.h"

namespace {

Json::Value& convertible_in(Json::Value& object, const char* name, Json::ValueType kind)
{
    Json::Value& member = object[name];
    if (!member.isConvertibleTo(kind)) {
        member = Json::Value();
    }
    return member;
}

}  // namespace

bool holds_members(const Json::Value& value)
{
    return value.isObject() || value.isNull();
}

Json::Value& object_in(Json::Value& parent, const char* name)
{
    Json::Value& member = parent[name];
    if (!holds_members(member)) {
        member = Json::Value();
    }
    return member;
}

Json::Value& array_in(Json::Value& parent, const char* name)
{
    Json::Value& member = parent[name];
    if (!member.isArray()) {
        member = Json::Value(Json::arrayValue);
    }
    return member;
}

Json::Value& flag_in(Json::Value& object, const char* name)
{
    return convertible_in(object, name, Json::booleanValue);
}

Json::Value& number_in(Json::Value& object, const char* name)
{
    return convertible_in(object, name, Json::intValue);
}

Json::Value& text_in(Json::Value& object, const char* name)
{
    return convertible_in(object, name, Json::stringValue);
}

bool has_text(const Json::Value& value, std::string_view text)
{
    return value.isConvertibleTo(Json::stringValue) ? value.asString() == text : text.empty();
}

bool set_flag(Json::Value& object, const char* name, bool flag)
{
    Json::Value& member = flag_in(object, name);
    if (member.asBool() == flag) {
        return false;
    }
    member = flag;
    return true;
}

bool set_text(Json::Value& object, const char* name, const char* text)
{
    Json::Value& member = text_in(object, name);
    if (has_text(member, text)) {
        return false;
    }
    member = text;
    return true;
}
