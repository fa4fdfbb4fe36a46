#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unicode/ubrk.h>
#include <unicode/ustring.h>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/NumberText.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/Models.h"
#include "Support/ForkedProcess.h"
#include "Support/Testing.h"

namespace meetingcore {
namespace {

struct Item {
    std::string text;
    std::optional<double> weight;
    bool operator==(const Item&) const = default;
};

struct Sample {
    std::int64_t count = 0;
    double number = 0;
    float level = 0;
    bool flag = false;
    UUID id;
    Date date;
    AudioSource source = AudioSource::microphone;
    std::optional<std::string> note;
    std::vector<Item> items;
    std::map<std::string, std::int64_t> counts;
    bool operator==(const Sample&) const = default;
};

}  // namespace

template <>
inline constexpr auto json::fields<Item> = json::record(json::field("text", &Item::text),
                                                        json::field("weight", &Item::weight));
template <>
inline constexpr auto json::fields<Sample> =
    json::record(json::field("count", &Sample::count), json::field("number", &Sample::number),
                 json::field("a10", &Sample::level), json::field("a2", &Sample::flag),
                 json::field("ä", &Sample::id), json::field("Date", &Sample::date),
                 json::field("source", &Sample::source), json::field("note", &Sample::note),
                 json::field("items", &Sample::items), json::field("counts", &Sample::counts));

namespace testing {
namespace {

using namespace std::string_literals;

const UUID someID = UUID::parse("aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee").value();
// clang-format off
const Sample sample{-3, 0.1, 0.99F, true, someID, Date::since1970(1'700'000'000.25), AudioSource::meeting,
                    "Q3/Q4 \"😀\"", {{"eins", 2.0}, {"zwei\n", std::nullopt}}, {{"b", 1}, {"B", 2}}};
// clang-format on
const std::string sampleText =
    R"({"count":-3,"number":0.1,"a10":0.99,"a2":true,"ä":"AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE",)"
    R"("Date":721692800.25,"source":"meeting","note":"Q3\/Q4 \"😀\"",)"
    R"("items":[{"text":"eins","weight":2},{"text":"zwei\n"}],"counts":{"B":2,"b":1}})";

TEST(JSONWriter, WritesEveryTypeCompactInDeclaredOrSortedOrderWithoutAbsentOptionals) {
    EXPECT_EQ(json::encode(sample), sampleText);
    EXPECT_EQ(json::decode<Sample>(sampleText, "x"), sample);
    auto without = sample;
    without.note = std::nullopt;
    EXPECT_THAT(json::encode(without), Not(HasSubstr("note")));
    EXPECT_EQ(
        json::encode(Sample{}, json::Keys::sorted),
        R"({"Date":0,"a10":0,"a2":false,"count":0,"counts":{},"items":[],"number":0,"source":"microphone",)"
        R"("ä":"00000000-0000-0000-0000-000000000000"})");
    EXPECT_EQ(json::encode("\"\\/\b\f\n\r\t\x01\x1f\0|\x7fü\u2028<>'😀"s),
              "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\\u0000|\x7fü\u2028<>'😀\"");
}

TEST(JSONWriter, WritesNumbersInTheirShortestForm) {
    for (const auto& text : split("12|0|-0|0.1|-721692800.25|0.0001|9.999999999999999e-05|1e-05|-1.5e-07|"
                                  "1000000000000000|9007199254740991|9007199254740992|"
                                  "-9.007199254740994e+15|1e+16|1e+300|5e-324"))
        EXPECT_EQ(json::encode(std::strtod(text.c_str(), nullptr)), text);
    for (const auto& text : split("2.1|3|0.99|0.0001|1e-05")) EXPECT_EQ(json::encode(std::stof(text)), text);
    for (const auto& text : split("60.0|1700000000.123456|1e+16|-0.0|1e-05|9007199254740992.0|inf"))
        EXPECT_EQ(number::plain(std::stod(text)), text);
    EXPECT_EQ(json::encode(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    for (const double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        const auto encode = [&] { json::encode(value); };
        EXPECT_EQ(failureOf(encode), "Eine Zahl ist nicht endlich und kann nicht gespeichert werden.");
    }
}

TEST(JSONWriter, RefusesTextThatItCouldNotReadBack) {
    for (const char* text : {"Notiz \xFF", "\xC3", "\xED\xA0\x80", "\xC0\xAF"}) {
        EXPECT_EQ(failureOf([&] { json::encode(std::string(text)); }),
                  "Ein Text enthält ungültige Zeichen und kann nicht gespeichert werden.");
    }
}

TEST(JSONWriter, EveryDoubleReadsBackToTheSameBits) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 20'000; ++i) {
        // Half of them any bits at all, half in the range of times.
        const auto bits = random();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        if (i % 2 == 0) value = std::ldexp(static_cast<double>(bits >> 11U), -38);
        if (!std::isfinite(value)) continue;
        ASSERT_EQ(json::decode<double>(json::encode(value), "x"), value) << json::encode(value);
    }
}

const std::string refusedTexts =
    R"(| |01|-01|00|1.|.5|+1|-|1e|1e+|NaN|Infinity|-Infinity|1e400|-1e400|0x10|nul|nulll|tru|truex|falsey|None)"
    R"(|'a'|"abc|abc"|"\x"|"\"|"\u12G4"|"\u12"|"\ud800"|"\udc00"|"\ud800\u0041"|"\ud800x"|// c)"
    "\n1|\"\x01\"|\"a\nb\"|\"\t\"|\"\0\"|\"\xff\"|\"\xc0\xaf\"|\"\xed\xa0\x80\"|\"\xc3\"|\"\xf4\x90\x80\x80\""
    R"(|1 // c|/* c */ 1|{a:1}|{'a':1}|{"a":1,}|{"a"}|{"a":}|{"a" 1}|{,}|{"a":1 "b":2}|{1:2}|{"\ud800":1}|[1,])"
    R"(|[,1]|[1 2]|[|]|{|}|[1}|[1]]|[[1]|1 2|{} {}|{"a":1}x|"a" "b"|true false|,|:|\u0031)"
    "|\0|1\0|1\x0b|1\u00A0|\xEF\xBB\xBF|\xEF\xBB\xBF\xEF\xBB\xBF|\xFE\xFF"s;
const std::string acceptedTexts =
    R"(3|-0|0|1E+2|1e-2|0.5|"x"|""|true|false|null| 3 |{}|[[],{}]|{"a":{"b":[null,{"c":"d"}]}}|{"a":1,"a":2})"
    R"(|"\ud83d\ude00"|"\u0000"|"\/\b\f"|9223372036854775808|123456789012345678901234567890|{"\u0061":1})"
    "|\t\r\n[ ]\n|\"\x7f\"|\"\u2028\"|\"\xed\x9f\xbf\"";

TEST(JSONReader, IsAsStrictAsThePlatformsDecoder) {
    const auto surrounded = [](const std::string& value) {
        return R"({"unknown":)" + value + R"(,"text":"t"})";
    };
    for (const auto& text : split(refusedTexts)) {
        EXPECT_FALSE(json::isValid(text)) << text;
        EXPECT_FALSE(json::isValid("[" + text + ",1]")) << text;
        EXPECT_THAT(failureOf([&] { json::decode<Item>(surrounded(text), "Die Datei"); }),
                    HasSubstr("Die Datei ist kein gültiges JSON"))
            << text;
    }
    for (const auto& text : split(acceptedTexts)) {
        EXPECT_TRUE(json::isValid(text)) << text;
        EXPECT_TRUE(json::isValid("\xEF\xBB\xBF" + text)) << text;
        EXPECT_EQ(json::decode<Item>(surrounded(text), "x").text, "t") << text;
    }
}

template <class T>
std::optional<T> decoded(const std::string& text) {
    try {
        const auto value = json::decode<T>(" " + text + "\n", "x");
        EXPECT_EQ(json::decode<std::vector<T>>("[" + text + " ]", "x").at(0), value);
        return value;
    } catch (const MeetingError&) {
        EXPECT_THROW(json::decode<std::vector<T>>("[" + text + "]", "x"), MeetingError) << text;
        return std::nullopt;
    }
}

TEST(JSONReader, AcceptsOnlyValuesOfTheFieldsType) {
    using Integer = std::numeric_limits<std::int64_t>;
    // clang-format off
    const std::vector<std::pair<std::string, std::int64_t>> integers = {
        {"1.0", 1}, {"1e2", 100}, {"-0", 0},
        {"9223372036854775807", Integer::max()}, {"-9223372036854775808", Integer::min()}};
    // clang-format on
    for (const auto& [text, value] : integers) EXPECT_EQ(decoded<std::int64_t>(text), value) << text;
    for (const auto& text : split(R"(1.5|1e-1|"1"|9223372036854775808|1e19|01|1.|true|null|[1])"))
        EXPECT_EQ(decoded<std::int64_t>(text), std::nullopt) << text;
    EXPECT_EQ(decoded<bool>("true"), true);
    for (const auto& text : split(R"(1|0|"true"|null|truth)")) EXPECT_EQ(decoded<bool>(text), std::nullopt);
    EXPECT_EQ(decoded<UUID>(R"("aaaaaaaa-BBBB-4ccc-8ddd-eeeeeeeeeeee")"), someID);
    EXPECT_EQ(someID.string(), "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE");
    for (const auto* const text :
         {"{AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE}", " AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE", "",
          "AAAAAAAABBBB4CCC8DDDEEEEEEEEEEEE", "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEG",
          "AAAAAAAAB-BBB-4CCC-8DDD-EEEEEEEEEEEE", "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEE\\u0000"})
        EXPECT_EQ(decoded<UUID>("\""s + text + "\""), std::nullopt) << text;
    EXPECT_EQ(decoded<AudioSource>(R"("Meeting")"), std::nullopt);
    EXPECT_EQ(decoded<double>(R"("1")"), std::nullopt);
    EXPECT_EQ(decoded<float>("1e39"), std::nullopt);
    EXPECT_EQ(decoded<std::string>("3"), std::nullopt);
    EXPECT_EQ(decoded<std::string>(R"("\ud83d\ude00\u00e4\/")"), "😀ä/");
    EXPECT_EQ(decoded<Item>(R"({"te\u0078t":"t","weight":null,"unknown":{"text":"u"}})"), (Item{"t", {}}));
}

TEST(JSONReader, NamesTheFieldInGerman) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{}", " ist unvollständig: Das Feld „count“ fehlt."},
        {R"({"items":[{"text":"a"},{"weight":1}]})", " ist unvollständig: Das Feld „items[1].text“ fehlt."},
        {R"({"items":[{"text":3}]})", " enthält einen unzulässigen Wert (Feld „items[0].text“)."},
        {R"({"count":null})", " enthält einen unzulässigen Wert (Feld „count“)."},
        {R"({"counts":{"mic:1":"x"}})", " enthält einen unzulässigen Wert (Feld „counts.mic:1“)."},
        {R"({"number":1e400})", " ist kein gültiges JSON (Feld „number“)."},
        {"[]", " enthält einen unzulässigen Wert."},
        {"", " ist kein gültiges JSON."}};
    for (const auto& [text, failure] : cases)
        EXPECT_EQ(failureOf([&, &json = text] { json::decode<Sample>(json, "„a.json“"); }),
                  "„a.json“" + failure);
}

TEST(JSONReader, BoundsTheNestingInsteadOfTheStack) {
    const auto nested = [&](std::size_t count) { return repeated("[", count) + repeated("]", count); };
    EXPECT_TRUE(json::isValid(nested(512)));
    EXPECT_FALSE(json::isValid(nested(513)));
    const auto objects = repeated(R"({"a":)", 100'000) + "1" + repeated("}", 100'000);
    for (const auto& deep : {nested(100'000), repeated("[", 100'000), objects}) {
        EXPECT_FALSE(json::isValid(deep));
        for (const auto* const key : {"unknown", "text", "weight"})
            EXPECT_THROW(json::decode<Item>(R"({"text":"",")"s + key + "\":" + deep + "}", "x"), MeetingError);
        EXPECT_THROW(json::decode<Sample>(R"({"items":)" + deep + "}", "x"), MeetingError);
    }
}

TEST(JSONReader, RefusesEveryCutAndSurvivesEveryFlippedBit) {
    for (std::size_t length = 0; length < sampleText.size(); ++length) {
        const auto cut = sampleText.substr(0, length);
        EXPECT_THROW(json::decode<Sample>(cut, "x"), MeetingError) << cut;
        EXPECT_FALSE(json::isValid(cut)) << cut;
    }
    std::size_t readable = 0;
    for (std::size_t bit = 0; bit < sampleText.size() * 8; ++bit) {
        auto flipped = sampleText;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
        try {
            const auto read = json::decode<Sample>(flipped, "x");
            ++readable;
            EXPECT_TRUE(json::isValid(flipped)) << flipped;
            EXPECT_EQ(json::decode<Sample>(json::encode(read), "x"), read) << flipped;
        } catch (const MeetingError& error) {
            EXPECT_THAT(error.message(), HasSubstr("x ")) << flipped;
        }
    }
    EXPECT_GT(readable, 100U);  // digits and letters of texts
}

TEST(Text, CountsGraphemeClusters) {
    // clang-format off
    const std::vector<std::pair<std::string, std::size_t>> cases = {
        {"", 0}, {"a\r\nb", 3}, {"a\n\rb", 4}, {"e\u0301", 1}, {"\u0301e", 2}, {"ä😀", 2}, {"👨‍👩‍👧‍👦", 1},
        {"🇩🇪🇫🇷", 2}, {"👍🏽!", 2}, {"„Größe“ – 5 €", 13}, {"©\u200D™x", 2}, {"한국", 2}, {"\u1112\u1161\u11ab", 1},
        {"a\u00ADb", 3}, {"\xff\xfe", 2}, {"a\xc3", 2}};
    // clang-format on
    for (const auto& [text, count] : cases) EXPECT_EQ(text::characterCount(text), count) << text;
}

/// The clusters that ICU's own rules find, without our shortcuts.
std::size_t characterCountByRules(const std::string& text) {
    std::vector<UChar> units(text.size() + 1);
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &status);
    const std::unique_ptr<UBreakIterator, void (*)(UBreakIterator*)> iterator(
        ubrk_open(UBRK_CHARACTER, "", units.data(), length, &status), ubrk_close);
    EXPECT_TRUE(U_SUCCESS(status));
    std::size_t count = 0;
    while (ubrk_next(iterator.get()) != UBRK_DONE) ++count;
    return count;
}

TEST(Text, ShortcutsCountAndCutAsTheRulesDo) {
    const auto pieces =
        split("a|ü|\r|\n|\u0301|\u200D|😀|🇩|\u200B|–|€|©|\u1112|\u1161|\u0600|\u0903|\u00AD|\u2028");
    std::mt19937 random(11);
    for (int i = 0; i < 5000; ++i) {
        std::string text;
        for (auto length = random() % 12; length > 0; --length) text += pieces[random() % pieces.size()];
        ASSERT_EQ(text::characterCount(text), characterCountByRules(text)) << json::encode(text);
        const auto count = text::characterCount(text);
        for (std::size_t n = 0; n <= count + 1; ++n) {
            ASSERT_EQ(text::exceeds(text, n), count > n) << json::encode(text);
            const auto cut = text::prefix(text, n);
            ASSERT_TRUE(text.starts_with(cut) && (cut == text) == (n >= count)) << json::encode(text);
            ASSERT_EQ(text::characterCount(cut), std::min(n, count)) << json::encode(text);
        }
    }
}

TEST(Text, TrimsSplitsLowersAndJudgesByUnicode) {
    EXPECT_EQ(text::trimmed(" \t\r\n\u00A0\u0085\u2028\u3000\u200Ba b\u200B\n"), "a b");
    EXPECT_EQ(text::trimmed("\uFEFFa\u180E"), "\uFEFFa\u180E");
    EXPECT_THAT(text::words("\u3000a\u00A0b\u0085\u2028c\td\u200Be\uFEFF\u180E  "),
                ElementsAre("a", "b", "c", "d\u200Be\uFEFF\u180E"));
    EXPECT_EQ(text::lowercased("ΣΑΣ İ ẞ ÄÖÜß Łódź A\xff"), "σασ i\u0307 ß äöüß łódź a\xff");
    EXPECT_EQ(text::normalized(" Herr\n\n MÜLLER,\u00A0sagt "), "herr müller, sagt");
    EXPECT_EQ(text::repaired("a\xff\xc3z"), "a\uFFFD\uFFFDz");
    EXPECT_EQ(text::replacing("<<a<", "<", "<>"), "<><>a<>");
    for (const auto& text : split("a\u200Db|\u00AD|\u200B|a\tb|\n|\x7f|\u0085|\uFEFF"))
        EXPECT_TRUE(text::containsControl(text)) << json::encode(text);
    EXPECT_FALSE(text::containsControl("Größe 5 €\u2028\u00A0e\u0301😀"));
}

TEST(UUID, DerivesTheIdentifierOfANameAsOthersDo) {
    const auto dns = UUID::parse("6BA7B810-9DAD-11D1-80B4-00C04FD430C8").value();
    EXPECT_EQ(UUID::derived(dns, "www.example.com").string(), "2ED6657D-E927-568B-95E1-2665A8AEA6A2");
    EXPECT_EQ(UUID::derived(dns, "").string(), "4EBD0208-8328-5D69-8C44-EC50939C0967");
}

class FileManagerTest : public ::testing::Test {
protected:
    fs::path path(const std::string& name) const { return folder_.path() / name; }
    fs::perms permissions(const std::string& name) const { return fs::status(path(name)).permissions(); }
    std::string refusal(const std::function<void()>& call) const { return failureOf(call, Kind::storage); }

    TemporaryFolder folder_;
    FileManager& files_ = FileManager::system();
};

TEST_F(FileManagerTest, GivesFoldersAndFilesToTheOwnerAloneWhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const auto before = ::umask(mask);
        const auto folder = "umask " + std::to_string(mask);
        createDirectories(files_, path(folder + "/inner/"));
        createDirectories(files_, path(folder + "/inner"));
        for (const auto* text : {"old", "new"}) writeAtomically(files_, text, path(folder) / "inner" / "file");
        ::umask(before);
        for (const auto& name : {folder, folder + "/inner"}) EXPECT_EQ(permissions(name), fs::perms(0700));
        EXPECT_THAT(files_.list(path(folder + "/inner")), ElementsAre("file"));
    }
    const auto longest = std::string(126, 'x') + [] {
        std::string umlauts;
        for (int i = 0; i < 64; ++i) umlauts += "ö";
        return umlauts;
    }();
    writeAtomically(files_, "as long as a name can be", path(longest));
    EXPECT_EQ(contentOf(path(longest)), "as long as a name can be");
    writeFile(path("wide"), "old");
    fs::permissions(path("wide"), fs::perms(0644));
    writeAtomically(files_, "new", path("wide"));
    for (const auto* name : {"umask 0/inner/file", "umask 511/inner/file", "wide"}) {
        EXPECT_EQ(contentOf(path(name)), "new");
        EXPECT_EQ(permissions(name), fs::perms(0600));
    }
}

TEST_F(FileManagerTest, AtomicWriteThatFailsLeavesTheOldFileAndNothingElse) {
    writeFile(path("state.json"), "old");
    ForkedProcess writer([&] {
        // Stands for a full disk: the write stops in the middle of the data.
        const rlimit limit{1000, 1000};
        static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
        const auto failure =
            refusal([&] { writeAtomically(files_, std::string(5000, 'x'), path("state.json")); });
        return failure.find("kann nicht geschrieben werden: Die Datei ist zu groß") == std::string::npos ? 1
                                                                                                         : 0;
    });
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(contentOf(path("state.json")), "old");
    createDirectories(files_, path("taken") / "by a folder");
    EXPECT_THAT(refusal([&] { writeAtomically(files_, "x", path("taken")); }),
                HasSubstr("„taken“ kann nicht an ihren Platz gebracht werden: "));
    EXPECT_THAT(files_.list(folder_.path()), ElementsAre("state.json", "taken"));
}

TEST_F(FileManagerTest, ReadsPiecesOfRegularFilesOnly) {
    writeFile(path("file"), "0123456789");
    EXPECT_EQ(files_.read(path("file"), 0, 100), "0123456789");
    EXPECT_EQ(files_.read(path("file"), 3, 4), "3456");
    for (const std::uint64_t offset : {10U, 99U}) EXPECT_EQ(files_.read(path("file"), offset, 4), "");
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    for (const auto& name : {"pipe", "."})
        EXPECT_THAT(refusal([&] { files_.read(path(name), 0, 10); }),
                    HasSubstr("ist keine gewöhnliche Datei."));
    EXPECT_EQ(refusal([&] { files_.read(path("none"), 0, 10); }),
              "„none“ kann nicht geöffnet werden: Datei oder Ordner nicht vorhanden.");
    EXPECT_EQ(systemErrorText(9999), "Systemfehler 9999.");
}

TEST_F(FileManagerTest, SeesAndTakesNamesWithoutFollowingLinks) {
    writeFile(path("file"), "12345");
    fs::create_symlink("nowhere", path("link"));
    createDirectories(files_, path("Ä"));
    for (const std::string name : {"file", "link", "Ä"})
        EXPECT_EQ(refusal([&] { files_.createFile(path(name)); }),
                  "Datei konnte nicht angelegt werden: " + name);
    for (const auto& name : {"file/sub", "file"})
        EXPECT_THAT(refusal([&] { createDirectories(files_, path(name)); }),
                    HasSubstr("„file“ kann nicht angelegt werden: Der Name ist schon vergeben."));
    EXPECT_FALSE(fs::exists(path("nowhere")));
    EXPECT_FALSE(pathExists(path("link")));
    EXPECT_EQ(files_.status(path("file"))->kind, FileStatus::Kind::file);
    EXPECT_EQ(files_.status(path("file"))->size, 5U);
    EXPECT_EQ(files_.status(path("link"))->kind, FileStatus::Kind::symbolicLink);
    EXPECT_EQ(files_.status(path("Ä"))->kind, FileStatus::Kind::directory);
    for (const auto& name : {"none", "file/none"}) EXPECT_EQ(files_.status(path(name)), std::nullopt);
    EXPECT_THAT(files_.list(folder_.path()), ElementsAre("file", "link", "Ä"));
    files_.move(path("file"), path("link"));
    EXPECT_EQ(contentOf(path("link")), "12345");
    for (const auto& name : {"link", "Ä"}) files_.remove(path(name));
    EXPECT_THAT(files_.list(folder_.path()), IsEmpty());
}

}  // namespace
}  // namespace testing
}  // namespace meetingcore
