#include <random>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Summary/ExtractiveSummarizer.h"
#include "MeetingCore/Summary/SummaryRun.h"
#include "Support/MarkedMeeting.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

/// "Anna: …" lines, a speaker for each name.
TranscriptDocument conversation(const std::vector<std::string>& lines) {
    TranscriptDocument document;
    DiarizationResult diarization{1, UUID::random(), UUID::random(), true, {}};
    for (const auto& line : lines) {
        const auto colon = line.find(": ");
        const auto name = line.substr(0, colon);
        document.edits.speakerNames[name] = name;
        const auto start = 5.0 * static_cast<double>(document.segments.size());
        document.segments.push_back(
            {UUID::random(), start, start + 4, AudioSource::meeting, name, line.substr(colon + 2)});
    }
    document.edits.speakerGeneration = diarization.generation;
    document.diarization = diarization;
    return document;
}

/// The points of one kind, as "text (segments) owner, due".
std::vector<std::string> told(const std::vector<RawBullet>& bullets) {
    std::vector<std::string> list;
    for (const auto& bullet : bullets) {
        auto line = bullet.text + " (";
        for (const auto& id : bullet.ids) line += (line.ends_with('(') ? "" : " ") + id;
        line += ")";
        if (bullet.owner) line += " " + *bullet.owner;
        if (bullet.dueDate) line += ", " + *bullet.dueDate;
        list.push_back(line);
    }
    return list;
}

struct Case {
    std::vector<std::string> lines;
    std::vector<std::string> points;
};

void expect(std::vector<RawBullet> RawSummary::*kind, const std::vector<Case>& cases) {
    for (const auto& [lines, points] : cases) {
        const auto document = conversation(lines);
        const auto raw = ExtractiveSummarizer().points(document);
        EXPECT_EQ(told(raw.*kind), points) << lines[0];
        EXPECT_NO_THROW(SourceTable(document).checked(raw)) << lines[0];
    }
}

TEST(ExtractiveSummarizer, FindsTasksWithOwnerAndDateOnlyWhereTheyAreSaid) {
    expect(&RawSummary::tasks,
           {{{"Anna: Ben, kannst du bitte den Lieferanten anrufen?", "Ben: Ja, mach ich bis Freitag."},
             {"Ben, kannst du bitte den Lieferanten anrufen? (s1 s2) Ben, bis Freitag"}},
            {{"Anna: Den Vertrag schicke ich Ihnen bis zum zwölften März."},
             {"Den Vertrag schicke ich Ihnen bis zum zwölften März. (s1), bis zum zwölften März"}},
            {{"Anna: Um die Einladung kümmert sich Ben.", "Ben: Gern."},
             {"Um die Einladung kümmert sich Ben. (s1) Ben"}},
            {{"Anna: Da kümmer i mi drum, des mach i glei morgen."},
             {"Da kümmer i mi drum, des mach i glei morgen. (s1), morgen"}},
            {{"Anna: Herr Kunz, prüfen Sie bitte den Anschluss.", "Kunz: Mach ich."},
             {"Herr Kunz, prüfen Sie bitte den Anschluss. (s1 s2) Herr Kunz"}},
            {{"Anna: Ben, die Schulung, das wäre doch was für dich, oder?",
              "Ben: Ja, gut. Die mache ich in der ersten Januarwoche."},
             {"Die mache ich in der ersten Januarwoche. (s1 s2) Ben"}}});
}

TEST(ExtractiveSummarizer, TakesNoTaskFromWhatIsDeniedSupposedPastOrPoliteness) {
    for (const auto* sentence :
         {"Ich übernehme das nicht.", "Wenn ich Zeit hätte, würde ich das machen.",
          "Ich habe die Mail gestern geschickt.", "Ich glaube, dass ich das mache.", "Ich finde das gut.",
          "Ich sage nur, dass es teurer wird.", "Mach's gut.", "Ich schicke das seit Jahren jeden Monat."}) {
        EXPECT_THAT(told(ExtractiveSummarizer().points(conversation({std::string("Anna: ") + sentence})).tasks),
                    IsEmpty())
            << sentence;
    }
}

TEST(ExtractiveSummarizer, FindsDecisionsAndNotWhatWasOnlyProposedOrDecidedEarlier) {
    expect(&RawSummary::decisions,
           {{{"Anna: Gut, dann halten wir das fest, wir starten ohne die Bestellung.", "Ben: Einverstanden."},
             {"Gut, dann halten wir das fest, wir starten ohne die Bestellung. (s1 s2)"}},
            {{"Anna: Was haltet ihr vom neunzehnten Oktober?", "Ben: Passt gut.",
              "Anna: Okay, dann also der neunzehnte Oktober."},
             {"Okay, dann also der neunzehnte Oktober. (s3)"}},
            {{"Anna: Wir könnten die kleine Anlage nehmen.", "Ben: Die kleine reicht.", "Clara: Von mir aus.",
              "Anna: Gut, also die kleine.", "Anna: Nächster Punkt, der Katalog."},
             {"Gut, also die kleine. (s2 s3 s4)"}},
            {{"Anna: Man könnte das Fest auch verschieben.",
              "Ben: Nein, das Fest bleibt, das verschieben wir nicht."},
             {"Nein, das Fest bleibt, das verschieben wir nicht. (s2)"}},
            {{"Anna: Wir sind vollständig, dann legen wir los.", "Ben: Guten Morgen.",
              "Anna: Schreib bitte noch die Nummer dazu.", "Ben: Schreibe ich rein, versprochen.",
              "Anna: Okay. Dann zur Sicherheitsprüfung.", "Ben: Die ist im Herbst."},
             {}},
            {{"Anna: Letzte Woche haben wir den Umzug beschlossen."}, {}},
            {{"Anna: Wir haben noch nicht beschlossen, ob wir umziehen."}, {}},
            {{"Anna: Vielleicht verschieben wir das Fest.", "Ben: Nein."}, {}},
            {{"Anna: Verschieben wir das Fest auf Mai?", "Ben: Nein, lieber nicht."}, {}}});
}

TEST(ExtractiveSummarizer, TellsQuestionsLeftOpenFromThoseAnswered) {
    expect(
        &RawSummary::openQuestions,
        {{{"Anna: Wer beantwortet die Anfragen am Abend?", "Ben: Das kann dir im Moment keiner sagen.",
           "Anna: Dann bleibt das offen."},
          {"Wer beantwortet die Anfragen am Abend? (s1)"}},
         {{"Anna: Wer beantwortet die Anfragen am Abend?", "Ben: Der Kundendienst in Kassel."}, {}},
         {{"Anna: Erscheint der Rabatt im Portal?",
           "Ben: Das weiß ich leider nicht, das müssen wir noch klären.", "Anna: Gut, dann bleibt das offen."},
          {"Erscheint der Rabatt im Portal? (s1)"}}});
}

/// Words that make up cues, and what no rule has in mind.
TranscriptDocument randomDocument(std::mt19937& random, std::size_t segments) {
    static const auto pieces = split(
        "ich|dann|machen wir|schicke|dir|bis Freitag|Wer|offen|nicht|Anna|Vertrag|kümmert sich|weiß|?|.|,|!|…|"
        "beschlossen||👩‍👩‍👧‍👦|e\u0301|\xff\xfe|\u200b|\t\n|مرحبا|ǅ ẞ "
        "İ|\u00ad\u2028|z.B.|3.5");
    TranscriptDocument document;
    for (std::size_t i = 0; i < segments; ++i) {
        std::string text(random() % 8 == 0 ? 400 : 0, ' ');
        for (auto words = random() % 30; words > 0; --words) text += pieces[random() % pieces.size()] + " ";
        const auto start = static_cast<double>(i);
        document.segments.push_back({UUID::random(), start, start + 1, AudioSource::meeting,
                                     random() % 2 ? std::optional<std::string>("1") : std::nullopt, text});
    }
    document.edits.speakerNames["1"] = "Anna Öz";
    return document;
}

void expectEvidence(const TranscriptDocument& document) {
    const ExtractiveSummarizer engine;
    const auto raw = engine.points(document);
    EXPECT_EQ(engine.points(document), raw) << "the same transcript, the same points";
    const auto summary = engine.summarize(document);  // checked: sources, quotes, owners, dates
    for (const auto* list : {&summary.overview, &summary.decisions, &summary.tasks, &summary.openQuestions}) {
        for (const auto& point : *list) {
            const bool said =
                std::any_of(document.segments.begin(), document.segments.end(), [&](const auto& segment) {
                    return segment.text.find(point.text) != std::string::npos &&
                           std::count(point.sourceSegmentIDs.begin(), point.sourceSegmentIDs.end(),
                                      segment.id) == 1;
                });
            EXPECT_TRUE(said) << point.text;
            EXPECT_LE(point.sourceSegmentIDs.size(), 3U);
        }
    }
    EXPECT_NO_THROW(MeetingTitleArtifact::make("", engine.title(document)));
}

TEST(ExtractiveSummarizer, CitesWhatWasSaidWhateverTheTranscript) {
    std::mt19937 random(7);
    for (int round = 0; round < 150; ++round) expectEvidence(randomDocument(random, random() % 40));
    expectEvidence({});
    expectEvidence(conversation({"A: "}));
    expectEvidence(conversation({"A: Ja."}));
    std::string endless;
    while (endless.size() < 300'000) endless += "dann schicke ich Anna das Angebot ";
    expectEvidence(conversation({"A: " + endless, "B: Mach ich.", "A: " + std::string(1'000'000, 'x')}));
}

TEST(ExtractiveSummarizer, NamesTheTopicsInTheTitle) {
    EXPECT_EQ(ExtractiveSummarizer().title(
                  conversation({"A: Beim Kundenportal fehlt noch die Freigabe, sagt Anna.",
                                "B: Das neue Kundenportal braucht die Freigabe.",
                                "A: Ohne Freigabe geht das Kundenportal nicht an den Start."})),
              "Kundenportal und Freigabe");
    EXPECT_EQ(ExtractiveSummarizer().title(conversation({"A: Ja.", "B: Hm."})),
              "Gespräch ohne erkennbares Thema");
}

TEST(ExtractiveSummarizer, ServesTheContractOfASummarizingEngine) {
    const auto document = conversation(
        {"A: Dann halten wir den Umzug im Mai fest.", "B: Ich schicke Ihnen den Plan bis Freitag."});
    ExtractiveSummarizer engine;
    Summarizing& contract = engine;
    const auto summary = contract.summarize(document.segments).get();
    ASSERT_EQ(summary.decisions.size(), 1U);
    EXPECT_EQ(summary.decisions[0].sourceSegmentIDs, std::vector{document.segments[0].id});
    ASSERT_EQ(summary.tasks.size(), 1U);
    EXPECT_EQ(summary.tasks[0].dueDate, "bis Freitag");
}

TEST(SummaryRun, ServesAnEngineThatFollowsNoInstructions) {
    TestMeeting meeting({"Dann halten wir den Umzug im Mai fest.", "Einverstanden."});
    const SummaryRun run(meeting.session, meeting.root.path());
    EXPECT_THROW(SummaryRun(meeting.session, meeting.root.path()), MeetingError) << "one run per library";
    const auto summary = ExtractiveSummarizer().summarize(run.document());
    run.writeSummary(summary, std::nullopt);
    const auto written =
        TranscriptStorage::readOptional<SummaryArtifact>(meeting.folder / "summary.json").value();
    EXPECT_EQ(written.summary, summary);
    EXPECT_EQ(written.instructions, std::nullopt);
}

TEST(ExtractiveSummarizer, StaysAsGoodAsItWasOnTheMeetingsItWasMadeWith) {
    constexpr std::array floors{std::pair(0.7, 0.85), std::pair(0.85, 0.85), std::pair(0.75, 0.6),
                                std::pair(0.7, 0.55)};
    std::array<Agreement, 4> total;
    for (const auto* name : MarkedMeeting::developed) {
        const auto meeting = MarkedMeeting::load(fs::path(MEETING_SOURCE_FOLDER "/Samples/Meetings") / name);
        const auto found = agreement(meeting, ExtractiveSummarizer().summarize(meeting.document));
        for (std::size_t kind = 0; kind < total.size(); ++kind) total[kind].add(found[kind]);
    }
    for (std::size_t kind = 0; kind < total.size(); ++kind) {
        EXPECT_GE(total[kind].precision(), floors[kind].first) << MarkedMeeting::kindNames[kind];
        EXPECT_GE(total[kind].recall(), floors[kind].second) << MarkedMeeting::kindNames[kind];
    }
}

}  // namespace
}  // namespace meetingcore::testing
