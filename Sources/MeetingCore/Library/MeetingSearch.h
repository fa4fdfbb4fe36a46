#pragma once

#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Platform/LiveTextSearch.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"

namespace meetingcore {

/// Searches the transcripts, titles and notes of a whole library for texts that contain every word of a query.
namespace MeetingSearch {

enum class Place { title, notes, transcript };

/// One text that matches. Refers to what is alive during the call that reports it.
struct Hit {
    const MeetingEntry& meeting;
    Place place = Place::transcript;
    std::string_view text;
    std::vector<text::CharacterRange> ranges;  ///< to highlight: ascending and apart
    std::string_view speaker{};                ///< label, of transcript hits
    double startSeconds = 0;                   ///< of transcript hits
    UUID segment{};                            ///< of transcript hits
    std::size_t number = 0;                    ///< the segment's number in its transcript, from 1
};

/// A meeting whose transcript could not be read.
struct Problem {
    const MeetingEntry& meeting;
    MeetingError error;
};

/// Reports every hit, meeting by meeting in the library's order, within one in reading order. Returns what kept
/// transcripts from being read; the other meetings are searched all the same. Throws MeetingError (invalidData)
/// for a query without words. `root` is the data folder.
std::vector<Problem> run(std::string_view query, const LibrarySnapshot& library,
                         const std::filesystem::path& root, SQLiteJobStore& database,
                         const std::function<void(const Hit&)>& report);

}  // namespace MeetingSearch

template <>
inline constexpr auto json::names<MeetingSearch::Place> = std::to_array<std::string_view>({"title", "notes",
                                                                                           "transcript"});

}  // namespace meetingcore
