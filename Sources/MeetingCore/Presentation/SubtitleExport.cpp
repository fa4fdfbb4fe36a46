#include "MeetingCore/Presentation/SubtitleExport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "MeetingCore/Presentation/Markup.h"
#include "MeetingCore/Presentation/MeetingExport.h"

namespace meetingcore::SubtitleExport {

namespace {

std::int64_t milliseconds(double seconds) {
    constexpr double limit = 1e15;  // seconds that 64 bits hold as milliseconds
    return std::llround(std::min(shownSeconds(seconds), limit) * 1000);
}

void appendTime(std::string& out, std::int64_t time, char decimalMark) {
    char buffer[64];
    const auto seconds = time / 1000;
    const int length =
        std::snprintf(buffer, sizeof(buffer), "%02lld:%02d:%02d%c%03d", static_cast<long long>(seconds / 3600),
                      static_cast<int>(seconds % 3600 / 60), static_cast<int>(seconds % 60), decimalMark,
                      static_cast<int>(time % 1000));
    out.append(buffer, static_cast<std::size_t>(length));
}

void appendTiming(std::string& out, const TranscriptSegment& segment, char decimalMark) {
    const auto start = milliseconds(segment.startSeconds);
    appendTime(out, start, decimalMark);
    out += " --> ";
    appendTime(out, std::max(milliseconds(segment.endSeconds), start + 1), decimalMark);
    out += '\n';
}

template <class AppendCue>
void forEachCue(const TranscriptDocument& document, const AppendCue& appendCue) {
    for (const auto& segment : document.segments) {
        const auto text = MeetingExport::singleLine(segment.text);
        if (text.empty()) continue;
        appendCue(segment, MeetingExport::singleLine(MeetingExport::speakerName(document, segment)), text);
    }
}

}  // namespace

std::string webVTT(const TranscriptDocument& document) {
    std::string out = "WEBVTT\n";
    forEachCue(document,
               [&](const TranscriptSegment& segment, const std::string& name, const std::string& text) {
                   out += '\n';
                   out += segment.id.string();
                   out += '\n';
                   appendTiming(out, segment, '.');
                   if (!name.empty()) {
                       out += "<v ";
                       appendEscaped(out, name, webVTTSpecial);
                       out += '>';
                   }
                   appendEscaped(out, text, webVTTSpecial);
                   out += '\n';
               });
    return out;
}

std::string subRip(const TranscriptDocument& document) {
    std::string out;
    std::size_t number = 0;
    forEachCue(document,
               [&](const TranscriptSegment& segment, const std::string& name, const std::string& text) {
                   if (number > 0) out += '\n';
                   out += std::to_string(++number);
                   out += '\n';
                   appendTiming(out, segment, ',');
                   if (!name.empty()) out += name + ": ";
                   out += text;
                   out += '\n';
               });
    return out;
}

}  // namespace meetingcore::SubtitleExport
