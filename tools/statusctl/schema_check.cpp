#include "tools/statusctl/schema_check.h"

#include <memory>
#include <sstream>
#include <stdexcept>

#include <json/reader.h>
#include <json/writer.h>
#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

namespace statusctl {

namespace {

struct SchemaRow {
    const char* file;
    const char* text;
};

constexpr SchemaRow schema_rows[] = {
#include "schema_rows.inc"
};

std::unique_ptr<valijson::Schema> parse_schema(const char* text)
{
    Json::Value root;
    std::istringstream(text) >> root;
    auto schema = std::make_unique<valijson::Schema>();
    valijson::SchemaParser().populateSchema(valijson::adapters::JsonCppAdapter(root), *schema);
    return schema;
}

const char* schema_text(const std::string& document)
{
    const std::string file = document.substr(0, document.rfind(".json")) + ".schema.json";
    for (const SchemaRow& row : schema_rows) {
        if (file == row.file) {
            return row.text;
        }
    }
    throw std::invalid_argument("there is no document " + document);
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
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        place += (place.empty() ? "is " : " is ") + Json::writeString(compact, *value);
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
    const std::unique_ptr<valijson::Schema> schema = parse_schema(schema_text(name));
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
