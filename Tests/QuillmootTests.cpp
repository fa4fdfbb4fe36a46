#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Summary/RawSummary.h"
#include "Support/QuillmootShell.h"
#include "Support/StandInModel.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using Quillmoot = QuillmootShell;

TEST_F(Quillmoot, TakesAMeetingFromItsFilesToASummaryWithEvidence) {
    importSample();
    EXPECT_THAT(out("quillmoot list"), HasSubstr("14.09.2026 10:00  06:57  Transkript 0 von 14  Kundenportal"));
    importTexts();
    EXPECT_THAT(out("quillmoot transcript Kundenportal"),
                AllOf(StartsWith("Jana Keller  00:00:00\n  Guten Morgen zusammen."),
                      HasSubstr("Meral Aydın  00:00:08")));
    EXPECT_THAT(out("quillmoot transcript Kundenportal --clock"), StartsWith("Jana Keller  10:00:00\n"));

    const auto wrong = out("quillmoot transcript Kundenportal --numbers | grep 'Wetter Mann' | head -n 1");
    const auto number = std::to_string(std::stoi(wrong));
    EXPECT_EQ(out("quillmoot search wettermann --json"), "[]\n") << "misheard in this one place";
    EXPECT_THAT(sh("quillmoot correct Kundenportal " + number + " 'Ja, das mache ich heute.'").err,
                AllOf(StartsWith("Bisher ["), HasSubstr("Wetter Mann")));
    EXPECT_THAT(out("quillmoot transcript Kundenportal --numbers"),
                HasSubstr("  " + number + " Ja, das mache ich heute."));
    EXPECT_EQ(out("quillmoot transcript Kundenportal --numbers --original | grep 'Wetter Mann' | head -n 1"),
              wrong);
    out("quillmoot correct Kundenportal " + number + " ''");
    out("quillmoot speaker Kundenportal 'stefan VOGT' 'Stefan V.'");
    EXPECT_THAT(out("quillmoot speakers Kundenportal"), HasSubstr("Stefan V."));

    const auto answer = contentOf(sampleFolder / "summary-answer.json");
    const auto models = home.path() / "modelle";
    fs::create_directory(models);
    writeStandInModel(models / "modell.gguf",
                      StandInScript::answering(answer, contentOf(sampleFolder / "title-answer.json")));
    writeCatalog(models / "katalog.json", models / "modell.gguf");
    const auto engine = " Kundenportal --engine model --models " + models.string() + " --worker " +
                        MEETING_SummaryWorkerFixture_PATH;
    const auto catalog = "SUMMARY_WORKER_CATALOG=" + (models / "katalog.json").string() + " ";
    EXPECT_THAT(out(catalog + "quillmoot summarize" + engine),
                AllOf(HasSubstr("\nEntscheidungen\n"), HasSubstr("     [02:"), HasSubstr(": „")));
    const auto summary = out("quillmoot summary Kundenportal --json");
    for (const auto& task : json::decode<RawSummary>(answer, "summary-answer.json").tasks) {
        EXPECT_THAT(summary, HasSubstr(R"("owner":")" + task.owner.value_or("")));
        EXPECT_THAT(summary, HasSubstr(R"("dueDate":")" + task.dueDate.value_or("")));
    }
    EXPECT_THAT(out(catalog + "quillmoot title" + engine), Not(IsEmpty()));
    EXPECT_THAT(out("quillmoot show Kundenportal"), HasSubstr("Zusammenfassung aktuell"));

    // A correction of what a point rests on makes this point stale, and the summary as a whole.
    const auto cited =
        out(R"(quillmoot summary Kundenportal --json | tr '{' '\n' | grep -m1 -o '"sources":\["[0-9A-F]*')");
    out("quillmoot correct Kundenportal " + cited.substr(cited.rfind('"') + 1, 8) + " 'Ganz anders.'");
    EXPECT_THAT(out("quillmoot summary Kundenportal"),
                AllOf(HasSubstr("Zusammenfassung veraltet"),
                      HasSubstr("Veraltet: Das Transkript lautet inzwischen anders.")));
    EXPECT_THAT(out("quillmoot export Kundenportal --format markdown"),
                AllOf(StartsWith("# Kundenportal\n"), HasSubstr("veraltet oder ungültig")));
    for (const auto* const form : {"text", "html", "vtt", "srt", "json"}) {
        EXPECT_THAT(out(std::string("quillmoot export Kundenportal --format ") + form + " -o aus && cat aus"),
                    HasSubstr("Stefan V."))
            << form;
    }
    EXPECT_THAT(out("quillmoot doctor"), AllOf(HasSubstr("1 Meeting ist lesbar."), Not(HasSubstr("FEHLER"))));
    EXPECT_THAT(out("quillmoot audio Kundenportal"), HasSubstr("Audio/meeting.wav"));
    if (sh("command -v gio").status == 0) {
        EXPECT_EQ(out("quillmoot retention 1 && quillmoot retention Nie --apply --json"), "[]\n");
        EXPECT_EQ(out("quillmoot retention"), "Audio wird nie entfernt.\n");
        EXPECT_THAT(sh("quillmoot remove-audio Kundenportal").err, HasSubstr("„.Audio-entfernen-"));
        EXPECT_THAT(out("quillmoot show Kundenportal"), HasSubstr("Audio           entfernt"));
        EXPECT_THAT(err("quillmoot audio Kundenportal"), HasSubstr("hat kein Audio"));
        EXPECT_THAT(err("quillmoot remove-audio Kundenportal"), HasSubstr("wurde schon entfernt."));
        EXPECT_THAT(err("quillmoot jobs Kundenportal restart --yes"), HasSubstr("bewusst entfernt."));
        out("quillmoot title Kundenportal --engine extractive");
        // What the trash gives back is taken at its word.
        out("mv ../data/Trash/files/.Audio-entfernen-* ../data/Quillstead/Meetings/*/");
        EXPECT_THAT(sh("quillmoot pin Kundenportal").err, HasSubstr("zurückgenommen: Kundenportal"));
        EXPECT_THAT(out("quillmoot show Kundenportal"), HasSubstr("Audio           14 Abschnitte"));
    }
}

TEST_F(Quillmoot, DoesWhatTheReadmePromisesInFiveCommands) {
    std::istringstream readme(contentOf(MEETING_SOURCE_FOLDER "/README.md"));
    std::string line;
    while (std::getline(readme, line) && line != "## Ein Meeting in fünf Befehlen") {
    }
    int commands = 0;
    std::string last;
    while (std::getline(readme, line) && !line.starts_with("## ")) {
        if (!line.starts_with("    quillmoot ")) continue;
        ++commands;
        last = out(line);
    }
    EXPECT_EQ(commands, 5);
    EXPECT_THAT(last, AllOf(HasSubstr("Kurzfassung"), HasSubstr("Aufgaben"), HasSubstr("„")));
}

TEST_F(Quillmoot, RefusesWrongUseWithTheNextStep) {
    importSample();
    // clang-format off
    const std::vector<std::pair<std::string, std::string>> wrong{
        {"", "Es fehlt der Befehl."}, {"gibtesnicht", "Unbekannter Befehl: gibtesnicht\n"},
        {"lsit --json", "Unbekannter Befehl: lsit (gemeint ist vielleicht list)"}, {"import --titel x", "Unbekannte Option: --titel (gemeint ist vielleicht --title)"},
        {"import --title A --title B", "Mehrfach angegeben: --title"}, {"export Kundenportal --format text --clock", "--clock gibt es nur für html."},
        {"instructions Kundenportal --base - --hint -", "Nur eines von --base und --hint"},
        {"show", "Es fehlt: MEETING"}, {"export Kundenportal", "Es fehlt: --format (möglich: text, "}, {"import microphone.ogg", "Tondatei steht hinter --microphone"}, {"export Kundenportal --format text -o ''", "--output: Der Wert darf nicht leer"},
        {"export Kundenportal --format pdf", "Ungültiger Wert: pdf"},
        {"import --title A", "Es fehlt: --microphone oder --meeting"}, {"import --microphone", "Der Wert fehlt: --microphone"},
        {"import --microphone microphone.ogg --start gestern", "Ungültige Zeit: gestern"},
        {"import --microphone microphone.ogg --start ''", "Ungültige Zeit"}, {"list --root ''", "--root braucht einen Ordner."},
        {"import --microphone microphone.ogg --start '2026-03-29 02:30'", "Diese Uhrzeit gibt es hier nicht"},
        {"import --microphone microphone.ogg --title ' '", "Der Titel darf nicht leer sein."},
        {"rename Kundenportal ' '", "TITEL: Der Wert darf nicht leer sein."}, {"participants Kundenportal --add ' '", "--add: Der Wert darf nicht leer sein."},
        {"list --project ''", "--project: Der Wert darf nicht leer sein."}, {"pin ''", "MEETING: Der Wert darf nicht leer sein."},
        {"retention 99999", "36500"}, {"retention -5", "36500"},
        {"jobs Kundenportal weiter", "Ungültiger Wert: weiter"}, {"retention bald", "Erwartet wird eine Zahl von Tagen"},
        {"transcribe Kundenportal --engine true --jobs 0", "Erwartet wird eine Zahl von 1 bis 64: 0"},
    };
    const std::vector<std::pair<std::string, std::string>> failing{
        {"--root /fehlt list", "Es gibt keinen Datenordner unter /fehlt."},
        {"import --microphone fehlt.wav", "„fehlt.wav“ gibt es nicht."},
        {"import --microphone microphone.ogg --title 'a\ab'", "Der Titel darf keine Steuerzeichen enthalten."},
        {"import --microphone meeting.vtt", "„meeting.vtt“ ist keine lesbare Audiodatei: das Format ist unbekannt"},
        {"import --microphone microphone.ogg --meeting meeting.mp3", "Diese Aufnahme ist schon in der Bibliothek: „Kundenportal“"},
        {"correct Kundenportal 1 Text", "Kein Segment"},
        {"list --project nix", "Ein Projekt „nix“ gibt es nicht."},
        {"summarize Kundenportal", "Sprachverarbeitung muss zuerst vollständig abgeschlossen sein."},
        {"rename Kundenportal 'a\ab'", "darf keine Steuerzeichen"},
        {"participants Kundenportal --add \"$(printf %101s x | tr ' ' y)\"", "höchstens 100 Zeichen"},
        {"note Kundenportal - < /dev/zero", "länger als 1 MiB"}, {"note Kundenportal - < .", "konnte nicht gelesen werden."},
        {"transcript import Kundenportal --source meeting utf16.vtt", "utf16.vtt ist UTF-16."},
        {"--root /fehlt project add A", "Es gibt keinen Datenordner unter /fehlt."},
        {"import --root . --microphone microphone.ogg", "ist kein Datenordner."}, {"project rename Alt Neu", "Ein Projekt „Alt“ gibt es nicht."},
        {"export Kundenportal --format srt", "Transkription"},
    };
    // clang-format on
    out("printf '\\377\\376W' >utf16.vtt");
    for (const auto& [call, message] : wrong) {
        EXPECT_THAT(err("quillmoot " + call, 2), AllOf(HasSubstr(message), HasSubstr("--help"))) << call;
    }
    for (const auto& [call, message] : failing)
        EXPECT_THAT(err("quillmoot " + call), HasSubstr(message)) << call;
    EXPECT_THAT(out("quillmoot speakers import --help"),
                AllOf(HasSubstr("Aufruf: quillmoot speakers import"), HasSubstr("RTTM")));
}

class QuillmootImport : public QuillmootShell {
protected:
    /// Minutes of silence under an uneven rate, which takes a while.
    void writeSilence(int minutes) const {
        out("python3 -c \"import wave; w=wave.open('lang.wav','wb'); w.setnchannels(2); w.setsampwidth(2); "
            "w.setframerate(22050); w.writeframes(bytes(4*22050*60*" +
            std::to_string(minutes) + "))\"");
    }
    const std::string command = "quillmoot import --title Lang --meeting lang.wav --start ";
};

TEST_F(QuillmootImport, GoesOnWhereItWasCutOff) {
    writeSilence(15);  // killed once the first chunks are there
    for (const auto* const signal : {"INT", "KILL"}) {
        err("cd '" + here().string() + "'; " + command +
                "'2026-03-14 10:00' & pid=$!; while [ $(ls -d ../data/*/Meetings/*/*.chunk 2>/dev/null" +
                " | wc -l) -lt " + (*signal == 'I' ? "2" : "5") + " ]; do sleep 0.01; done; kill -" + signal +
                " $pid; wait $pid; test $? -eq 0",
            1);
        out("quillmoot doctor");
        EXPECT_THAT(out("quillmoot list"), HasSubstr("unterbrochen"));
        if (*signal == 'I') out("quillmoot rename Lang Kurz");
    }
    EXPECT_THAT(sh(command + "'2026-03-14 09:00'").err, HasSubstr("Titel und Projekt bleiben"));
    EXPECT_THAT(out("quillmoot list"), HasSubstr("14.03.2026 09:00  14:59  Transkript 0 von 15  Kurz"));
    const auto report = DurableChunkStore(root() / "Meetings").recover();
    ASSERT_EQ(report.chunks.size(), 15U);
    for (std::size_t i = 0; i < 15; ++i) EXPECT_EQ(report.chunks[i].sequence, static_cast<std::int64_t>(i));
    EXPECT_EQ(MeetingLibrary::read(root() / "library.json").meetings.front().state, "completed");
    EXPECT_THAT(err(command + "2026-03-14T10:00Z"), HasSubstr("schon in der Bibliothek"));
}

TEST_F(QuillmootImport, TellsWhatIsLostOrDamagedAndBringsItBack) {
    writeSilence(5);
    out(command + "'2026-03-14 09:00' && quillmoot rename Lang Kurz");
    const auto report = DurableChunkStore(root() / "Meetings").recover();
    ASSERT_EQ(report.chunks.size(), 5U);
    const auto folder = root() / "Meetings" / report.chunks.front().sessionID.string();
    const auto chunk = [&](std::size_t i) { return folder / (report.chunks[i].id.string() + ".chunk"); };
    fs::remove_all(chunk(2));
    fs::resize_file(chunk(4) / "audio.wav", 1000);
    EXPECT_THAT(err("quillmoot audio Kurz"),
                AllOf(HasSubstr("Meeting-Ton: Von 02:00 bis 03:00 gibt es keine Aufnahme"),
                      HasSubstr("2 Audioabschnitte fehlen")));
    // Also where another recording was interrupted, and the library is brought in line with what there is.
    out("cp ../data/*/library.json davor && sed -i s/completed/recording/ ../data/*/library.json");
    for (int run = 0; run < 2; ++run)
        EXPECT_THAT(err("quillmoot doctor --repair >&2"), HasSubstr("2 Audioabschnitte fehlen"));
    out("cp davor ../data/*/library.json");
    EXPECT_THAT(sh(command + "'2026-03-14 10:00'").err, HasSubstr("Titel und Projekt bleiben"));
    EXPECT_THAT(out("quillmoot audio Kurz && quillmoot list"),
                HasSubstr("09:00  04:59  Transkript 0 von 5  Kurz"));

    for (const auto* const manifest : {"", "kaputt"}) {
        fs::remove(folder / "session.json");
        if (*manifest != '\0') writeFile(folder / "session.json", manifest);
        EXPECT_THAT(out("quillmoot doctor || true"), HasSubstr("„session.json“"));
        fs::remove_all(chunk(2));
        out(command + "'2026-03-14 10:00' && quillmoot audio Kurz");
    }
}

TEST_F(QuillmootImport, TakesNoPartOfAFileForTheWhole) {
    writeSilence(5);
    // Two recordings that differ in the middle alone are two.
    out("head -c 4000000 lang.wav >eins.wav && cp eins.wav zwei.wav && "
        "printf Ton | dd of=zwei.wav bs=1 seek=2000000 conv=notrunc");
    for (const auto* const name : {"eins", "zwei"}) {
        EXPECT_THAT(err("quillmoot import --title Halb --meeting " + std::string(name) + ".wav"),
                    HasSubstr("bricht ab"));
    }
    EXPECT_EQ(MeetingLibrary::read(root() / "library.json").meetings.size(), 2U);
    // Where the recorder died, the header knows of a part of the sound alone.
    out("python3 -c \"f=open('lang.wav','r+b'); f.seek(4); f.write((900036).to_bytes(4,'little')); "
        "f.seek(40); f.write((900000).to_bytes(4,'little'))\"");
    EXPECT_THAT(err("quillmoot import --meeting lang.wav"),
                AllOf(HasSubstr("ist länger, als ihr Kopf angibt"), Not(HasSubstr("\n\n"))));
    // What cannot be read has not come to its end.
    EXPECT_THAT(err("ln -s /proc/self/mem kaputt.wav; quillmoot import --meeting kaputt.wav"),
                HasSubstr("„kaputt.wav“ konnte nicht gelesen werden: "));
}

TEST_F(Quillmoot, KeepsToDataFoldersThatAreMeant) {
    // What reads creates nothing; what commands leave behind is a data folder.
    out("mkdir leer && quillmoot list --root leer");
    EXPECT_TRUE(fs::is_empty(here() / "leer"));
    out("quillmoot project add A --root leer; quillmoot data-folder leer && quillmoot project add C");
    out("mkdir alt && cp ../hier/leer/library.json alt && quillmoot data-folder alt && quillmoot project");
    EXPECT_THAT(out("quillmoot data-folder neu --root alt"), HasSubstr("/neu\n"));
    EXPECT_THAT(err("quillmoot data-folder ."), HasSubstr("Bitte einen leeren Ordner"));
    EXPECT_THAT(err("quillmoot data-folder ''", 2), HasSubstr("PFAD darf nicht leer sein."));
    out("mkdir -p fremd/.wichtig.tmp && touch fremd/brief.txt fremd/.wichtig.tmp/x");
    for (const auto* const option : {"", " --repair"}) {
        EXPECT_THAT(err("quillmoot --root fremd doctor" + std::string(option)),
                    HasSubstr("ist kein Datenordner."));
    }
    EXPECT_EQ(out("ls -A fremd; ls fremd/.wichtig.tmp"), ".wichtig.tmp\nbrief.txt\nx\n");
    fs::remove_all(here() / "neu");
    EXPECT_THAT(
        err("TZ=Quatsch quillmoot import --root neu --start '2026-03-14 10:00' --microphone microphone.ogg", 2),
        HasSubstr("Unbekannte Zeitzone"));
    EXPECT_THAT(out("quillmoot import --root neu --microphone microphone.ogg && chmod a-w neu && "
                    "quillmoot list --root neu && chmod u+w neu"),
                HasSubstr("Transkript 0 von 7"));
    out("rm neu/quillmoot.sqlite");
    EXPECT_THAT(err("quillmoot data-folder neu"), HasSubstr("Bitte die Datei zurückholen"));
    EXPECT_THAT(sh("quillmoot doctor --root neu; quillmoot list --root neu; quillmoot doctor --root neu").out,
                Not(HasSubstr("keine Aufträge")));
    EXPECT_THAT(sh("quillmoot doctor --repair --root neu; quillmoot doctor --root neu").out,
                AllOf(HasSubstr("FEHLER   Datenbank: „quillmoot.sqlite“ fehlt"),
                      HasSubstr("0 abgeschlossen, 7 offen")));
}

TEST_F(Quillmoot, TranscribesWithAProgramOfTheUsersChoice) {
    importSample();
    // A lease that a killed program left keeps nothing from being begun anew once it has ended.
    SQLiteJobStore(root() / "quillmoot.sqlite").claimNext(Date::since1970(0), 60);
    out("quillmoot jobs Kundenportal restart");
    writeFile(here() / "erkenner.py", R"(import json, sys, wave
seconds = wave.open(sys.argv[1]).getnframes() / 16000
if sys.argv[2] == "meeting" and float(sys.argv[3]) == 60: sys.exit("kaputt")
print(json.dumps({"segments": [{"start": 0.5, "end": seconds, "text": f"Fenster {sys.argv[2]} {sys.argv[3]}"}]}))
)");
    const std::string command =
        "quillmoot transcribe Kundenportal --engine 'python3 erkenner.py {wav} {source} {start}' --jobs 2";
    EXPECT_THAT(err(command),
                AllOf(HasSubstr("13 von 14 Abschnitten fertig"),
                      HasSubstr("Meeting-Ton 01:00–02:00 zurückgestellt: "), HasSubstr("kaputt")));
    EXPECT_THAT(out("quillmoot jobs Kundenportal"), HasSubstr("fehlgeschlagen"));
    out("sed -i s/kaputt// erkenner.py && sed -i '/sys.exit/d' erkenner.py && quillmoot jobs Kundenportal "
        "retry && " +
        command);
    EXPECT_THAT(out("quillmoot transcript Kundenportal"), HasSubstr("Fenster meeting 60"));
    EXPECT_THAT(out("quillmoot show Kundenportal"), HasSubstr("wartet auf die Sprecher"));
    EXPECT_THAT(err("quillmoot summarize Kundenportal --engine extractive"),
                HasSubstr("\nSie fehlt noch: „quillmoot speakers import“ oder „quillmoot speakers none“."));
    EXPECT_THAT(out("quillmoot speakers none Kundenportal && quillmoot show Kundenportal"),
                HasSubstr("Verarbeitung    transkribiert"));
    EXPECT_THAT(err("quillmoot jobs Kundenportal restart"), HasSubstr("14 fertige Abschnitte"));
    out("quillmoot jobs Kundenportal restart --yes");
    EXPECT_THAT(out("quillmoot list"), HasSubstr("Transkript 0 von 14"));
}

TEST_F(Quillmoot, KeepsWhatAPersonGave) {
    importSample();
    importTexts();
    out("quillmoot speaker Kundenportal 'Thomas Brandt' 'Von Hand'; "
        "quillmoot speakers import Kundenportal speakers.rttm");
    EXPECT_THAT(out("quillmoot speakers Kundenportal"), HasSubstr("Von Hand"));
    out("echo 'SPEAKER meeting 1 1 2 <NA> <NA> Neu <NA>' >neu.rttm");
    EXPECT_THAT(err("quillmoot speakers import Kundenportal neu.rttm"), HasSubstr("hat schon Sprecher."));
    EXPECT_THAT(sh("quillmoot speakers import Kundenportal speakers.rttm --source meeting").err,
                StartsWith("Meeting-Ton: 3 Sprecher wie bisher."));
    EXPECT_THAT(sh("quillmoot speakers import Kundenportal speakers.rttm --recording microphone").err,
                StartsWith("Mikrofon: 1 Sprecher wie bisher."));
    // A recognition of speakers that was cut off.
    out(R"(sed -i 's/"finished":true/"finished":false/' ../data/*/Meetings/*/diarization.json)");
    EXPECT_THAT(err("quillmoot speakers import Kundenportal speakers.rttm"), HasSubstr("läuft noch."));
    EXPECT_THAT(err("quillmoot speakers none Kundenportal"), HasSubstr("läuft noch."));
    sh("quillmoot speakers none Kundenportal --replace");
    EXPECT_THAT(out("quillmoot speakers Kundenportal"), Not(HasSubstr("Von Hand")));
    out("quillmoot speakers import Kundenportal speakers.rttm");
    EXPECT_THAT(out("quillmoot show Kundenportal"), HasSubstr("Verarbeitung    transkribiert"));

    out("quillmoot fields add Kunde && quillmoot fields set Kundenportal Kunde Alt && "
        "quillmoot fields remove Kunde && quillmoot fields add kunde");
    EXPECT_THAT(out("quillmoot show Kundenportal"), HasSubstr("kunde           Alt"));
    out("quillmoot fields remove kunde && quillmoot fields set Kundenportal Kunde ''");
    EXPECT_THAT(out("quillmoot show Kundenportal"), Not(HasSubstr("Alt")));
    EXPECT_THAT(err("quillmoot fields set Kundenportal Kunde Neu"), HasSubstr("„Kunde“ gibt es nicht."));
    out("quillmoot project add Alpha && quillmoot project add Beta && quillmoot project rename Beta BETA");
    EXPECT_THAT(err("quillmoot project rename Beta alpha"), HasSubstr("„alpha“ gibt es schon."));
    out("for i in $(seq 99); do set -- \"$@\" --add Teilnehmer$i; done; "
        "quillmoot participants Kundenportal --add Jana \"$@\"");
    EXPECT_THAT(err("quillmoot participants Kundenportal --add jana --add X"), HasSubstr("höchstens 100"));

    EXPECT_THAT(out("quillmoot summarize Kundenportal --engine extractive"),
                HasSubstr("\nOhne Sprachmodell erstellt: "));
    EXPECT_THAT(
        out("quillmoot summary Kundenportal --json && quillmoot export Kundenportal --format html"),
        AllOf(HasSubstr(R"("engine":"extractive")"), HasSubstr("<p class=\"quiet\">Ohne Sprachmodell")));
}

TEST_F(Quillmoot, FitsItsOutputToWhereItGoes) {
    importSample();
    importTexts();
    const auto onTerminal = [&](const std::string& setup, const std::string& command) {
        return out("script -qec \"" + setup + "; " + command + "\" /dev/null");
    };
    const auto narrow = onTerminal("stty cols 40", "quillmoot transcript Kundenportal; quillmoot jobs --help");
    EXPECT_THAT(narrow, HasSubstr("\x1b[1;38;5;"));
    std::istringstream lines(narrow);
    for (std::string line; std::getline(lines, line);) {
        if (line.find('\x1b') != std::string::npos) continue;
        EXPECT_LE(line.size(), 60U) << "bytes of 40 columns: " << line;
    }
    std::istringstream list(onTerminal("stty cols 20; export NO_COLOR=1", "quillmoot list"));
    for (std::string line; std::getline(list, line);) EXPECT_LE(line.size(), 21U) << line;
    EXPECT_THAT(onTerminal("stty cols 40", "quillmoot speakers Kundenportal"), HasSubstr("Thomas Brandt"));
    EXPECT_THAT(onTerminal("stty cols 80", "quillmoot search Wartung"), HasSubstr("\x1b[1;7mWartung\x1b[0m"));
    // Nobody can steer a terminal through a transcript.
    out("quillmoot correct Kundenportal 1 \"$(printf 'rot \\033[31m und \\007')\"");
    EXPECT_THAT(out("quillmoot transcript Kundenportal"),
                AllOf(HasSubstr("rot �[31m und �"), Not(HasSubstr("\x1b"))));
    for (const auto* const form : {"text", "vtt"}) {
        const std::string command = std::string("quillmoot export Kundenportal --format ") + form;
        EXPECT_THAT(onTerminal("stty cols 80", command), AllOf(HasSubstr("rot �[31m"), Not(HasSubstr("\x1b"))));
        EXPECT_THAT(out(command), HasSubstr("rot \x1b[31m")) << "a file gets what was said";
    }

    out("ln -s ziel.txt verweis && quillmoot export Kundenportal --format text -o verweis && chmod 664 "
        "ziel.txt && "
        "quillmoot export Kundenportal --format text -o verweis");
    EXPECT_EQ(out("test -L verweis && stat -c %a ziel.txt"), "664\n");
    EXPECT_THAT(sh("quillmoot note Kundenportal 2>&- >&- <&-; quillmoot show Unbekannt 2>&-; cat '" +
                   (root() / "application.lock").string() + "'")
                    .out,
                IsEmpty());
}

TEST_F(Quillmoot, SaysWhatIsBrokenAndKeepsOutWhereAnotherProgramWorks) {
    importSample();
    const auto asApplication = "flock '" + (root() / "application.lock").string() + "' quillmoot ";
    EXPECT_EQ(err(asApplication + "pin Kundenportal"),
              "Die Meeting-Bibliothek ist bereits in einer anderen App-Ausgabe geöffnet. Bitte diese zuerst "
              "beenden.\n");
    const auto library = (root() / "library.json").string();
    out("sed -i.fertig s/completed/recording/ '" + library + "'");
    EXPECT_THAT(out(asApplication + "show Kundenportal"), HasSubstr("wird aufgenommen"));
    EXPECT_THAT(out(asApplication + "list && mv '" + library + ".fertig' '" + library + "'"),
                HasSubstr("Aufnahme läuft"));
    writeFile(root() / ".library.json.3B241101-E2BB-4255-8CAF-4136C566A962.tmp", "Rest");
    out("cd '" + (root() / "Meetings").string() +
        "'/* && mkdir .Transkription.X.partial && touch .Transkription.X.partial/audio.wav");
    EXPECT_THAT(out("quillmoot doctor"),
                HasSubstr("2 Reste unterbrochener Schreibvorgänge. (--repair räumt sie weg)"));
    EXPECT_THAT(out("quillmoot doctor --repair"),
                HasSubstr("2 Reste unterbrochener Schreibvorgänge entfernt."));
    EXPECT_FALSE(fs::exists(root() / ".library.json.3B241101-E2BB-4255-8CAF-4136C566A962.tmp"));
    // A removal that was cut off while it gathered the audio is taken back by the next command that changes
    // things.
    out("cd '" + (root() / "Meetings").string() +
        "'/* && mkdir .Audio-entfernen-X spaet.partial && mv *.chunk .Audio-entfernen-X/ && " +
        R"(echo '{"removedAt":"2026-03-14T09:26:53Z"}' >audio-removed.json)");
    EXPECT_THAT(out("quillmoot doctor"), HasSubstr("Unterbrochenes Entfernen: „Kundenportal“"));
    EXPECT_THAT(sh("quillmoot pin Kundenportal").err,
                HasSubstr("Entfernen von Audio zurückgenommen: Kundenportal"));
    EXPECT_THAT(out("quillmoot audio Kundenportal"), HasSubstr("Audio/meeting.wav"));
    // One that had gathered all is brought to an end, and the library told of it.
    out("cd '" + (root() / "Meetings").string() +
        "'/* && mkdir .Audio-entfernen-X && mv *.chunk *.partial Audio .Audio-entfernen-X/ && " +
        R"(echo '{"removedAt":"2026-03-14T09:26:53Z"}' >audio-removed.json)");
    EXPECT_THAT(out("quillmoot doctor --repair"),
                HasSubstr("Unterbrochenes Entfernen beendet: „Kundenportal“"));
    EXPECT_THAT(out("cat '" + (root() / "Meetings").string() + "'/*/events.json"), HasSubstr("audioRemoved"));
    // Recordings without a library come back, under their manifests' titles.
    fs::rename(root() / "library.json", here() / "verloren.json");
    EXPECT_THAT(out("quillmoot doctor"), HasSubstr("1 Meeting fehlt in der Bibliothek"));
    EXPECT_THAT(out("quillmoot doctor --repair && quillmoot list"), HasSubstr("Kundenportal"));
    // A damaged file is taken as far as it goes, and not in silence; a device is written to and not replaced.
    out("head -c 30000 microphone.ogg >kurz.ogg && mkfifo rohr && (cat rohr >aus &) && "
        "quillmoot export Kundenportal --format text -o rohr && test -p rohr");
    EXPECT_THAT(sh("quillmoot import --title Kurz --microphone kurz.ogg").err, HasSubstr("bricht ab"));
    EXPECT_THAT(err("quillmoot data-folder /dev/null/x"), Not(IsEmpty()));
}

TEST_F(Quillmoot, CoversUpNothingThatIsLost) {
    importSample();
    importTexts();
    EXPECT_THAT(err("quillmoot jobs Kundenportal restart"), HasSubstr("bis dahin gilt der bisherige Text"));
    out("quillmoot correct Kundenportal 1 Eins");
    EXPECT_THAT(err("quillmoot jobs Kundenportal restart"), HasSubstr("1 Korrektur passt danach"));
    out("sed 's/00:00:0/00:00:1/g' microphone.vtt >anders.vtt");
    EXPECT_THAT(sh("quillmoot transcript import Kundenportal --source microphone anders.vtt --replace").err,
                HasSubstr("1 Korrektur gilt nicht mehr"));
    EXPECT_THAT(err("quillmoot transcript import Kundenportal --source microphone microphone.vtt"),
                HasSubstr("schon transkribiert.\nMit --replace"));
    // A title that cannot be given to the meeting is shown all the same.
    const auto elsewhere = "flock '" + (root() / "application.lock").string() + "' quillmoot ";
    const auto title = sh(elsewhere + "title Kundenportal --engine extractive");
    EXPECT_EQ(title.status, 1);
    EXPECT_THAT(title.out, Not(IsEmpty()));

    // Audio of which something is missing stays until the user says otherwise.
    out("quillmoot retention 1 && mv $(ls -d ../data/*/Meetings/*/*.chunk | head -n 1) chunk");
    for (const auto* const command : {"remove-audio Kundenportal", "retention --apply"})
        EXPECT_THAT(err(std::string("quillmoot ") + command), HasSubstr("Vom Audio fehlt etwas")) << command;
    EXPECT_EQ(out("ls -d ../data/*/Meetings/*/*.chunk | wc -l"), "13\n");

    // A lost database is not covered up by an empty one, which would also take the rest of it.
    out("mv ../data/*/quillmoot.sqlite weg && touch ../data/Quillstead/quillmoot.sqlite-wal");
    for (const auto* const command :
         {"summarize Kundenportal", "transcribe Kundenportal --engine true", "jobs Kundenportal retry",
          "correct Kundenportal 1 x", "list", "show Kundenportal", "transcript Kundenportal", "search Euro",
          "export Kundenportal --format text"}) {
        EXPECT_THAT(err(std::string("quillmoot ") + command), HasSubstr("fehlt „quillmoot.sqlite“")) << command;
        EXPECT_FALSE(fs::exists(root() / "quillmoot.sqlite")) << command;
    }
    writeFile(root() / "quillmoot.sqlite", "");  // what tools that synchronise may leave of it
    EXPECT_THAT(err("quillmoot list"), HasSubstr("fehlt „quillmoot.sqlite“"));
    EXPECT_THAT(sh("quillmoot audio Kundenportal").err, HasSubstr("1 Audioabschnitt fehlt"));
    out("sed -i s/completed/interrupted/ ../data/*/library.json");
    err("quillmoot doctor --repair");
    EXPECT_THAT(out("ls ../data/*"), AllOf(HasSubstr("quillmoot.sqlite-wal."), HasSubstr(".bak")));
}

TEST_F(Quillmoot, TakesTheOnlyTrackForTheOneThatIsMeant) {
    out("quillmoot import --title Vorort --microphone microphone.ogg && "
        "quillmoot transcript import Vorort --source microphone microphone.vtt");
    EXPECT_THAT(err("quillmoot speakers import Vorort speakers.rttm --source meeting"),
                HasSubstr("Der Meeting-Ton hat in diesem Meeting keine Audioabschnitte."));
    out("sed 's/ [a-z]* 1 / raum 1 /' speakers.rttm >raum.rttm");
    EXPECT_THAT(sh("quillmoot speakers import Vorort raum.rttm").err, HasSubstr("Mikrofon: "));
}

TEST(Demo, TakesTheSampleFromItsFilesToSummaryTitleAndPage) {
    const TemporaryFolder folder;
    const auto root = folder.path() / "Daten";
    const auto programs = fs::path(MEETING_quillmoot_PATH).parent_path();
    const auto run = [&] {
        return runProcess(MEETING_SOURCE_FOLDER "/Samples/demo", {programs, "--root", root},
                          {{"MEETING_MODELS", "/fehlt"}});
    };
    const auto first = run();
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_THAT(first.out, AllOf(HasSubstr("Stellvertreter"), HasSubstr("\nJana Keller  10:00:00\n"),
                                 HasSubstr("Wettermann"), Not(HasSubstr("\x1b"))));
    EXPECT_THAT(contentOf(root / "kundenportal.html"), HasSubstr("Meral Aydın"));
    EXPECT_THAT(run().err, HasSubstr("ist nicht leer"));
}

}  // namespace
}  // namespace meetingcore::testing
