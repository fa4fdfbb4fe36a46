#pragma once

#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "Support/FileContent.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore::testing {

// What the tests say often.
namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;
using Kind = MeetingError::Kind;

inline const std::string noFailure = "no failure";

/// The message of the MeetingError that the call ends in, whose kind must be the given one; `noFailure` where
/// it returns.
inline std::string failureOf(const std::function<void()>& call, Kind kind = Kind::invalidData) {
    try {
        call();
        return noFailure;
    } catch (const MeetingError& error) {
        EXPECT_EQ(error.kind(), kind) << error.message();
        return error.message();
    }
}

/// What the call returns, or the message of the MeetingError (invalidData) that it ends in.
inline std::string outcomeOf(const std::function<std::string()>& call) {
    std::string outcome;
    const auto failure = failureOf([&] { outcome = call(); });
    return failure == noFailure ? outcome : failure;
}

/// The message of the MeetingError that the call ends in, of whatever kind; empty where it returns.
inline std::string messageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const MeetingError& error) {
        return error.message();
    }
    return "";
}

inline std::string repeated(const std::string& piece, std::size_t count) {
    std::string text;
    while (count-- > 0) text += piece;
    return text;
}

/// The cases of a table in one text, separated by bars.
inline std::vector<std::string> split(const std::string& table) {
    std::vector<std::string> cases;
    std::istringstream stream(table);
    for (std::string text; std::getline(stream, text, '|');) cases.push_back(text);
    return cases;
}

}  // namespace meetingcore::testing
