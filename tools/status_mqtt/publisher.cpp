#include "tools/status_mqtt/publisher.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "tools/status_mqtt/log.h"

namespace {

/// A document that the service is rewriting is whole again by then.
constexpr std::chrono::milliseconds next_look(10);
/// What lasts longer is a problem, which is looked at again after as long.
constexpr std::chrono::milliseconds passing(1000);

/// The file's name: "inputs.json".
std::string file_name(status_json_document document)
{
    return std::strrchr(status_json_path(document), '/') + 1;
}

struct Read {
    std::string text;     // of a whole document
    std::string problem;  // why it isn't whole; empty where it is
};

Read read_document(status_json_document document)
{
    std::size_t length = 0;
    status_json_state state = STATUS_JSON_WHOLE;
    const std::unique_ptr<char, decltype(&std::free)> text(
        status_json_examine(document, 0, &length, &state), &std::free);
    if (!text) {
        return {"", std::strerror(errno)};
    }
    switch (state) {
        case STATUS_JSON_WHOLE:
            return {without_blanks({text.get(), length}), ""};
        case STATUS_JSON_EMPTY:
            return {"", "empty"};
        case STATUS_JSON_PARTIAL:
            return {"", "damaged"};
        case STATUS_JSON_LOCKED:
            return {"", "locked by another process"};
    }
    return {"", "of a state that is not known"};
}

}  // namespace

std::string without_blanks(std::string_view json)
{
    std::string compact;
    compact.reserve(json.size());
    bool in_text = false;
    bool is_escaped = false;
    for (const char letter : json) {
        const bool is_blank = std::strchr(" \t\r\n", letter) != nullptr;
        if (in_text || !is_blank) {
            compact += letter;
        }
        if (letter == '"' && !is_escaped) {
            in_text = !in_text;
        }
        is_escaped = letter == '\\' && !is_escaped;
    }
    return compact;
}

Publisher::Publisher(const Options& options, Connection& connection)
    : options_(options), connection_(connection)
{
    for (int number = 0;; ++number) {
        const auto document = static_cast<status_json_document>(number);
        if (status_json_path(document) == nullptr) {
            break;
        }
        const std::string name = file_name(document);
        documents_.push_back({});
        documents_.back().document = document;
        documents_.back().topic.name = topic_of(options, name.substr(0, name.find('.')));
    }
    problems_.name = topic_of(options, "problems");
    availability_.name = topic_of(options, "availability");
}

void Publisher::work(unsigned changed)
{
    now_ = Clock::now();
    take_answers();
    for (Document& document : documents_) {
        document.is_due = document.is_due || (changed >> document.document & 1U) != 0;
        if (document.is_due && is_ready(document.topic)) {
            publish_document(document);
        }
    }
    const bool have_looked_at_all = std::all_of(
        documents_.begin(), documents_.end(),
        [](const Document& document) { return document.was_read || !document.problem.empty(); });
    if (have_looked_at_all && is_ready(problems_)) {
        publish(problems_, problems());
    }
    if (have_looked_at_all && availability_.payload.empty()) {
        publish(availability_, "online");
    }
}

Publisher::Clock::time_point Publisher::due() const
{
    auto due = Clock::time_point::max();
    for (const Document& document : documents_) {
        if (document.is_due && document.topic.message == 0) {
            due = std::min(due, document.topic.ready);
        }
    }
    if (problems_.message == 0 && problems_.payload != problems()) {
        due = std::min(due, problems_.ready);
    }
    return due;
}

void Publisher::take_answers()
{
    for (const Connection::Answer& answer : connection_.take_answers()) {
        const auto take = [&answer](Topic& topic) {
            if (topic.message != answer.message) {
                return;
            }
            topic.message = 0;
            if (topic.refusal != answer.problem && !answer.problem.empty()) {
                log_line(topic.name + ": " + answer.problem);
            }
            topic.refusal = answer.problem;
        };
        for (Document& document : documents_) {
            take(document.topic);
        }
        take(problems_);
        take(availability_);
    }
}

bool Publisher::is_ready(const Topic& topic) const
{
    return topic.message == 0 && now_ >= topic.ready;
}

/// Nothing is sent where the broker has the payload already.
void Publisher::publish(Topic& topic, std::string payload)
{
    if (topic.payload == payload) {
        return;
    }
    topic.payload = std::move(payload);
    topic.ready = now_ + options_.pause;
    std::string problem;
    topic.message = connection_.publish(topic.name, topic.payload, problem);
    if (!problem.empty() && problem != topic.refusal) {
        log_line(topic.name + ": " + problem);
    }
    topic.refusal = problem;
}

/// What can't be read stays due: nothing tells when another process unlocks it.
void Publisher::publish_document(Document& document)
{
    Read read = read_document(document.document);
    if (read.problem.empty()) {
        document.is_due = false;
        document.was_read = true;
        document.failing_since = Clock::time_point::max();
        document.problem.clear();
        publish(document.topic, std::move(read.text));
        return;
    }
    document.failing_since = std::min(document.failing_since, now_);
    const bool may_pass = now_ - document.failing_since < passing;
    document.topic.ready = now_ + (may_pass ? next_look : passing);
    if (!may_pass) {
        document.problem = read.problem;
    }
}

/// A JSON array of lines. None of them has a letter to be escaped.
std::string Publisher::problems() const
{
    std::string lines;
    for (const Document& document : documents_) {
        if (!document.problem.empty()) {
            lines += (lines.empty() ? "\"" : ",\"") + file_name(document.document) + ": " +
                     document.problem + "\"";
        }
    }
    return "[" + lines + "]";
}
