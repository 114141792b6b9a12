#include "tests/transcript.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "tests/service.h"

namespace {

// An emulated device has them only inside.
constexpr std::pair<const char*, const char*> files[] = {
#include "kept_files.inc"
};

constexpr std::size_t width = 150;
const std::string indentation = "    ";
const std::string arrow = " -> ";

/// The steps of a line: one, or one for each choice of its braces, which take turns together.
/// Braces with a quote behind them, or without a bar, are none.
Lines steps_of(const std::string& line)
{
    Lines steps;
    for (std::size_t turn = 0, turns = 1; turn < turns; ++turn) {
        std::string step;
        for (std::size_t place = 0; place < line.size(); ++place) {
            const std::size_t end = line.find('}', place);
            const std::string inside = line.substr(place + 1, end - place - 1);
            if (line[place] != '{' || inside[0] == '"' || inside.find('|') == std::string::npos) {
                step += line[place];
                continue;
            }
            std::istringstream choices(inside + "|");
            std::size_t count = 0;
            for (std::string choice; std::getline(choices, choice, '|'); ++count) {
                step += count == turn ? choice : "";
            }
            EXPECT_TRUE(turns == 1 || turns == count) << line;
            turns = count;
            place = end;
        }
        steps.push_back(step);
    }
    return steps;
}

/// The text in lines of the width, broken behind blanks and commas.
std::string indented(std::string text)
{
    std::string lines;
    std::string margin = indentation;
    while (margin.size() + text.size() > width) {
        const std::size_t end = text.find_last_of(" ,", width - margin.size() - 1);
        if (end == std::string::npos) {
            break;
        }
        lines += margin + text.substr(0, end + (text[end] == ',' ? 1 : 0)) + "\n";
        text.erase(0, text.find_first_not_of(' ', end + 1));
        margin = indentation + indentation;
    }
    return lines + margin + text + "\n";
}

/// The outcomes in one text, each without the words that it has in common with the one before.
std::string joined(const Lines& outcomes)
{
    std::string text = outcomes.front();
    for (auto outcome = outcomes.begin() + 1; outcome != outcomes.end(); ++outcome) {
        const std::string& last = *(outcome - 1);
        const auto same = std::mismatch(last.begin(), last.end(), outcome->begin(), outcome->end());
        const auto begin =
            outcome->rfind(' ', static_cast<std::size_t>(same.second - outcome->begin()));
        const bool is_repeated = *outcome == last;
        text += " | ";
        text += is_repeated || begin == std::string::npos ? "" : "..";
        text += is_repeated ? "same" : outcome->substr(begin == std::string::npos ? 0 : begin);
    }
    return text;
}

/// A line with what came of its steps.
std::string with_outcome(const std::string& line, const std::string& outcome)
{
    if (outcome.empty()) {
        return line + "\n";
    }
    const bool fits = line.size() + arrow.size() + outcome.size() <= width;
    return fits ? line + arrow + outcome + "\n" : line + "\n" + indented(outcome);
}

}  // namespace

std::vector<std::string> transcript_names()
{
    Lines names;
    for (const auto& [name, text] : files) {
        if (std::strstr(name, ".txt") != nullptr) {
            names.emplace_back(name);
        }
    }
    return names;
}

std::string kept_text(const std::string& name)
{
    for (const auto& [file, text] : files) {
        if (name == file) {
            return text;
        }
    }
    ADD_FAILURE() << "no file " << name;
    return "";
}

void play_transcript(const std::string& name,
                     const std::function<std::string(const std::string& line)>& step)
{
    const std::string kept = kept_text(name);
    std::istringstream lines(kept);
    std::string played;
    for (std::string line; std::getline(lines, line);) {
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
        if (line.empty() || line[0] == '#') {
            played += line + "\n";
        } else if (line.rfind(indentation, 0) != 0) {
            line.resize(std::min(line.find(arrow), line.size()));
            Lines outcomes;
            for (const std::string& each : steps_of(line)) {
                SCOPED_TRACE(each);
                outcomes.push_back(step(each));
            }
            played += with_outcome(line, joined(outcomes));
        }
    }
    if (const char* folder = std::getenv("UPDATE_TRANSCRIPTS")) {
        write_file(std::string(folder) + "/" + name, played);
    } else {
        EXPECT_EQ(played, kept);
    }
}
