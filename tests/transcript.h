/// Transcripts: texts of what is done, a step a line, and of what comes of it, behind " -> " or
/// in the indented lines below. Playing one does every step again and writes the text anew; it
/// must come out as it is kept, in tests/transcripts/.
///
///   # a note
///   hdcp_status status=1 -> inputs rewritten, inputs[0].video.hdcp.active_hdcp_version "HDCP 1.4"
///   hdcp_status status={1|2|2}    steps of their own, for which what stands in braces takes turns
///       inputs read | .. rewritten, inputs[0].video.hdcp.active_hdcp_version "HDCP 2.2" | .. read
///
/// Behind ".." the words come that differ from those of the step before.
/// After a change that is meant, UPDATE_TRANSCRIPTS=$PWD/tests/transcripts scripts/test -R ...
/// keeps what comes out; look over the difference before it is committed.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// The names of all that end in ".txt".
std::vector<std::string> transcript_names();

/// Plays the transcript in the file of this name; fails the case where anything comes out
/// otherwise. `step` does what a line says and gives what came of it; an empty text is not shown.
void play_transcript(const std::string& name,
                     const std::function<std::string(const std::string& line)>& step);

/// The text of a file that is kept beside the transcripts.
std::string kept_text(const std::string& name);
