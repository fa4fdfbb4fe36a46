#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Recording/WindowPlanner.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {
namespace {

/// What can be read is valid JSON, and what is then written reads back to the same record and the same bytes.
template <class T>
void readAndWrite(std::string_view text) {
    T record;
    try {
        record = json::decode<T>(text, "Die Datei");
    } catch (const MeetingError&) {
        return;
    }
    const auto written = json::encode(record);
    const auto again = json::decode<T>(written, "Die Datei");
    if (!json::isValid(text) || again != record || json::encode(again) != written) std::abort();
}

template <class... Records>
void readAndWriteAll(std::string_view text) {
    (readAndWrite<Records>(text), ...);
}

/// What the readers of a valid record do with it next.
void use(std::string_view text) {
    try {
        const auto speech = json::decode<SpeechResult>(text, "Die Datei");
        const DiarizationResult diarization{
            2, {}, {}, true, {{"1", {}, 0, 9}, {"mic:2", AudioSource::microphone, 1, 5}}};
        TranscriptDocument document;
        document.segments = TranscriptDocument::merge(speech.segments, diarization, {});
        SummaryArtifact::fingerprint(document);
    } catch (const MeetingError&) {
    }
    try {
        json::decode<SummaryInstructions>(text, "Die Datei").validated();
        const auto title = json::decode<MeetingTitleArtifact>(text, "Die Datei");
        MeetingTitleArtifact::make(title.transcriptFingerprint, title.title);
    } catch (const MeetingError&) {
    }
}

}  // namespace
}  // namespace meetingcore

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace meetingcore;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    readAndWriteAll<AudioChunk, MeetingSession, TranscriptionWindow, SpeechResult, DiarizationResult,
                    TranscriptEdits, EvidenceSummary, SummaryArtifact, MeetingTitleArtifact,
                    SummaryInstructions>(text);
    use(text);
    return 0;
}
