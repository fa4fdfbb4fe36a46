#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Transcript/WorkerContracts.h"

namespace meetingcore {

/// Recognises speech with a program of the user's choice, started once per window.
///
/// The command is split into words as a shell would: at white space, with '…', "…" and \ to quote; nothing else
/// of a shell is interpreted. In each word these placeholders are replaced:
///
///     {wav}       the window's audio, a WAV file of 16 kHz, mono, 16 bits
///     {start}     where the window begins in the recording, in seconds
///     {source}    "microphone" or "meeting"
///     {window}    the window's id
///
/// Without {wav} the file's path is added as the last word. The program writes its result, JSON in one of the
/// forms that Docs/Transcription.md describes, to standard output, and ends with status 0.
///
/// The file lies in a folder of its own with permissions 0700 in the meeting's folder, where nobody else can
/// hear it and no audio is left on another disk. The folder goes with all that the program left in it; after a
/// crash it counts as an incomplete chunk and is found, and removed with the audio, like one.
class CommandTranscriber final : public Transcribing {
public:
    /// `root` is the data folder. Throws MeetingError (invalidData) where the command is empty or a quote is
    /// open.
    CommandTranscriber(std::string_view command, const std::filesystem::path& root,
                       std::chrono::milliseconds timeLimit, FileManager& files = FileManager::system());

    /// Starts the program in a thread of its own. It is ended at the time limit and on a stop request. The
    /// result has been checked against the window.
    std::future<SpeechResult> transcribe(const TranscriptionWindow& window, const StopRequest& stop) override;

    /// Whether a folder of this name, in a meeting's folder, is one that a program was given.
    static bool isWorkFolder(std::string_view name);

private:
    SpeechResult recognize(const TranscriptionWindow& window, const StopRequest& stop);
    std::string run(std::vector<std::string> arguments, const StopRequest& stop) const;

    std::vector<std::string> words_;
    std::filesystem::path meetings_;
    std::chrono::milliseconds timeLimit_;
    FileManager& files_;
};

}  // namespace meetingcore
