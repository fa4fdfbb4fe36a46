#include "MeetingCore/Library/MeetingLibrary.h"
#include "Support/Process.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

const std::string program = MEETING_quillmoot_PATH;

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

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

    /// What bash offers for the last of the words.
    std::vector<std::string> bash(const std::string& words) const {
        const auto script = "cd '" + folder.string() + "'; source ./bash; COMP_WORDS=('" + program + "' " +
                            words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quillmoot; " +
                            R"(printf '%s\n' "${COMPREPLY[@]}")";
        const auto result = runProcess("/bin/bash", {"--norc", "-c", script});
        EXPECT_EQ(result.err, "") << words;
        auto lines = linesOf(result.out);
        std::erase(lines, "");
        return lines;
    }

    std::vector<std::string> fish(const std::string& line) const {
        const auto script = "cd '" + folder.string() + "'; source ./fish; set -x PATH '" +
                            fs::path(program).parent_path().string() + "' $PATH; complete -C '" + line + "'";
        const auto result =
            runProcess("/usr/bin/env", {"fish", "--no-config", "-c", script}, {{"HOME", folder.string()}});
        EXPECT_EQ(result.err, "") << line;
        return linesOf(result.out);
    }

    TemporaryFolder temporary;
    fs::path folder = temporary.path();
    fs::path root = folder / "data";
};

TEST_F(Completion, BashOffersWhatTheCommandLineTakes) {
    const struct {
        std::string words;
        ::testing::Matcher<std::vector<std::string>> offered;
    } cases[] = {
        {"''", AllOf(Contains("list"), Contains("export"), Not(Contains("complete-meetings")))},
        {"exp", ElementsAre("export")},
        {"--root data exp", ElementsAre("export")},
        {"--root = data exp", ElementsAre("export")},
        {"project a", ElementsAre("add", "assign")},
        {"export --for", ElementsAre("--format")},
        {"export --format ''", ElementsAre("text", "markdown", "html", "vtt", "srt", "json")},
        {"export --format = h", ElementsAre("html")},
        {"jobs x re", ElementsAre("retry", "restart")},
        {"export -o my", ElementsAre("my talk.wav")},
        {"--root ''", ElementsAre("data")},
        {"import --title ''", IsEmpty()},
        {"show -- --j", IsEmpty()},
        {"show --root data 0A1", ElementsAre("0A1B2C3D")},
        {"show --root data 0A", ElementsAre("0A1B2C3D", "0A9B2C3D")},
        {"show --root data ''", ElementsAre("0A1B2C3D  Planung: März", "0A9B2C3D  Rückblick")},
        {"fields set --root data Rück", ElementsAre("Rückblick")},
        {"show --root missing ''", IsEmpty()},
    };
    for (const auto& [words, offered] : cases) EXPECT_THAT(bash(words), offered) << words;
}

TEST_F(Completion, FishOffersWhatTheCommandLineTakes) {
    if (!installed("fish")) GTEST_SKIP() << "fish is not installed";
    const struct {
        std::string line;
        ::testing::Matcher<std::vector<std::string>> offered;
    } cases[] = {
        {"quillmoot exp", ElementsAre("export\tGibt ein Meeting als Datei aus")},
        {"quillmoot --root data project re", ElementsAre(StartsWith("remove\t"), StartsWith("rename\t"))},
        {"quillmoot export --format h", ElementsAre(StartsWith("html"))},
        {"quillmoot export -o my", ElementsAre(StartsWith("my talk.wav"))},
        {"quillmoot import --title ", IsEmpty()},
        {"quillmoot show --root data 0A1", ElementsAre("0A1B2C3D\tPlanung: März")},
        {"quillmoot show --root=data Rück", ElementsAre("Rückblick\t0A9B2C3D")},
    };
    for (const auto& [line, offered] : cases) EXPECT_THAT(fish(line), offered) << line;
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
