#pragma once

#include <string>
#include <vector>

#include "MeetingCore/Presentation/MeetingExport.h"

namespace meetingcore::testing {

/// An identifier that tells its number.
inline UUID numberedID(unsigned number) {
    const auto digits = std::to_string(number);
    return *UUID::parse("00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits);
}

inline TranscriptSegment spoken(unsigned number, double start, double end, AudioSource source,
                                std::optional<std::string> speaker, std::string text) {
    return {numberedID(number), start, end, source, std::move(speaker), std::move(text)};
}

/// A document of these merged segments, recognised as they are.
inline TranscriptDocument documentOf(std::vector<TranscriptSegment> segments) {
    TranscriptDocument document;
    document.rawSegments = segments;
    document.segments = std::move(segments);
    return document;
}

/// A meeting that has everything; its parts may be changed before `exported` is asked for.
struct ExportSample {
    MeetingEntry entry;
    TranscriptDocument document;
    SummaryArtifact artifact;
    RecordingClock clock{Date::since1970(1'741'944'413), "Europe/Berlin"};  // 14.03.2025, 10:26:53 there

    ExportSample() {
        entry.id = numberedID(900);
        entry.title = "Budgetrunde Q3";
        entry.createdAt = Date::since1970(1'741'942'000);
        entry.notes = "Raum 4.12\nProtokoll: Anna";
        entry.duration = 62.5;
        entry.metadata = MeetingMetadata{{"Anna Schmidt", "Jörg Müller"},
                                         {{numberedID(901), "Kunde", "Weiß & Söhne"},
                                          {numberedID(902), "Projektnummer", ""},
                                          {numberedID(903), "Ort", "Köln"}},
                                         {}};
        addTranscript();
        addSummary();
    }

    ExportedMeeting exported() const { return {entry, &document, &artifact, clock}; }

    /// Makes the summary one of the transcript as it is now.
    void renewFingerprint() { artifact.transcriptFingerprint = SummaryArtifact::fingerprint(document); }

private:
    void addTranscript() {
        using enum AudioSource;
        document = documentOf({
            spoken(1, 0, 4.5, microphone, {}, "Guten Morgen, wir klären heute das Budget für Q3/Q4."),
            spoken(2, 4.62, 9.125, meeting, "1", "Einverstanden. Jörg Müller schickt die Zahlen bis Freitag."),
            spoken(3, 9.5, 12, meeting, "1", "Die Straße vor dem Werk ist gesperrt."),
            spoken(4, 15, 17.25, meeting, "2", "Wer übernimmt die Anlieferung?"),
            spoken(5, 17.5, 19, meeting, {}, "(unverständlich)"),
            spoken(6, 58, 62.5, meeting, "1", "Das klären wir nächste Woche."),
        });
        document.rawSegments[2].text = "Die strasse vor dem Werk ist gesperrt.";
        document.diarization = DiarizationResult{1, entry.id, numberedID(910), true, {}};
        document.edits.speakerGeneration = numberedID(910);
        document.edits.speakerNames["1"] = "Jörg Müller";
        document.edits.correctedText[numberedID(3).string()] = document.segments[2].text;
    }

    void addSummary() {
        artifact.createdAt = Date::since1970(1'741'950'000);
        artifact.summary = {
            {{"Das Budget für Q3 wurde besprochen.", {numberedID(1)}, "wir klären heute das Budget", {}, {}}},
            {},
            {{"Zahlen schicken", {numberedID(2)}, "schickt die Zahlen bis Freitag", "Jörg Müller", "Freitag"},
             {"Umleitung prüfen", {numberedID(3)}, "Die Straße vor dem Werk ist gesperrt", {}, ""}},
            {{"Wer liefert an?",
              {numberedID(4), numberedID(6)},
              "Wer übernimmt die Anlieferung? Das klären wir",
              {},
              {}}}};
        renewFingerprint();
    }
};

}  // namespace meetingcore::testing
