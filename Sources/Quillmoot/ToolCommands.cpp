#include "CommandDescription.h"
#include "Completion.h"
#include "Manual.h"
#include "Names.h"
#include "Program.h"

namespace meetingcore::quillmoot {

namespace {

/// What the shells' scripts ask for: an identifier, a tab and the title on each line.
int completeMeetings(Shell& shell) {
    auto folder = shell.folder();
    std::map<std::string, int> meant;
    for (const auto& meeting : folder.library().meetings) ++meant[shortID(meeting.id)];
    for (const auto& meeting : folder.library().meetings) {
        const auto brief = shortID(meeting.id);
        shell.out().raw((meant.at(brief) == 1 ? brief : meeting.id.string()) + "\t" + printable(meeting.title) +
                        "\n");
    }
    return done;
}

}  // namespace

void addToolCommands(CLI::App& app, Shell& shell) {
    const auto kind = std::make_shared<std::string>();
    auto& completion = addCommand(app, shell, "completion",
                                  "Gibt das Skript aus, das eine Shell ergänzen lässt", [&app, &shell, kind] {
                                      shell.out().raw(completionScript(app, *kind));
                                      return done;
                                  });
    oneOf(completion.add_option("SHELL", *kind, "bash, zsh oder fish"), {"bash", "zsh", "fish"})->required();
    completion.footer("Für bash etwa in ~/.bashrc: source <(quillmoot completion bash)");

    // For programs, so no help shows them.
    addCommand(app, shell, "complete-meetings", "Alle Meetings für die Ergänzung in der Shell", [&shell] {
        return completeMeetings(shell);
    }).group("");
    addCommand(app, shell, "manual", "Gibt die Handbuchseite aus", [&app, &shell] {
        shell.out().raw(manualPage(app));
        return done;
    }).group("");
}

}  // namespace meetingcore::quillmoot
