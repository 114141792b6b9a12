#include "tools/statusctl/schema_check.h"

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <json/reader.h>
#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include "store/documents.h"
#include "tools/statusctl/printable.h"

namespace statusctl {

namespace {

struct SchemaRow {
    std::string_view file;
    const char* text;
};

constexpr SchemaRow schema_rows[] = {
#include "schema_rows.inc"
};

/// The text of a document's schema; null where there is none.
constexpr const char* schema_of(std::string_view document)
{
    for (const SchemaRow& row : schema_rows) {
        if (row.file.substr(0, row.file.find('.')) == document) {
            return row.text;
        }
    }
    return nullptr;
}

constexpr bool has_schema_for_each_document()
{
    for (const StatusDocument& document : status_documents) {
        if (schema_of(document.name) == nullptr) {
            return false;
        }
    }
    return std::size(schema_rows) == std::size(status_documents);
}
static_assert(has_schema_for_each_document(), "schemas/ and store/documents.h name the same");

std::unique_ptr<valijson::Schema> parse_schema(const char* text)
{
    Json::Value root;
    std::istringstream(text) >> root;
    auto schema = std::make_unique<valijson::Schema>();
    valijson::SchemaParser().populateSchema(valijson::adapters::JsonCppAdapter(root), *schema);
    return schema;
}

/// A step of the validator's way to a value: "[name]" in an object, "[0]" in an array.
const Json::Value& step_into(const Json::Value& value, const std::string& step)
{
    const std::string name = step.substr(1, step.size() - 2);
    return value.isArray() ? value[static_cast<Json::ArrayIndex>(std::stoul(name))] : value[name];
}

/// The finding with the place and the value that it is about: "inputs[0].index is 2: ...".
std::string line_of(const valijson::ValidationResults::Error& finding, const Json::Value& document)
{
    std::string place;
    const Json::Value* value = &document;
    for (std::size_t i = 1; i < finding.context.size(); ++i) {  // behind the root
        const std::string& step = finding.context[i];
        place +=
            value->isArray() ? step : (place.empty() ? "" : ".") + step.substr(1, step.size() - 2);
        value = &step_into(*value, step);
    }
    if (!value->isObject() && !value->isArray()) {
        place += (place.empty() ? "is " : " is ") + json_line(*value);
    }
    return place.empty() ? finding.description : place + ": " + finding.description;
}

/// Whether a finding only says that a value holds another that has a finding of its own.
bool only_passes_on(const valijson::ValidationResults::Error& finding)
{
    return finding.description.rfind("Failed to validate ", 0) == 0;
}

}  // namespace

std::vector<std::string> validate_document(const std::string& name, const Json::Value& document)
{
    const char* const text = schema_of(std::string_view(name).substr(0, name.rfind(".json")));
    if (text == nullptr) {
        throw std::invalid_argument("there is no document " + name);
    }
    const std::unique_ptr<valijson::Schema> schema = parse_schema(text);
    valijson::ValidationResults findings;
    if (valijson::Validator().validate(*schema, valijson::adapters::JsonCppAdapter(document),
                                       &findings)) {
        return {};
    }
    std::vector<std::string> lines;
    for (const auto& finding : findings) {
        if (!only_passes_on(finding)) {
            lines.push_back(line_of(finding, document));
        }
    }
    return lines.empty() ? std::vector<std::string>{"does not match its schema"} : lines;
}

}  // namespace statusctl
