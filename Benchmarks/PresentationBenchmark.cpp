// What people wait for: a keystroke in the search field, and the exports of a long meeting. The transcript is
// one of 24 hours: 20,000 segments, 1.5 MB of German text. Each ratio stands against its baseline in the same
// run.

#include <chrono>
#include <memory>
#include <random>

#include <benchmark/benchmark.h>
#include <unicode/usearch.h>
#include <unicode/ustring.h>

#include "MeetingCore/Platform/LiveTextSearch.h"
#include "MeetingCore/Presentation/HTMLExport.h"
#include "MeetingCore/Presentation/JSONExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"

namespace meetingcore {
namespace {

constexpr std::size_t longMeeting = 20'000;

const char* const words[] = {
    "wir",     "haben",   "heute",    "über",     "das",         "Budget",  "gesprochen", "und",    "müssen",
    "die",     "Straße",  "nächste",  "Woche",    "sperren",     "weil",    "der",        "Kunde",  "größere",
    "Mengen",  "braucht", "Anna",     "schickt",  "Freitag",     "einen",   "Vorschlag",  "an",     "alle",
    "ich",     "glaube",  "nicht",    "dass",     "Lieferung",   "möglich", "ist",        "Q3",     "Köln",
    "Projekt", "früher",  "Übergabe", "Maßnahme", "entscheiden", "prüfen",  "zusammen",   "Zahlen", "vorher",
};

/// Segments of about 75 bytes, of nine speakers in turns.
TranscriptDocument meetingOf(std::size_t segments) {
    std::mt19937 random(1);
    TranscriptDocument document;
    document.diarization = DiarizationResult{1, UUID::random(), UUID::random(), true, {}};
    double time = 0;
    while (document.segments.size() < segments) {
        std::string text;
        while (text.size() < 66)
            text += std::string(text.empty() ? "" : " ") + words[random() % std::size(words)];
        const auto speaker = std::to_string(document.segments.size() / 3 % 9 + 1);
        document.segments.push_back(
            {UUID::random(), time, time + 4, AudioSource::meeting, speaker, text + "."});
        time += 4.32;
    }
    document.rawSegments = document.segments;
    return document;
}

const TranscriptDocument& document() {
    static const auto meeting = meetingOf(longMeeting);
    return meeting;
}

std::int64_t bytesOf(const TranscriptDocument& meeting) {
    std::size_t bytes = 0;
    for (const auto& segment : meeting.segments) bytes += segment.text.size();
    return static_cast<std::int64_t>(bytes);
}

template <class Work>
double secondsOf(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

const char* const queries[] = {"s", "straße", "prüfen Freitag", "gibtesnicht"};

const std::vector<text::FoldedText>& foldedSegments() {
    static const auto folded = [] {
        std::vector<text::FoldedText> texts;
        for (const auto& segment : document().segments) texts.emplace_back(segment.text);
        return texts;
    }();
    return folded;
}

std::u16string utf16(std::string_view text) {
    std::u16string out(text.size(), u'\0');
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(out.data(), static_cast<std::int32_t>(out.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &status);
    out.resize(static_cast<std::size_t>(length));
    return out;
}

/// ICU's own search at primary strength, with its texts already in UTF-16 and one search object for all.
std::size_t matchesByICU(const std::vector<std::u16string>& texts, std::string_view query) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UCollator, decltype(&ucol_close)> collator(ucol_open("de_DE", &status), ucol_close);
    ucol_setStrength(collator.get(), UCOL_PRIMARY);
    std::size_t matches = 0;
    const auto needle = utf16(query);
    const std::unique_ptr<UStringSearch, decltype(&usearch_close)> search(
        usearch_openFromCollator(needle.data(), static_cast<std::int32_t>(needle.size()), texts[0].data(),
                                 static_cast<std::int32_t>(texts[0].size()), collator.get(), nullptr, &status),
        usearch_close);
    for (const auto& text : texts) {
        usearch_setText(search.get(), text.data(), static_cast<std::int32_t>(text.size()), &status);
        if (usearch_first(search.get(), &status) != USEARCH_DONE) ++matches;
    }
    return matches;
}

void keystroke(benchmark::State& state) {
    const LiveTextSearch search(queries[state.range(0)]);
    const auto& texts = foldedSegments();
    std::size_t matches = 0;
    for ([[maybe_unused]] auto iteration : state) {
        matches = 0;
        for (const auto& text : texts) matches += search.matches(text) ? 1 : 0;
        benchmark::DoNotOptimize(matches);
    }
    state.SetLabel(queries[state.range(0)]);
    state.counters["matches"] = static_cast<double>(matches);
}
BENCHMARK(keystroke)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void coldSearch(benchmark::State& state) {
    for ([[maybe_unused]] auto iteration : state) {
        const LiveTextSearch search("straße");
        std::size_t matches = 0;
        for (const auto& segment : document().segments) matches += search.matches(segment.text) ? 1 : 0;
        benchmark::DoNotOptimize(matches);
    }
    state.SetBytesProcessed(state.iterations() * bytesOf(document()));
}
BENCHMARK(coldSearch)->Unit(benchmark::kMillisecond);

void againstICUSearch(benchmark::State& state) {
    std::vector<std::u16string> texts;
    for (const auto& segment : document().segments) texts.push_back(utf16(segment.text));
    const auto& folded = foldedSegments();
    double ours = 0;
    double theirs = 0;
    double cold = 0;
    for ([[maybe_unused]] auto iteration : state) {
        const LiveTextSearch search("straße");
        std::size_t found = 0;
        ours += secondsOf([&] {
            for (const auto& text : folded) found += search.matches(text) ? 1 : 0;
        });
        cold += secondsOf([&] {
            for (const auto& segment : document().segments) found -= search.matches(segment.text) ? 1 : 0;
        });
        std::size_t expected = 0;
        theirs += secondsOf([&] { expected = matchesByICU(texts, "straße"); });
        for (const auto& text : folded) found += search.matches(text) ? 1 : 0;
        if (found != expected) state.SkipWithError("the two searches disagree");
    }
    state.counters["times_faster"] = theirs / ours;
    state.counters["times_faster_cold"] = theirs / cold;
}
BENCHMARK(againstICUSearch)->Unit(benchmark::kMillisecond);

void blocks(benchmark::State& state) {
    const auto meeting = meetingOf(static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(TranscriptLayout::blocks(meeting, true));
    state.SetBytesProcessed(state.iterations() * bytesOf(meeting));
}
BENCHMARK(blocks)->Arg(longMeeting / 4)->Arg(longMeeting)->Unit(benchmark::kMillisecond);

/// One form of export of a meeting of so many segments with a current summary. Linear in the text if its bytes
/// per second are the same for a quarter of the meeting. A plain copy of the text is the baseline.
template <class Form>
void exportOf(benchmark::State& state, const Form& form) {
    const auto meeting = meetingOf(static_cast<std::size_t>(state.range(0)));
    MeetingEntry entry;
    entry.title = "Langes Meeting";
    SummaryArtifact artifact;
    artifact.transcriptFingerprint = SummaryArtifact::fingerprint(meeting);
    for (std::size_t i = 0; i < 100; ++i) {
        const auto& segment = meeting.segments[i * (meeting.segments.size() / 100)];
        artifact.summary.overview.push_back({"Punkt", {segment.id}, segment.text, {}, {}});
    }
    const ExportedMeeting exported{entry, &meeting, &artifact,
                                   RecordingClock{Date::since1970(1'741'944'413), "Europe/Berlin"}};
    double ours = 0;
    double copying = 0;
    for ([[maybe_unused]] auto iteration : state) {
        ours += secondsOf([&] { benchmark::DoNotOptimize(form(exported)); });
        copying += secondsOf([&] {
            std::string all;
            for (const auto& segment : meeting.segments) all += segment.text;
            benchmark::DoNotOptimize(all);
        });
    }
    state.SetBytesProcessed(state.iterations() * bytesOf(meeting));
    state.counters["times_of_copying"] = ours / copying;
}

#define EXPORT_BENCHMARK(name, form)                                          \
    void name(benchmark::State& state) {                                      \
        exportOf(state, [](const ExportedMeeting& meeting) { return form; }); \
    }                                                                         \
    BENCHMARK(name)->Arg(longMeeting / 4)->Arg(longMeeting)->Unit(benchmark::kMillisecond)

EXPORT_BENCHMARK(exportPlain, MeetingExport::render(meeting, true, MeetingExport::Content::all));
EXPORT_BENCHMARK(exportHTML, HTMLExport::render(meeting));
EXPORT_BENCHMARK(exportJSON, JSONExport::render(meeting));
EXPORT_BENCHMARK(exportWebVTT, SubtitleExport::webVTT(*meeting.transcript));
EXPORT_BENCHMARK(exportSubRip, SubtitleExport::subRip(*meeting.transcript));

}  // namespace
}  // namespace meetingcore
