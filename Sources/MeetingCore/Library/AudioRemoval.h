#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"

namespace meetingcore {

/// Removes the audio of a meeting on purpose, so that a meeting is never left half-deleted: the audio is
/// gathered in a hidden staging folder beside it, and this folder goes to the trash as a whole.
///
/// At any instant the meeting's folder shows how far a removal came:
///
///     no marker, no staging folder        not begun, or undone
///     an empty staging folder             begun
///     marker, staging folder, some audio  being gathered, or being undone
///     marker, staging folder, no audio    gathered; or back from the trash, where the job store has no work
///                                         left for the meeting
///     marker alone                        in the trash
///
/// `root` is the data folder, whose application lock the caller holds. Where the caller gives a library, it
/// is told what became of the meeting's audio; otherwise the caller does that, by its `enterAudioRemoval` and
/// `enterAudioReturn`. Errors are MeetingErrors.
namespace AudioRemoval {

/// Moves a folder to the trash, or throws and leaves it where it is. A disk that forgets the move afterwards is
/// like a trash that gives the audio back.
using Trash = std::function<void(const std::filesystem::path& folder)>;

/// Moves the meeting's chunks, partial chunks and complete audio files to the trash, leaves the marker
/// "audio-removed.json" and fails the meeting's open jobs. Throws where there is no audio (storage); after any
/// error up to the trash the meeting is as before. When it returns, all is on stable storage.
///
/// Where only the jobs could not be failed any more, the audio is gone all the same, and `recover` makes up for
/// it.
void moveToTrash(const UUID& id, const std::filesystem::path& root, SQLiteJobStore& database,
                 const Trash& trash, FileManager& files = FileManager::system(), Date now = Date::now());

/// The same, and enters it in the library, which must have the meeting.
void moveToTrash(const UUID& id, const std::filesystem::path& root, SQLiteJobStore& database,
                 MeetingLibrary& library, const Trash& trash, FileManager& files = FileManager::system(),
                 Date now = Date::now());

/// The meetings with a staging folder: a removal was interrupted before the trash had the audio, or the trash
/// has given it back.
std::vector<UUID> interrupted(const std::filesystem::path& root, FileManager& files = FileManager::system());

/// What became of the removals that a crash had interrupted.
struct Recovered {
    std::vector<UUID> undone;           ///< their audio is back, as the library has to hear
    std::vector<UUID> finished;         ///< their audio is removed
    std::vector<std::string> problems;  ///< one German line per meeting that could not be brought to an end
};

/// Brings interrupted removals to an end, at start-up and before the chunk store's recovery: a removal that had
/// gathered all audio is finished, any other is undone, and so is one whose audio came back from the trash;
/// what is undone the job store knows again, chunks and jobs. Goes on where one meeting fails, which leaves
/// that meeting for the next time. Running it again changes nothing.
Recovered recover(const std::filesystem::path& root, SQLiteJobStore& database, const Trash& trash,
                  FileManager& files = FileManager::system());

/// The same, and enters the ends in the library, also of a removal that was interrupted before just that. What
/// cannot be entered is among the problems.
Recovered recover(const std::filesystem::path& root, SQLiteJobStore& database, MeetingLibrary& library,
                  const Trash& trash, FileManager& files = FileManager::system());

}  // namespace AudioRemoval
}  // namespace meetingcore
