#include "MeetingCore/Library/MeetingLibrary.h"
#include "Support/Process.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

const std::string program = MEETING_quillmoot_PATH;

bool installed(const std::string& command) {
    return runProcess("/bin/sh", {"-c", "command -v " + command}).status == 0;
}

/// A folder with the three scripts, some files, and a data folder with two meetings.
class Completion : public ::testing::Test {
protected:
    Completion() {
        for (const std::string shell : {"bash", "zsh", "fish"}) {
            const auto result = runProcess(program, {"completion", shell});
            EXPECT_EQ(result.status, 0) << result.err;
            writeFile(folder / shell, result.out);
        }
        writeFile(folder / "my talk.wav", "");
        fs::create_directory(root);
        MeetingLibrary library(root);
        library.update([](LibrarySnapshot& snapshot) {
            for (const auto& [id, title] : {std::pair("0a1b2c3d-0000-4000-8000-000000000001", "Planung: März"),
                                            std::pair("0a9b2c3d-0000-4000-8000-000000000002", "Rückblick")}) {
                MeetingEntry meeting;
                meeting.id = *UUID::parse(id);
                meeting.title = title;
                meeting.state = "completed";
                snapshot.meetings.push_back(meeting);
            }
        });
    }

    /// What a shell offers for the last word, separated by bars.
    std::string bash(const std::string& words) const {
        return offered(
            "/bin/bash", {"--norc", "-c"},
            "source ./bash; COMP_WORDS=('" + program + "' " + words +
                "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quillmoot; IFS='|'; echo -n \"${COMPREPLY[*]}\"");
    }
    std::string fish(const std::string& line) const {
        return offered("/usr/bin/env", {"fish", "--no-config", "-c"},
                       "source ./fish; set -x PATH '" + fs::path(program).parent_path().string() +
                           "' $PATH; echo -n (string join '|' (complete -C '" + line + "'))");
    }
    std::string offered(const std::string& shell, std::vector<std::string> arguments,
                        const std::string& script) const {
        arguments.push_back("cd '" + folder.string() + "'; " + script);
        const auto result = runProcess(shell, arguments, {{"HOME", folder.string()}});
        EXPECT_EQ(result.err, "") << script;
        return result.out;
    }

    TemporaryFolder temporary;
    fs::path folder = temporary.path();
    fs::path root = folder / "data";
};

TEST_F(Completion, BashOffersWhatTheCommandLineTakes) {
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"exp", "export"}, {"--root data exp", "export"}, {"--root = data exp", "export"},
        {"project a", "add|assign"},
        {"export --for", "--format"}, {"export --format ''", "text|markdown|html|vtt|srt|json"},
        {"export --format = h", "html"}, {"jobs x re", "retry|restart"}, {"export -o my", "my talk.wav"},
        {"--root ''", "data"}, {"import --title ''", ""}, {"show -- --j", ""},
        {"show --root data 0A1", "0A1B2C3D"},
        {"show --root data 0A", "0A1B2C3D|0A9B2C3D"}, {"show --root missing ''", ""},
        {"show --root data ''", "0A1B2C3D  Planung: März|0A9B2C3D  Rückblick"},
        {"fields set --root data Rück", "Rückblick"}};
    // clang-format on
    EXPECT_THAT(bash("''"),
                AllOf(HasSubstr("|list|"), HasSubstr("|export|"), Not(HasSubstr("complete-meetings"))));
    for (const auto& [words, offered] : cases) EXPECT_EQ(bash(words), offered) << words;
}

TEST_F(Completion, FishOffersWhatTheCommandLineTakes) {
    if (!installed("fish")) GTEST_SKIP() << "fish is not installed";
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"quillmoot exp", "export\tGibt ein Meeting als Datei aus"}, {"quillmoot import --title ", ""},
        {"quillmoot --root data project re",
         "remove\tLöst ein Projekt auf; seine Meetings bleiben|rename\tBenennt ein Projekt um"},
        {"quillmoot export --format h", "html\tDie Form"}, {"quillmoot export -o my", "my talk.wav"},
        {"quillmoot show --root data 0A1", "0A1B2C3D\tPlanung: März"},
        {"quillmoot show --root=data Rück", "Rückblick\t0A9B2C3D"}};
    // clang-format on
    for (const auto& [line, offered] : cases) EXPECT_EQ(fish(line), offered) << line;
}

TEST_F(Completion, ZshReadsItsScript) {
    if (!installed("zsh")) GTEST_SKIP() << "zsh is not installed";
    const auto result = runProcess("/usr/bin/env", {"zsh", "-n", (folder / "zsh").string()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST(Manual, SetsWithoutWarningAndNamesEveryCommand) {
    if (!installed("groff")) GTEST_SKIP() << "groff is not installed";
    const auto result =
        runProcess("/bin/sh", {"-c", "'" + program + "' manual | groff -man -Tutf8 -Kutf8 -ww -P-cbou"});
    EXPECT_EQ(result.err, "");
    for (const auto* const part : {"quillmoot - ", "ÜBERSICHT", "quillmoot project add [OPTIONEN] NAME",
                                   "--format text|markdown", "„nie“"}) {
        EXPECT_THAT(result.out, HasSubstr(part));
    }
    EXPECT_THAT(result.out, Not(HasSubstr("complete-meetings")));
}

}  // namespace
}  // namespace meetingcore::testing
