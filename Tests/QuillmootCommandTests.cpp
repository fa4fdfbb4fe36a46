#include <set>

#include <simdjson.h>

#include "Support/QuillmootShell.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

/// The keys of a JSON object, or of the first one in a list, in their order; "-" where there is no object.
std::string keysOf(const std::string& text) {
    simdjson::dom::parser parser;
    simdjson::dom::element root = parser.parse(text);
    if (root.is_array()) root = root.at(0);
    if (!root.is_object()) return "-";
    std::string keys;
    for (const auto& [key, value] : simdjson::dom::object(root))
        keys.append(keys.empty() ? "" : " ").append(key);
    return keys;
}

/// What a call may count on.
enum class Needs { nothing, library, model };

/// A call that succeeds on the sample; MEETING stands for the meeting.
struct Call {
    std::string line;
    Needs needs = Needs::library;
    std::string keys{};  ///< of its form for programs, where it changes nothing
};

// clang-format off
const std::vector<Call> calls{
    {"list", Needs::library,
     "id title createdAt duration state pinned project chunkCount jobs audioRemoved hasSummary"},
    {"show MEETING", Needs::library,
     "meeting notes participants fields processing segments speakers summary folder"},
    {"search Wartung", Needs::library, "meeting title place speaker startSeconds segment text ranges"},
    {"transcript MEETING", Needs::library,
     "number id startSeconds endSeconds source speaker speakerID text corrected"},
    {"speakers MEETING", Needs::library, "id label source segments seconds"},
    {"project", Needs::library, "id name meetings"},
    {"jobs MEETING", Needs::library, "id kind status attempts source startSeconds endSeconds"},
    {"fields", Needs::library, "id name"},
    {"participants MEETING", Needs::library, "-"},
    {"instructions MEETING", Needs::library, "basePrompt meetingPrompt"},
    {"summary MEETING", Needs::library, "state createdAt engine overview decisions tasks openQuestions"},
    {"audio MEETING --json"},
    {"retention", Needs::nothing, "days"}, {"data-folder", Needs::nothing, "path exists isDefault"},
    {"models", Needs::nothing, "id filename bytes state path"},
    {"doctor", Needs::nothing, "severity topic text"},
    {"completion bash", Needs::nothing}, {"note MEETING"}, {"export MEETING --format text"}, {"export MEETING --format json"},
    {"import --microphone meeting.mp3"}, {"transcript import MEETING --source meeting meeting.vtt"}, {"speakers import MEETING speakers.rttm"},
    {"speakers none MEETING"}, {"transcribe MEETING --engine true"}, {"correct MEETING 1 Text"}, {"speaker MEETING 'Jana Keller' Jana"},
    {"summarize MEETING --engine extractive"}, {"title MEETING --engine extractive"}, {"summarize MEETING", Needs::model}, {"title MEETING", Needs::model},
    {"jobs MEETING retry"}, {"jobs MEETING restart --yes"}, {"rename MEETING Neu"}, {"pin MEETING"}, {"pin MEETING --off"}, {"note MEETING Text"},
    {"participants MEETING --add Jana"}, {"project add A"}, {"project rename A B"}, {"project remove A"}, {"project assign MEETING A"},
    {"fields add A"}, {"fields rename A B"}, {"fields remove A"}, {"fields set MEETING A Wert"}, {"instructions MEETING --reset"},
    {"retention 30"}, {"remove-audio MEETING"},
};
// clang-format on

std::string callFor(const Call& call, const std::string& meeting) {
    auto line = "quillmoot " + call.line;
    if (const auto at = line.find("MEETING"); at != std::string::npos) line.replace(at, 7, meeting);
    return line;
}

class Commands : public QuillmootShell {
protected:
    Commands() {
        importSample();
        importTexts();
        out("quillmoot summarize Kundenportal --engine extractive && quillmoot project add Portal && "
            "quillmoot project assign Kundenportal Portal && quillmoot fields add Kunde && "
            "quillmoot retention 30 && quillmoot participants Kundenportal --add 'Meral Aydın'");
    }
};

TEST_F(Commands, AreAllInThisTable) {
    std::set<std::string> called, listed;
    for (const auto& call : calls) called.insert(call.line.substr(0, call.line.find(' ')));
    std::istringstream help(out("quillmoot --help"));
    std::string line;
    while (std::getline(help, line) && line != "Befehle:") {
    }
    while (std::getline(help, line) && line.starts_with("  "))
        listed.insert(line.substr(2, line.find(' ', 2) - 2));
    EXPECT_EQ(called, listed);
}

TEST_F(Commands, RefuseWhatTheyDoNotKnowAndChangeNothing) {
    const auto library = contentOf(root() / "library.json");
    for (const auto& call : calls) {
        EXPECT_THAT(err(callFor(call, "Kundenportal") + " --gibtesnicht", 2),
                    StartsWith("Unbekannte Option: --gibtesnicht\nHilfe: quillmoot"));
        if (call.line.find("MEETING") == std::string::npos) continue;
        EXPECT_EQ(err(callFor(call, "Unbekannt")),
                  "Kein Meeting passt zu „Unbekannt“.\n„quillmoot list“ zeigt alle Meetings.\n")
            << call.line;
    }
    EXPECT_EQ(contentOf(root() / "library.json"), library);
}

TEST_F(Commands, SayWhereALibraryIsBrokenOrMissing) {
    const auto expectRefused = [&](const std::string& options, const std::string& message) {
        for (const auto& call : calls) {
            if (call.needs == Needs::nothing) continue;
            const auto result = sh(callFor(call, "Kundenportal") + options);
            EXPECT_EQ(result.status, 1) << call.line;
            EXPECT_EQ(result.out, "") << call.line;
            EXPECT_THAT(result.err, HasSubstr(message)) << call.line;
        }
    };
    const auto library = contentOf(root() / "library.json");
    const auto title = library.find("\"title\":\"");
    writeFile(root() / "library.json", std::string(library).insert(title + 9, " \",\"x\":\""));
    EXPECT_THAT(sh("quillmoot doctor").out, HasSubstr("„library.json“ lässt sich lesen, aber nicht ändern: "));
    writeFile(root() / "library.json", "{");
    expectRefused("", "„library.json“ ist kein gültiges JSON.");
    EXPECT_EQ(contentOf(root() / "library.json"), "{");
    EXPECT_THAT(err("quillmoot list"), HasSubstr("Sicherung"));
    EXPECT_THAT(sh("quillmoot doctor").out, AllOf(HasSubstr("FEHLER   Bibliothek: „library.json“"),
                                                  HasSubstr("Audioabschnitte sind vollständig.")));
    fs::remove(root() / "library.json");
    writeFile(root() / "quillmoot.sqlite",
              "keine Datenbank, aber länger als deren Kopf " + std::string(200, 'x'));
    EXPECT_THAT(sh("quillmoot doctor").out,
                HasSubstr("„quillmoot.sqlite“ ist beschädigt; es hilft nur eine Sicherung."));
    // What reads makes no folder where none is.
    for (const auto& call : calls) {
        if (call.keys.empty()) continue;
        const auto result = sh(callFor(call, "Kundenportal") + " --root fehlt");
        const bool works = call.line == "data-folder" || call.line == "models";
        EXPECT_EQ(result.status, works ? 0 : 1) << call.line << result.err;
    }
    EXPECT_FALSE(fs::exists(here() / "fehlt"));
    out("quillmoot data-folder weg && rm -r weg");
    expectRefused("", "Der gewählte Datenordner ist nicht erreichbar.");
    EXPECT_FALSE(fs::exists(here() / "weg"));
}

TEST_F(Commands, WriteForProgramsForPipesAndForNarrowTerminals) {
    for (const auto& call : calls) {
        if (call.keys.empty()) continue;
        const auto command = callFor(call, "Kundenportal");
        const auto plain = out(command);
        EXPECT_THAT(plain, AllOf(Not(HasSubstr("\x1b")), EndsWith("\n"))) << call.line;
        EXPECT_EQ(keysOf(out(command + " --json")), call.keys) << call.line;
        EXPECT_EQ(sh(command + " | true").err, "") << call.line << " into a closed pipe";
        EXPECT_THAT(err(command + " >/dev/full"), HasSubstr("Die Ausgabe konnte nicht geschrieben werden."))
            << call.line;
        if (call.needs == Needs::nothing || call.line.starts_with("show")) continue;  // paths are not cut
        std::istringstream lines(
            out("script -qec \"stty cols 40; NO_COLOR=1 " + command + "\" /dev/null </dev/null"));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_THAT(line, Not(HasSubstr("\x1b"))) << call.line;
            const auto characters =
                std::ranges::count_if(line, [](char c) { return (c & 0xC0) != 0x80 && c != '\r'; });
            EXPECT_LE(characters, 40) << call.line << ": " << line;
        }
    }
}

TEST_F(Commands, DoWhatTheySay) {
    // clang-format off
    const std::vector<std::tuple<std::string, std::string, std::string>> steps{
        {"pin Kundenportal", "list", "★ Kundenportal"}, {"pin Kundenportal --off", "list", "  Kundenportal"},
        {"project add A", "project assign Kundenportal a && quillmoot list --project ' A '",
         "Kundenportal · A"},
        {"project assign Kundenportal portal", "list", "Kundenportal · Portal"},
        {"project rename portal Kunden", "project", "1 Meeting"},
        {"project remove Kunden", "list", "  Kundenportal\n"}, {"fields set Kundenportal Kunde Wettermann", "show Kundenportal", "Kunde           Wettermann"},
        {"fields rename kunde Auftraggeber", "show Kundenportal", "Auftraggeber    Wettermann"}, {"fields remove Auftraggeber", "fields --json", "[]\n"},
        {"pin Kundenportal --off", "show Kundenportal", "Auftraggeber    Wettermann"},
        {"instructions Kundenportal --base Kurz --hint Preise", "instructions Kundenportal --json", R"({"basePrompt":"Kurz","meetingPrompt":"Preise"})"},
        {"instructions Kundenportal --reset", "instructions Kundenportal --json", R"("meetingPrompt":"")"},
        {"note Kundenportal 'Erste Runde'", "note Kundenportal", "Erste Runde\n"}, {"note Kundenportal ''", "show Kundenportal --json", R"("notes":"")"},
        {"title Kundenportal --engine extractive", "list", "Kundenportal"}, {"retention 400", "retention", "400 Tage"},
        {"participants kundenPORTAL --add 'Jana  Keller' --add Thomas", "participants Kundenportal --json",
         R"(,"Jana Keller","Thomas"])"},
        {"participants Kundenportal --remove thomas", "participants Kundenportal --json", R"(,"Jana Keller"])"},
        {"rename $(quillmoot list --json | cut -c 9-16) Neu", "list", "  Neu"},
        {"rename Neu Kundenportal", "audio Kundenportal --json", R"([{"source":"microphone","path":)"},
        {"retention --apply", "show Kundenportal --json", R"("audioRemoved":false)"}, {"models --quick", "models --quick --json", R"("state":"missing")"},
    };
    // clang-format on
    for (const auto& [command, check, expected] : steps) {
        out("quillmoot " + command);
        EXPECT_THAT(out("quillmoot " + check), HasSubstr(expected)) << command;
    }
    for (const std::string command : {"summarize", "title"})
        EXPECT_THAT(err("quillmoot " + command + " Kundenportal --engine model"),
                    HasSubstr("Qwen3-4B-Q4_K_M.gguf"));
    EXPECT_THAT(out("quillmoot search Testkunden Wartungsverträge"), HasSubstr("zwölf Testkunden"));
    EXPECT_EQ(out("quillmoot search Testkunden Rabatte --json"), "[]\n") << "no passage has both words";
}

}  // namespace
}  // namespace meetingcore::testing
