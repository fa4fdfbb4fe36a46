#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Platform/Date.h"
#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Summary/ModelCatalog.h"

namespace meetingcore {

/// Looks over a whole data folder: what is whole, what waits, what a crash left behind.
namespace LibraryCheck {

enum class Severity {
    fine,      ///< as it should be
    note,      ///< worth knowing, nothing is wrong
    warning,   ///< to be looked at; nothing is lost
    error,     ///< something is broken
    repaired,  ///< was wrong and has been put right
};

/// One finding, in German.
struct Finding {
    Severity severity = Severity::fine;
    std::string topic;                    ///< "Datenordner", "Bibliothek", "Datenbank", …
    std::string text;                     ///< a sentence
    std::optional<std::string> repair{};  ///< what a repair does about it: a sentence without its subject
};

struct Options {
    std::optional<std::filesystem::path> models;  ///< the model folder to check; not checked where absent

    /// Puts right what can be: takes back expired leases, brings interrupted audio removals to an end with this
    /// trash, brings the library in line with the recordings, makes a lost database, plans missing jobs, and
    /// removes what interrupted writes left. The caller then holds the application lock and the inference lock,
    /// so that nobody is writing.
    std::optional<AudioRemoval::Trash> repair;
};

/// Checks everything, going on behind what is broken. Never throws for the state of the folder.
std::vector<Finding> run(const std::filesystem::path& root, const ModelCatalog& catalog, const Options& options,
                         Date now);

}  // namespace LibraryCheck

template <>
inline constexpr auto json::names<LibraryCheck::Severity> =
    std::to_array<std::string_view>({"fine", "note", "warning", "error", "repaired"});

template <>
inline constexpr auto json::fields<LibraryCheck::Finding> = json::record(
    json::field("severity", &LibraryCheck::Finding::severity),
    json::field("topic", &LibraryCheck::Finding::topic), json::field("text", &LibraryCheck::Finding::text),
    json::field("repair", &LibraryCheck::Finding::repair));

}  // namespace meetingcore
