#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore::testing {

inline const std::string noFailure = "no failure";

/// The message of the MeetingError that the call ends in, whose kind must be the given one; `noFailure` where
/// it returns.
inline std::string failureOf(const std::function<void()>& call,
                             MeetingError::Kind kind = MeetingError::Kind::invalidData) {
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

}  // namespace meetingcore::testing
