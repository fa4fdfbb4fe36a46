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

    MeetingError(Kind kind, std::string message) : kind_(kind), message_(std::move(message)) {}

    static MeetingError invalidData(std::string message) { return {Kind::invalidData, std::move(message)}; }
    static MeetingError storage(std::string message) { return {Kind::storage, std::move(message)}; }
    static MeetingError database(std::string message) { return {Kind::database, std::move(message)}; }
    static MeetingError notConfigured(std::string message) { return {Kind::notConfigured, std::move(message)}; }

    Kind kind() const noexcept { return kind_; }

    /// The user-facing description: the carried message, for every kind.
    const std::string& message() const noexcept { return message_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    Kind kind_;
    std::string message_;
};

}  // namespace meetingcore
