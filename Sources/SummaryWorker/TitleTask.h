#pragma once

#include <span>
#include <string>
#include <vector>

#include "SummaryWorker/MeetingRun.h"

namespace meetingcore {

/// One excerpt of the transcript for the title.
struct TitleSource {
    std::string speaker;
    std::string text;  ///< at most 400 characters
};

template <>
inline constexpr auto json::fields<TitleSource> = json::record(json::field("speaker", &TitleSource::speaker),
                                                               json::field("text", &TitleSource::text));

/// The title prompt around the excerpts, in which no excerpt can form a chat marker.
std::string titlePrompt(std::span<const TitleSource> sources);

/// Up to 32 excerpts spread evenly over the document, its first and last segment included.
std::vector<TitleSource> titleSources(const TranscriptDocument& document);

/// Lets the model propose a short German title from excerpts of the transcript, writes it as
/// layout::automaticTitle and reports "titleFinished". Durable on return. Throws MeetingError; an older title
/// then stays as it was.
void runTitleTask(const MeetingRun& run);

}  // namespace meetingcore
