#pragma once

#include <exception>
#include <string>
#include <utility>

namespace meetingcore {

/// The one error type of the core. Every message is a German sentence for the user and is shown as it stands,
/// without a prefix. SQLite's own messages and the system's names of errors are passed on as they are, in
/// English.
///
/// Thrown for rule violations and failures. Expected outcomes (no job, no file) are return values instead.
class MeetingError : public std::exception {
public:
    enum class Kind {
        invalidData,    ///< the input or stored data breaks a rule
        storage,        ///< a file-system operation failed
        database,       ///< the SQLite store failed or refused
        notConfigured,  ///< a required setting or resource is missing
    };

    /// What a program may act on or has more to say about. Messages are for people, and never to be compared.
    enum class Cause {
        none,
        databaseLocked,       ///< by another connection
        databaseDamaged,      ///< or no database
        databaseNotWritable,  ///< or not to be opened
        databaseIO,           ///< the disk is full or fails
        databaseOther,        ///< the message is SQLite's own, as with the four above
        leaseLost,            ///< the job's lease has expired, or is another's
        jobBusy,              ///< a job of the meeting is under a lease
        lockFileUnavailable,
        lockTaken,  ///< by another program
        dataFolderUnreachable,
        libraryUnreadable,      ///< "library.json" is broken
        diarizationUnreadable,  ///< "diarization.json" is broken, or none of this meeting
        editsUnreadable,        ///< "transcript-edits.json" is broken
        summaryUnreadable,      ///< "summary.json" is broken
        transcriptIncomplete,   ///< or there is none
        speakersPending,
        meetingUnknown,
        alreadyThere,  ///< what was to be imported is there, and not to be replaced
    };

    MeetingError(Kind kind, std::string message, Cause cause = Cause::none)
        : kind_(kind), cause_(cause), message_(std::move(message)) {}

    static MeetingError invalidData(std::string message, Cause cause = Cause::none) {
        return {Kind::invalidData, std::move(message), cause};
    }
    static MeetingError storage(std::string message, Cause cause = Cause::none) {
        return {Kind::storage, std::move(message), cause};
    }
    static MeetingError database(std::string message, Cause cause = Cause::none) {
        return {Kind::database, std::move(message), cause};
    }
    static MeetingError notConfigured(std::string message) { return {Kind::notConfigured, std::move(message)}; }

    Kind kind() const noexcept { return kind_; }
    Cause cause() const noexcept { return cause_; }

    /// The user-facing description: the carried message, for every kind.
    const std::string& message() const noexcept { return message_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    Kind kind_;
    Cause cause_;
    std::string message_;
};

}  // namespace meetingcore
