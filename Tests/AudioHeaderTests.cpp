#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <tuple>
#include <vector>

#include "Quillmoot/AudioFile.h"
#include "Quillmoot/AudioHeader.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using quillmoot::AnnouncedSize;
using Size = std::optional<std::uint64_t>;  ///< the right one where it is not given

constexpr std::uint64_t most = ~0ULL;
constexpr std::uint64_t samples = 50'000;
const std::string sound = repeated("\x01\x02", samples);

std::string little(std::uint64_t number, std::size_t bytes = 4) {
    std::string text;
    for (; bytes > 0; --bytes, number >>= 8U) text += static_cast<char>(number & 0xFFU);
    return text;
}

std::string big(std::uint64_t number, std::size_t bytes = 4) {
    auto text = little(number, bytes);
    return {text.rbegin(), text.rend()};
}

// Files of 16 kHz mono with 16 bits: what their headers say of the file's size and of the sound's.

using Number = std::string (*)(std::uint64_t number, std::size_t bytes);

std::string formatOfWAV(Number number) {
    return number(1, 2) + number(1, 2) + number(16'000, 4) + number(32'000, 4) + number(2, 2) + number(16, 2);
}

std::string waveFile(const char* name, Number number, Size size, Size ofSound, const std::string& before = "",
                     const std::string& after = "") {
    const auto content = "WAVEfmt " + number(16, 4) + formatOfWAV(number) + before + "data" +
                         number(ofSound.value_or(sound.size()), 4) + sound + after;
    return name + number(size.value_or(content.size()), 4) + content;
}

std::string riff(Size size, Size ofSound) { return waveFile("RIFF", little, size, ofSound); }
std::string rifx(Size size, Size ofSound) { return waveFile("RIFX", big, size, ofSound); }

std::string rf64(Size size, Size ofSound) {
    const auto rest = little(samples, 8) + little(0) + "fmt " + little(16) + formatOfWAV(little) + "data" +
                      little(most) + sound;
    return "RF64" + little(most) + "WAVEds64" + little(28) + little(size.value_or(28 + rest.size()), 8) +
           little(ofSound.value_or(sound.size()), 8) + rest;
}

std::string w64(Size size, Size ofSound) {
    const std::string id = "\xF3\xAC\xD3\x11\x8C\xD1" + std::string("\0\xC0\x4F\x8E\xDB\x8A", 6);
    const auto rest = "wave" + id + "fmt " + id + little(40, 8) + formatOfWAV(little) + "data" + id +
                      little(ofSound.value_or(24 + sound.size()), 8) + sound;
    return "riff\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1" + std::string(2, '\0') +
           little(size.value_or(24 + rest.size()), 8) + rest;
}

std::string aiff(Size size, Size ofSound) {
    const auto content = "AIFFCOMM" + big(18) + big(1, 2) + big(ofSound.value_or(2 * samples) / 2) +
                         big(16, 2) + "\x40\x0C\xFA" + std::string(7, '\0') + "SSND" +
                         big(ofSound ? *ofSound : 8 + sound.size()) + std::string(8, '\0') + sound;
    return "FORM" + big(size.value_or(content.size())) + content;
}

std::string auFile(const char* name, Number number, Size size) {
    return name + number(24, 4) + number(size.value_or(sound.size()), 4) + number(3, 4) + number(16'000, 4) +
           number(1, 4) + sound;
}

std::string au(Size size, Size /*the same*/) { return auFile(".snd", big, size); }
std::string auOfLittle(Size size, Size /*the same*/) { return auFile("dns.", little, size); }

using Format = std::string (*)(Size size, Size ofSound);
const std::vector<std::pair<std::string, Format>> formats{{"RIFF", riff},     {"RIFX", rifx}, {"RF64", rf64},
                                                          {"W64", w64},       {"AIFF", aiff}, {"AU", au},
                                                          {"dns", auOfLittle}};

/// What becomes of the file: "whole", "cut off", both with the number of samples where it is not that of the
/// sound, "longer", or "refused" for another reason.
std::string outcomeOfFile(const std::string& bytes) {
    const TemporaryFolder folder;
    writeFile(folder.path() / "ton", bytes);
    std::string outcome;
    const auto failure = failureOf([&] {
        quillmoot::AudioFile file(folder.path() / "ton");
        std::vector<std::int16_t> buffer(2 * samples);
        std::size_t count = 0;
        while (const auto more = file.read(buffer)) count += more;
        outcome = file.isCutOff() ? "cut off" : "whole";
        if (count != samples) outcome += " " + std::to_string(count);
    });
    if (failure == noFailure) return outcome;
    return failure.find("länger, als ihr Kopf angibt") != std::string::npos ? "longer" : "refused";
}

TEST(AudioFile, TakesNoPartForTheWholeAndNoWholeForAPart) {
    struct Case {
        const char* sizes;
        std::function<std::string(Format)> file;
        std::string outcome;
        std::map<std::string, std::string> others;  ///< of single formats
    };
    const std::string more(70'000, '\0');
    // libsndfile hears W64 to the end of the file, whatever the header says.
    const std::vector<Case> cases{
        {"right", [](Format of) { return of({}, {}); }, "whole", {}},
        {"that count all of the header in",
         [](Format of) { return of(of({}, {}).size(), {}); },
         "whole",
         {{"AU", "cut off"}, {"dns", "cut off"}}},
        {"of the sound alone",
         [](Format of) { return of(0, {}); },
         "whole",
         {{"AU", "longer"}, {"dns", "longer"}}},
        {"none, as a recorder that died leaves them",
         [](Format of) { return of(0, 0); },
         "longer",
         {{"W64", "whole"}, {"AIFF", "whole"}}},
        {"of the beginning, as at its last flush",
         [](Format of) { return of(1036, 1000); },
         "longer",
         {{"W64", "whole"}}},
        {"of what went through a pipe",
         [](Format of) { return of(most, most); },
         "whole",
         {{"RF64", "refused"}}},
        {"of what went through a pipe, with a sign",
         [](Format of) { return of(0x7FFFF000, 0x7FFFF000); },
         "whole",
         {{"RF64", "cut off"}, {"W64", "cut off"}}},
        {"of another file", [](Format of) { return of(1'000'000, 1'000'000); }, "cut off", {}},
        {"too small", [&](Format of) { return of({}, {}) + more; }, "longer", {{"W64", "whole 85000"}}},
        {"right, a tag behind",
         [&](Format of) { return of({}, {}) + "ID3" + more; },
         "whole",
         {{"W64", "whole 85001"}}},
    };
    for (const auto& [name, format] : formats) {
        for (const auto& [sizes, file, outcome, others] : cases) {
            EXPECT_EQ(outcomeOfFile(file(format)), others.contains(name) ? others.at(name) : outcome)
                << name << ", sizes " << sizes;
        }
    }
}

TEST(AudioFile, TellsOfEveryPlaceWhereAFileBreaksOff) {
    constexpr std::size_t headers = 140;
    constexpr std::size_t toleratedBytes = 8;
    for (const auto& [name, format] : formats) {
        const auto bytes = format({}, {});
        std::vector<std::size_t> lengths(headers);
        std::iota(lengths.begin(), lengths.end(), 0);
        for (std::size_t missing = toleratedBytes + 1; missing < 16; ++missing)
            lengths.push_back(bytes.size() - missing);
        for (const auto length : lengths) {
            EXPECT_THAT(outcomeOfFile(bytes.substr(0, length)), AnyOf(StartsWith("cut off"), "refused"))
                << name << " of " << length << " bytes";
        }
    }
}

TEST(AudioFile, FindsTheSoundAmongOtherChunks) {
    const auto with = [](const std::string& before, const std::string& after = "") {
        return outcomeOfFile(waveFile("RIFF", little, {}, {}, before, after));
    };
    EXPECT_EQ(with("LIST" + little(0) + "junk" + little(0)), "whole");
    EXPECT_EQ(with("LIST" + little(3) + std::string("abc\0", 4)), "whole");
    EXPECT_EQ(with("", "LIST" + little(70'001) + std::string(70'002, 'a')), "whole");
    EXPECT_EQ(with("", "LIST" + little(most) + "abcd"), "whole") << "nothing of the sound is missing";
    for (const auto size : {std::uint64_t{1'000'000}, most})
        EXPECT_EQ(with("LIST" + little(size) + "abcd"), "refused") << size;
}

TEST(AudioHeader, TellsTheSizeOfTheWholeFile) {
    const auto mp3 = [](const std::string& tag, std::size_t place = 36) {
        auto frame = "\xFF\xFB\x90\x64" + std::string(place - 4, '\0') + tag;
        return frame + std::string(417, '\0');
    };
    const auto id3 = [](const std::string& size, const std::string& rest) {
        return "ID3" + std::string("\4\0\0", 3) + size + rest;
    };
    const auto xing = "Xing" + big(3) + big(99) + big(5000);
    const std::string longTag = std::string("\0\0\x4E\x20", 4);  // seven bits of each byte: 10,016
    const auto ds64 = "RF64" + little(most) + "WAVEds64" + little(28);
    const std::vector<std::tuple<std::string, std::string, AnnouncedSize>> headers{
        {"empty", "", {}},
        {"of another format", "OggS" + big(1000), {}},
        {"RIFF", "RIFF" + little(1000), {1008, true}},
        {"RIFF, 3 GB", "RIFF" + little(3'000'000'000), {3'000'000'008, true}},
        {"RIFF, of a pipe", "RIFF" + little(0x7FFFF024), {0, true}},
        {"RIFF, of a pipe, one more", "RIFF" + little(0x80000024), {0, true}},
        {"RIFF, of a pipe, no sign", "RIFF" + little(0xFFFFF024), {0, true}},
        {"AIFF, of a pipe", "FORM" + big(0x7F00002E), {0, true}},
        {"AU, hostile", ".snd" + big(0xFFFFFFFF) + big(0xFFFEFFFF), {0x1'FFFE'FFFE, true}},
        {"RF64, 5 GB", ds64 + little(5'000'000'000, 8), {5'000'000'008, true}},
        {"RF64, too large for any file", ds64 + little(most - 3, 8), {0, true}},
        {"W64, counts itself in",
         "riff\x2E\x91\xCF\x11" + std::string(8, 'x') + little(5000, 8),
         {5000, false}},
        {"Xing", mp3(xing), {5000, false}},
        {"Info without frames", mp3("Info" + big(2) + big(5000), 21), {5000, false}},
        {"Xing without bytes", mp3("Xing" + big(1) + big(99) + big(5000)), {}},
        {"Xing cut off", mp3(xing).substr(0, 36 + 15), {}},
        {"Xing among the sound", mp3(xing, 100), {}},
        {"Xing in another file", "abcd" + xing, {}},
        {"Xing behind a tag", id3(longTag, std::string(10'016, 'x') + mp3(xing)), {15'026, false}},
        {"Xing of a pipe", id3(std::string(4, '\0'), mp3("Xing" + big(3) + big(0) + big(0))), {}},
        {"a tag longer than the file", id3("\x7F\x7F\x7F\x7F", mp3(xing)), {}},
        {"a tag cut off", "ID3", {}},
    };
    for (const auto& [name, bytes, expected] : headers) {
        const auto announced = AnnouncedSize::read([&bytes = bytes](std::uint64_t offset, std::size_t count) {
            return offset < bytes.size() ? bytes.substr(offset, count) : "";
        });
        EXPECT_EQ(announced.bytes, expected.bytes) << name;
        EXPECT_EQ(announced.endsTheSound, expected.endsTheSound) << name;
    }
}

TEST(AudioHeader, HoldsAgainstItOnlyWhatIsSure) {
    std::uint64_t asked = 0;
    const auto nothing = [&](std::uint64_t offset, std::size_t) {
        asked = offset;
        return std::string();
    };
    const AnnouncedSize announced{1000, true};
    EXPECT_FALSE(announced.isMissedBy(992)) << "the first eight bytes may have been counted twice";
    EXPECT_TRUE(announced.isMissedBy(991));
    EXPECT_FALSE(announced.isExceededBy(66'536, 0, nothing)) << "chunks that the size does not count";
    EXPECT_TRUE(announced.isExceededBy(66'537, 0, nothing));
    EXPECT_EQ(asked, 1000U);
    EXPECT_FALSE(announced.isExceededBy(70'000, 69'000, nothing)) << "it is heard";
    EXPECT_FALSE((AnnouncedSize{1000, false}.isExceededBy(70'000, 0, nothing)));
    EXPECT_FALSE((AnnouncedSize{0, true}.isExceededBy(70'000, 0, nothing))) << "nothing is known";
    EXPECT_TRUE((AnnouncedSize{0, true}.isExceededBy(70'000, 1000, nothing)));
    EXPECT_FALSE((AnnouncedSize{most, true}.isExceededBy(70'000, 0, nothing))) << "no sum goes round";
    EXPECT_TRUE((AnnouncedSize{most, true}.isMissedBy(70'000)));
}

}  // namespace
}  // namespace meetingcore::testing
