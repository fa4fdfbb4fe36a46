#include "MeetingCore/Transcript/FileProblems.h"

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

namespace {

constexpr std::size_t shownProblems = 20;

}  // namespace

void FileProblems::add(std::size_t place, std::string_view sentence) {
    if (++count_ > shownProblems) return;
    if (!text_.empty()) text_ += '\n';
    text_ += file_;
    text_.append(", ").append(placeName_).append(" ").append(std::to_string(place)).append(": ");
    text_ += sentence;
}

void FileProblems::throwIfAny() const {
    if (count_ == 0) return;
    if (count_ <= shownProblems) throw MeetingError::invalidData(text_);
    const auto rest = count_ - shownProblems;
    throw MeetingError::invalidData(text_ + "\n" + std::to_string(rest) +
                                    (rest == 1 ? " weiterer Fehler." : " weitere Fehler."));
}

}  // namespace meetingcore
