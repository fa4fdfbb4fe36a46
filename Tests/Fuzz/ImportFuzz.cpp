#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "MeetingCore/Library/TranscriptIntake.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Transcript/CaptionText.h"
#include "MeetingCore/Transcript/SpeakerTurnFile.h"

namespace {

using namespace meetingcore;  // NOLINT(google-build-using-namespace)

void require(bool holds) {
    if (!holds) std::abort();
}

bool isTime(double start, double end) { return start >= 0 && start <= end && std::isfinite(end); }

/// Two windows with a gap between them.
std::vector<TranscriptionWindow> windows() {
    std::vector<TranscriptionWindow> track;
    for (const double start : {0.0, 70.0})
        track.push_back({{}, AudioSource::meeting, {{1, {}, {}, {}, 0, start, 960'000}}});
    return track;
}

void parse(std::string_view bytes) {
    try {
        const auto file = CaptionFile::parse(bytes, "Datei");
        for (const auto& caption : file.captions) {
            require(isTime(caption.startSeconds, caption.endSeconds) && !caption.text.empty());
            require(CaptionText::singleLine(caption.text) == caption.text && caption.speaker != "");
        }
        TranscriptIntake::assign(file, windows());
    } catch (const MeetingError&) {
    }
    try {
        for (const auto& turn : SpeakerTurnFile::parse(bytes, "Datei").turns) {
            require(isTime(turn.startSeconds, turn.endSeconds) && !turn.speaker.empty());
        }
    } catch (const MeetingError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    parse({reinterpret_cast<const char*>(data), size});
    return 0;
}
