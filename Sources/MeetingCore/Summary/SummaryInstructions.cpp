#include "MeetingCore/Summary/SummaryInstructions.h"

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

template SummaryInstructions json::decode(std::string_view, const std::string&);

namespace {

constexpr std::size_t maximumBaseCharacters = 3000;
constexpr std::size_t maximumMeetingCharacters = 1500;

}  // namespace

SummaryInstructions SummaryInstructions::validated() const {
    if (text::exceeds(basePrompt, maximumBaseCharacters) ||
        text::exceeds(meetingPrompt, maximumMeetingCharacters)) {
        throw MeetingError::invalidData(
            "Der Grund-Prompt darf höchstens 3.000 Zeichen und der Meeting-Hinweis höchstens 1.500 Zeichen "
            "enthalten.");
    }
    return {std::string(text::trimmed(basePrompt)), std::string(text::trimmed(meetingPrompt))};
}

std::string SummaryInstructions::fingerprint() const {
    return SHA256::hex(json::encode(*this, json::Keys::sorted));
}

std::string SummaryInstructions::prompt(std::string_view input, std::string_view contract) const {
    std::string prompt;
    prompt += ChatFrame::system;
    prompt += contract;
    prompt += "\nBenutzerdefinierter Grund-Prompt für Inhalt und Stil:\n";
    prompt += ChatFrame::escaped(basePrompt);
    prompt += "\nZusätzliche Hinweise für dieses Meeting (konkretisieren den Grund-Prompt):\n";
    prompt += ChatFrame::escaped(meetingPrompt);
    prompt +=
        "\nDie Benutzer-Vorgaben steuern Fokus, Auslassungen und Stil. Das oben festgelegte JSON-Format und "
        "die "
        "Quellenpflicht bleiben verbindlich. Ausgelassene Themen nicht als fehlende Fakten erfinden. /no_think";
    prompt += ChatFrame::user;
    prompt += "Gesprächsdaten als JSON:\n";
    prompt += ChatFrame::escaped(input);
    prompt += ChatFrame::assistant;
    return prompt;
}

std::string ChatFrame::escaped(std::string_view text) {
    return text::replacing(text::replacing(text, "<", "\\u003c"), ">", "\\u003e");
}

}  // namespace meetingcore
