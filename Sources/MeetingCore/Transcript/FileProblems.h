#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace meetingcore {

/// Collects what is wrong in a file that a person hands in, so that all of it is told at once:
/// "Besprechung.vtt, Zeile 12: Zeitangabe ist ungültig.", one sentence per line.
class FileProblems {
public:
    /// `placeName` is what the file's places are called, such as "Zeile", and must outlive the object.
    FileProblems(std::string file, std::string_view placeName)
        : file_(std::move(file)), placeName_(placeName) {}

    /// `place` counts from 1.
    void add(std::size_t place, std::string_view sentence);

    bool empty() const { return count_ == 0; }

    /// Throws MeetingError (invalidData) with the first twenty problems and the number of the rest.
    void throwIfAny() const;

private:
    std::string file_;
    std::string_view placeName_;
    std::string text_;
    std::size_t count_ = 0;
};

}  // namespace meetingcore
