/// What of the documents' state is due at the broker: state, never history.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "client/client.h"
#include "tools/status_mqtt/connection.h"
#include "tools/status_mqtt/options.h"

/// Of a whole document, all that stands between its values removed.
std::string without_blanks(std::string_view json);

/// Brings all topics up to date through one connection, from nothing: each document, then
/// `problems`, then `availability`, so that who sees `online` finds the rest right. From then on,
/// what changes. A topic has one message under way; while it has, and for a pause after it was
/// sent, changes gather, and the newest state wins.
class Publisher {
public:
    using Clock = std::chrono::steady_clock;

    /// Both must live longer. Nothing is published before the first `work`.
    Publisher(const Options& options, Connection& connection);

    /// Publishes what is due: `changed` has a bit for each document that may be another than it
    /// was. Logs what the broker refuses.
    void work(unsigned changed);

    /// When `work` has to be called again although nothing comes in; max() for never.
    [[nodiscard]] Clock::time_point due() const;

private:
    struct Topic {
        std::string name;
        std::string payload;      // as last sent
        int message = 0;          // under way; 0 for none
        Clock::time_point ready;  // from when on the next one may be
        std::string refusal;      // of the last one that was answered
    };
    struct Document {
        status_json_document document;
        Topic topic;
        bool is_due = true;
        bool was_read = false;
        Clock::time_point failing_since = Clock::time_point::max();
        std::string problem;  // why it can't be read; empty where it can
    };

    void take_answers();
    [[nodiscard]] bool is_ready(const Topic& topic) const;
    void publish(Topic& topic, std::string payload);
    void publish_document(Document& document);
    [[nodiscard]] std::string problems() const;

    const Options& options_;
    Connection& connection_;
    Clock::time_point now_;
    std::vector<Document> documents_;
    Topic problems_;
    Topic availability_;
};
