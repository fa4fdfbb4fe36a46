#pragma once

#include <span>

#include <CLI/CLI.hpp>

#include "CommandDescription.h"
#include "Shell.h"

namespace meetingcore::quillmoot {

/// The whole program; returns its exit status: 0 done, 1 failed, 2 wrong use. `arguments` are those of the
/// process.
int run(std::span<char*> arguments);

/// The command line with all commands, which select what runs in the shell.
void describe(CLI::App& app, Shell& shell);

/// Adds a command that runs `body`, which returns the exit status.
CLI::App& addCommand(CLI::App& parent, Shell& shell, const std::string& name, const std::string& description,
                     std::function<int()> body);

/// A command and what its options fill in, which lives as long as the command.
template <class Values>
struct CommandWithValues {
    CLI::App& command;
    Values& values;
};

/// Adds a command that runs `body` with values of its own.
template <class Values>
CommandWithValues<Values> addCommand(CLI::App& parent, Shell& shell, const std::string& name,
                                     const std::string& description, int (*body)(Shell&, const Values&)) {
    const auto values = std::make_shared<Values>();
    return {
        addCommand(parent, shell, name, description, [&shell, values, body] { return body(shell, *values); }),
        *values};
}

/// Adds a command for one meeting, MEETING being its first argument.
template <class Values>
CommandWithValues<Values> addMeetingCommand(CLI::App& parent, Shell& shell, const std::string& name,
                                            const std::string& description,
                                            int (*body)(Shell&, const Values&)) {
    const auto added = addCommand(parent, shell, name, description, body);
    notBlank(added.command.add_option("MEETING", added.values.meeting, "Kennung, ihr Anfang, oder der Titel"))
        ->required();
    return added;
}

/// What many commands take.
struct MeetingValues {
    std::string meeting;
    bool json = false;
};

/// The track that "microphone" or "meeting" names.
AudioSource trackOf(const std::string& name);

/// Options that several commands have.
void addJSON(CLI::App& command, bool& json);
void addModels(CLI::App& command, std::string& folder);

/// Tells what went wrong, behind `lead`, each line of the message as one, and a next step where there is one.
void explain(Terminal& out, const MeetingError& error, const std::string& lead = {});

/// The commands by topic.
void addFolderCommands(CLI::App& app, Shell& shell);   ///< data-folder, doctor, models
void addToolCommands(CLI::App& app, Shell& shell);     ///< completion, and what only programs call
void addListCommands(CLI::App& app, Shell& shell);     ///< list, show, search
void addAudioCommands(CLI::App& app, Shell& shell);    ///< import, audio, remove-audio, retention
void addMeetingCommands(CLI::App& app, Shell& shell);  ///< rename, pin, note, project, fields, instructions, …
void addTranscriptCommands(CLI::App& app, Shell& shell);   ///< transcript, correct
void addSpeakerCommands(CLI::App& app, Shell& shell);      ///< speakers, speaker
void addRecognitionCommands(CLI::App& app, Shell& shell);  ///< transcribe, jobs
void addExportCommands(CLI::App& app, Shell& shell);       ///< export
void addSummaryCommands(CLI::App& app, Shell& shell);      ///< summarize, title, summary

}  // namespace meetingcore::quillmoot
