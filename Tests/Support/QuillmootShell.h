#pragma once

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "Support/Process.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore::testing {

/// A person at a shell, with the sample's files in the current folder and everything of the user's elsewhere.
class QuillmootShell : public ::testing::Test {
protected:
    inline static const std::filesystem::path sampleFolder = MEETING_SOURCE_FOLDER "/Samples/kundenportal";

    QuillmootShell() {
        std::filesystem::copy(sampleFolder / "files", here());
        std::filesystem::create_directory(home.path() / "bin");
        std::filesystem::create_symlink(MEETING_quillmoot_PATH, home.path() / "bin/quillmoot");
    }
    std::filesystem::path here() const { return home.path() / "hier"; }
    std::filesystem::path root() const { return home.path() / "data/Quillstead"; }

    /// Runs a shell's command line.
    ProcessResult sh(const std::string& command) const {
        return runProcess("/bin/sh", {"-c", "cd '" + here().string() + "' && " + command}, environment);
    }
    /// What a command that succeeds writes.
    std::string out(const std::string& command) const {
        const auto result = sh(command);
        EXPECT_EQ(result.status, 0) << command << '\n' << result.err;
        return result.out;
    }
    /// What a command that ends with this status says.
    std::string err(const std::string& command, int status = 1) const {
        const auto result = sh(command);
        EXPECT_EQ(result.status, status) << command << '\n' << result.out;
        return result.err;
    }
    void importSample() const {
        out("quillmoot import --title Kundenportal --microphone microphone.ogg --meeting meeting.mp3 "
            "--start '2026-09-14T08:00:00Z'");
    }
    void importTexts() const {
        out("quillmoot transcript import Kundenportal --source microphone microphone.vtt && "
            "quillmoot transcript import Kundenportal --source meeting meeting.vtt && "
            "quillmoot speakers import Kundenportal speakers.rttm");
    }

    const TemporaryFolder home;
    ChildProcess::Environment environment{{"HOME", home.path()},
                                          {"XDG_DATA_HOME", home.path() / "data"},
                                          {"XDG_CONFIG_HOME", home.path() / "config"},
                                          {"PATH", (home.path() / "bin").string() + ":/usr/bin:/bin"},
                                          {"MEETING_MODELS", "/fehlt"},
                                          {"TERM", "xterm"},
                                          {"TZ", "Europe/Berlin"}};
};

}  // namespace meetingcore::testing
