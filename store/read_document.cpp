/// The read step of every change of a document. No file lock is taken: all changes run on the
/// dispatch thread, one at a time.
#include <exception>
#include <fstream>

#include <json/reader.h>

#include "store/json_access.h"
#include "store/store.h"

namespace {

// The reader is deprecated in favour of one with other rules for what is valid; the documents
// keep the rules that their readers and writers have grown up with.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
bool parse(std::istream& stream, Json::Value& root)
{
    Json::Reader reader;
    return reader.parse(stream, root, true);
}
#pragma GCC diagnostic pop

}  // namespace

Json::Value read_document(const char* path)
{
    Json::Value root;
    std::ifstream stream(path);
    if (!stream.is_open()) {
        return root;
    }
    try {
        if (!parse(stream, root) || !holds_members(root)) {
            root = Json::Value();
        }
    } catch (const std::exception&) {
        // The parser gives up on deep nesting, the stream on a read that fails: a document that
        // does not parse.
        root = Json::Value();
    }
    return root;
}
