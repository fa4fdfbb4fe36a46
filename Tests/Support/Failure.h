#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore::testing {

/// The message of the MeetingError that the call ends in, whose kind must be the given one; "no failure" where
/// it returns.
inline std::string failureOf(const std::function<void()>& call,
                             MeetingError::Kind kind = MeetingError::Kind::invalidData) {
    try {
        call();
        return "no failure";
    } catch (const MeetingError& error) {
        EXPECT_EQ(error.kind(), kind) << error.message();
        return error.message();
    }
}

}  // namespace meetingcore::testing
