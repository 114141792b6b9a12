#include "tools/statusctl/get.h"

#include <iostream>

#include "tools/statusctl/document_path.h"
#include "tools/statusctl/documents.h"
#include "tools/statusctl/input_error.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/safe_read.h"

namespace statusctl {

namespace {

/// Reads into `root`; where that fails, says why on standard error and gives false.
bool read_into(const StatusDocument& document, Json::Value& root)
{
    const DocumentRead result = read_document_safely(document.path);
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
    bool complete = true;
    for (const StatusDocument& document : status_documents) {
        Json::Value root;
        if (read_into(document, root)) {
            all[std::string(document.name)] = root;
        } else {
            complete = false;
        }
    }
    std::cout << json_lines(all) << '\n';
    return complete ? 0 : 1;
}

}  // namespace

int run_get(const GetOptions& options)
{
    if (options.document.empty()) {
        return get_all();
    }
    const StatusDocument& document = status_documents[document_named(options.document)];
    const std::vector<std::string> steps = path_steps(options.path);
    Json::Value root;
    if (!read_into(document, root)) {
        return 1;
    }
    const Json::Value* value = value_at(root, steps);
    if (value == nullptr) {
        std::cerr << "statusctl: " << document.path << ": no member " << printable(options.path)
                  << '\n';
        return 1;
    }
    const bool raw_text = value->isString() && !options.json;
    std::cout << (raw_text ? printable(value->asString()) : json_lines(*value)) << '\n';
    return 0;
}

}  // namespace statusctl
