#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/ForwardingFileManager.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

class AudioArchiveTest : public ::testing::Test, protected MeetingFolder {
protected:
    std::string built(AudioSource source = AudioSource::microphone) {
        return contentOf(path = AudioArchive::build(session, source, root.path()));
    }
    std::string refusal(FileManager& files = FileManager::system()) {
        return messageOf([&] { AudioArchive::build(session, AudioSource::microphone, root.path(), files); });
    }

    fs::path path;
};

constexpr const char* noAudio = "Keine Audioabschnitte oder Aufnahme länger als 24 Stunden.";

TEST_F(AudioArchiveTest, PutsEachTracksChunksWhereTheirTimesSay) {
    const auto last = record(0.5, 1000);          // from sample 8000 on
    const auto first = record(0.1, 400);          // a leading silence of 1600
    const auto second = record(0.1 + 0.02, 400);  // begins 80 samples before the end of the first
    record(0.1 + 0.0201, 10);                     // wholly within the second
    const auto other = record(0, 5, AudioSource::meeting);
    std::vector<std::int16_t> expected(9000);
    for (const auto& [chunk, at] : {std::pair(second, 1920), {first, 1600}, {last, 8000}}) {
        const auto samples = samplesOf(chunk);
        std::copy(samples.begin(), samples.end(), expected.begin() + at);
    }
    EXPECT_EQ(built(), WAV::encode(expected));
    EXPECT_EQ(path, folder / "Audio" / "microphone.wav");
    EXPECT_EQ(built(AudioSource::meeting), WAV::encode(samplesOf(other)));
    EXPECT_EQ(path, folder / "Audio" / "meeting.wav");
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(path.parent_path()).permissions(), fs::perms(0700));
}

TEST_F(AudioArchiveTest, UsesACompleteFileAgainUntilItsChunksChange) {
    record(0, 100);
    const auto before = built();
    const auto old = path.parent_path() / "alt";
    const auto isReused = [&] {  // a hard link holds on to the old file
        fs::remove(old);
        fs::create_hard_link(path, old);
        built();
        return fs::equivalent(path, old);
    };
    EXPECT_TRUE(isReused());
    fs::resize_file(path, 100);
    EXPECT_FALSE(isReused());
    EXPECT_EQ(built(), before);
    writeFile(path.parent_path() / "microphone.json", "{}");
    EXPECT_FALSE(isReused());
    record(1, 100);
    EXPECT_FALSE(isReused());
    writeFile(path.parent_path() / ".microphone.X.partial", "halb");
    record(2, 100);
    EXPECT_FALSE(isReused());
    EXPECT_THAT(FileManager::system().list(path.parent_path()),
                ElementsAre("alt", "microphone.json", "microphone.wav"));
}

TEST_F(AudioArchiveTest, RefusesWhatItCannotJoin) {
    EXPECT_EQ(refusal(), noAudio);
    record(0, 5, AudioSource::meeting);
    EXPECT_EQ(refusal(), noAudio);
    const auto chunk = record(10, 16'000);
    writeFile(folder / "Audio", "kein Ordner");
    EXPECT_EQ(refusal(), "Vollständige Audiodatei konnte nicht gespeichert werden.");
    record(10.94, 16'000);
    EXPECT_EQ(refusal(), "Überlappende Audioabschnitte sind nicht zulässig.");
    record(86'399.5, 8'001);
    EXPECT_EQ(refusal(), noAudio);
    fs::remove_all(folder / (chunk.id.string() + ".chunk"));
    writeFile(folder / "audio-removed.json", "{}");
    EXPECT_EQ(refusal(), noAudio);
}

/// Counts what would be written, in place of 2.8 GB.
class CountingFileManager final : public ForwardingFileManager {
public:
    CountingFileManager() : ForwardingFileManager(FileManager::system()) {}

    std::unique_ptr<FileWriter> createFile(const fs::path& path) override {
        auto file = ForwardingFileManager::createFile(path);
        if (path.extension() != ".partial" || path.parent_path().filename() != "Audio") return file;
        return std::make_unique<Counter>(*this);
    }

    std::string header;
    std::uint64_t bytes = 0;
    std::size_t largestPiece = 0;

private:
    struct Counter final : FileWriter {
        explicit Counter(CountingFileManager& manager) : total(manager) {}
        void write(std::string_view piece) override {
            if (total.bytes == 0) total.header = piece;
            total.bytes += piece.size();
            total.largestPiece = std::max(total.largestPiece, piece.size());
        }
        void flush() override {}
        void close() override {}
        CountingFileManager& total;
    };
};

TEST_F(AudioArchiveTest, StreamsAWholeDay) {
    record(0, 100);
    record(86'399, 16'000);
    CountingFileManager files;
    EXPECT_EQ(refusal(files), "");
    EXPECT_EQ(files.bytes, 2'764'800'044U);
    EXPECT_EQ(files.header.substr(4, 4), "\x24\x80\xCB\xA4");
    EXPECT_EQ(files.header.substr(40, 4), std::string("\0\x80\xCB\xA4", 4));
    EXPECT_LE(files.largestPiece, 1U << 20);
}

}  // namespace
}  // namespace meetingcore::testing
