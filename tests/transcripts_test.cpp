/// What each message changes: the transcripts in tests/transcripts/, each on a service of its own.
/// Their steps:
///
///   a line of `send_line`
///   logs on, logs off         whether the log is shown as well; at first it is not
///   document NAME TEXT        makes a document this text; "missing": there is none; "filled": a
///                             word stands in place of every value; PATH VALUE: but for this value
///                             it stays. Behind " > " there may be a step of its own
///   ports TEXT                the Ethernet driver's file, and the message to read it
///   videoip [OLD => NEW]      the video driver's file for 1080p60, with NEW in place of OLD, and
///                             the message to read it; in both files \n and \t are what they name,
///                             and ~200~ is a row of points
///   restart                   kills the service and starts it
///
/// What comes of them: how the service accesses a document, with the values that it changes. The
/// direct events are shown where they are not those of the documents that were written.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>

#include "store/documents.h"
#include "tests/service.h"
#include "tests/transcript.h"
#include "tools/statusctl/printable.h"

namespace {

namespace fs = std::filesystem;

const std::string videoip_file =
    "Progressive HPos VPos\n"
    "Src Timing Table[0x1f]: Serial Number[0x2A] [1920]X[1080] [60]Hz\n"
    "\tPixel Rate: 148500KHz, Htotal: 2200, Vtotal: 1125\n"
    "\tHbp: 148, Vbp: 36, Hsw: 44, Vsw: 5\n"
    "Src Refresh Rate: [60]Hz\n";

/// What is there of a document: its text, and whether it was touched since `forget_accesses`.
struct State {
    bool exists = false;
    bool is_read = false;
    bool is_written = false;
    std::string text;
};

void forget_accesses(const char* path)
{
    const timespec long_ago[2] = {};
    utimensat(AT_FDCWD, path, long_ago, 0);
}

State state_of(const char* path)
{
    struct stat status = {};
    if (stat(path, &status) != 0) {
        return {};
    }
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    return {true, status.st_atime != 0, status.st_mtime != 0, read_file(path)};
}

using statusctl::json_line;

using Changes = std::vector<std::pair<std::string, std::string>>;  // path and what is there now

/// An object that comes to be as it is in `seeded`, the document's default, is one change.
void add_changes(const Json::Value& before, const Json::Value& after, const Json::Value& seeded,
                 const std::string& path, Changes& changes)
{
    if (before.isArray() && after.isArray() && !before.empty() && before.size() <= after.size()) {
        for (Json::ArrayIndex i = 0; i < after.size(); ++i) {
            add_changes(before.get(i, Json::Value()), after[i],
                        seeded.isArray() ? seeded.get(i, Json::Value()) : Json::Value(),
                        path + "[" + std::to_string(i) + "]", changes);
        }
    } else if (json_line(before) == json_line(after)) {
        return;
    } else if (after.isObject() && after == seeded) {
        changes.emplace_back(path, "as seeded");
    } else if (before.isObject() && after.isObject()) {
        const auto path_of_member = [&path](const std::string& member) {
            return path.empty() ? member : std::string(path).append(".").append(member);
        };
        for (const std::string& member : before.getMemberNames()) {
            if (!after.isMember(member)) {
                changes.emplace_back(path_of_member(member), "gone");
            }
        }
        for (const std::string& member : after.getMemberNames()) {
            const Json::Value of_seeded = seeded.isObject() ? seeded[member] : Json::Value();
            if (!before.isMember(member)) {
                changes.emplace_back(path_of_member(member), json_line(after[member]));
            } else {
                add_changes(before[member], after[member], of_seeded, path_of_member(member),
                            changes);
            }
        }
    } else {
        changes.emplace_back(path, json_line(after));
    }
}

Json::Value filled(Json::Value value)
{
    if (!value.isArray() && !value.isObject()) {
        return "left";
    }
    for (Json::Value& member : value) {
        member = filled(member);
    }
    return value;
}

std::string unescaped(std::string text)
{
    text = std::regex_replace(text, std::regex(R"(\\n)"), "\n");
    text = std::regex_replace(text, std::regex(R"(\\t)"), "\t");
    std::smatch points;
    if (std::regex_search(text, points, std::regex("~(\\d+)~"))) {
        text = std::string(points.prefix()) + std::string(std::stoul(points[1]), '.') +
               std::string(points.suffix());
    }
    return text;
}

class Transcripts : public ServiceTest, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override
    {
        fs::remove_all(videoip_timing_path);
        fs::remove_all(ethernet_port_status_path);
        ServiceTest::SetUp();
    }

    std::string step(const std::string& line)
    {
        line_ = line;
        const std::string verb = line.substr(0, line.find(' '));
        const std::string rest = line.substr(std::min(verb.size() + 1, line.size()));
        if (verb == "logs") {
            shows_log_ = rest == "on";
            return "";
        }
        if (verb == "document") {
            const std::size_t end = std::min(rest.find(" > "), rest.size());
            make_document(rest.substr(0, end));
            return end == rest.size() ? "" : step(rest.substr(end + 3));
        }
        if (verb == "restart") {
            return outcome_of([this] {
                stop();
                start();
            });
        }
        if (verb == "ports") {
            write_file(ethernet_port_status_path, unescaped(rest));
            return outcome_of([] { send_line("ethernet_status"); });
        }
        if (verb == "videoip") {
            const std::size_t arrow = rest.find(" => ");
            std::string file = videoip_file;
            if (arrow != std::string::npos) {
                const std::string old = unescaped(rest.substr(0, arrow));
                file.replace(file.find(old), old.size(), unescaped(rest.substr(arrow + 4)));
            }
            write_file(videoip_timing_path, file);
            return outcome_of([] { send_line("video_start_working 0"); });
        }
        return outcome_of([&line] { send_line(line); });
    }

private:
    /// Makes a document what the words behind "document" say.
    static void make_document(const std::string& words)
    {
        const std::size_t end = std::min(words.find(' '), words.size());
        const std::string name = words.substr(0, end) + ".json";
        const std::string text = words.substr(std::min(end + 1, words.size()));
        if (text == "missing") {
            fs::remove(path_of(name));
        } else if (text == "filled") {
            write_document(name, filled(parsed(text_of(name))).toStyledString());
        } else if (text.rfind('.', 0) == 0) {
            Json::Value root = parsed(text_of(name));
            Json::Path(text.substr(0, text.find(' '))).make(root) =
                parsed("[" + text.substr(text.find(' ')) + "]")[0];
            write_document(name, root.toStyledString());
        } else {
            write_document(name, text);
        }
    }

    /// The changes in one line, in which what all paths begin with stands once. Many changes that
    /// an earlier step has made are told by that step.
    std::string text_of_changes(const StatusDocument& document, const std::string& before,
                                const std::string& after)
    {
        if (after == *document.default_text) {
            return " as seeded";
        }
        const Json::Value root = parsed(after);
        EXPECT_EQ(after, root.toStyledString());
        Changes changes;
        add_changes(parsed(before), root, parsed(std::string(*document.default_text)), "", changes);
        for (auto& [path, value] : changes) {  // the one member of the root, known by the document
            const std::string member = root.size() == 1 ? root.getMemberNames()[0] : "";
            path.erase(0, path.size() > member.size() ? member.size() : 0);
        }
        if (changes.empty()) {
            return "";
        }
        std::string common = changes.front().first;
        for (const auto& [path, value] : changes) {
            const auto end = std::mismatch(common.begin(), common.end(), path.begin(), path.end());
            common.erase(end.first, common.end());
        }
        common.resize(changes.size() > 1 ? common.rfind('.') + 1 : 0);
        std::string text;
        std::string object;  // of the path before, which a bare point stands for
        for (const auto& [path, value] : changes) {
            const std::size_t name = path.rfind('.') + 1;
            const bool is_same = name > common.size() && path.substr(0, name) == object;
            object = path.substr(0, name);
            text += (text.empty() ? " " : ", ") + path.substr(is_same ? name - 1 : common.size()) +
                    (path.empty() ? "" : " ") + value;
        }
        if (text.size() > 100) {
            const auto [first, is_new] = first_made_by_.try_emplace(text, line_);
            text = is_new ? text : " as by " + first->second;
        }
        return "," + (common.empty() ? "" : " " + common.substr(0, common.size() - 1) + ":") + text;
    }

    std::string outcome_of(const Action& action)
    {
        settle();
        events.take_names();
        std::vector<State> before;
        for (const StatusDocument& document : status_documents) {
            before.push_back(state_of(document.path));
            forget_accesses(document.path);
        }
        std::string outcome;
        const auto add = [&outcome](const std::string& part) {
            outcome += (outcome.empty() ? "" : "; ") + part;
        };
        for (const std::string& line : logged_by(action)) {
            shows_log_ ? add(line) : static_cast<void>(0);
        }
        Lines due;
        for (const StatusDocument& document : status_documents) {
            const auto position = static_cast<std::size_t>(&document - status_documents);
            const State after = state_of(document.path);
            const std::string name(document.name);
            if (after.is_written) {
                std::string how = before[position].exists ? " rewritten" : " created";
                how += after.text.find("/*") == std::string::npos ? "" : " with its comments";
                add(name + how + text_of_changes(document, before[position].text, after.text));
            } else if (after.is_read) {
                add(name + " read");
            }
            EXPECT_TRUE(after.is_written || after.text == before[position].text) << name;
            const bool is_seeded = after.text == *document.default_text;
            if (after.is_written && !is_seeded && document.event != nullptr &&
                document.event_delay_s == 0) {
                due.emplace_back(document.event);
            }
        }
        Lines heard = events.take_names();
        heard.erase(std::remove(heard.begin(), heard.end(), inputs_document.event), heard.end());
        if (heard != due) {
            add(::testing::PrintToString(heard));
        }
        return outcome.empty() ? "nothing" : outcome;
    }

    bool shows_log_ = false;
    std::string line_;                                  // of the step that is done
    std::map<std::string, std::string> first_made_by_;  // lines by their changes
};

}  // namespace

TEST_P(Transcripts, ComeOutAsTheyAreKept)
{
    play_transcript(GetParam(), [this](const std::string& line) { return step(line); });
}

INSTANTIATE_TEST_SUITE_P(Of, Transcripts, ::testing::ValuesIn(transcript_names()));
