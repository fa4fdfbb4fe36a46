#include <algorithm>
#include <cerrno>
#include <iostream>
#include <optional>

#include <gmock/gmock.h>

#include "MeetingCore/Library/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/CrashingFileManager.h"
#include "Support/ForwardingFileManager.h"
#include "Support/TestRecording.h"

namespace meetingcore::testing {
namespace {

namespace fs = std::filesystem;

using ::testing::IsEmpty;
using ::testing::Not;

/// A mistake in the commit protocol, planted between the store and the disk.
struct Fault {
    std::string name;
    std::string leavesOutFlushOf{};  // the end of the file's or folder's name
    bool flushesAfterRename = false;
    bool believesSecondFlush = false;
    bool acknowledgesAtRename = false;
};

/// Passes everything on, but for what the fault says.
class FaultyProtocol final : public ForwardingFileManager {
public:
    FaultyProtocol(FileManager& files, const Fault& fault, std::function<void()> acknowledge = nullptr)
        : ForwardingFileManager(files), fault_(fault), acknowledge_(std::move(acknowledge)) {}

    std::unique_ptr<FileWriter> createFile(const fs::path& path) override {
        return std::make_unique<Writer>(*this, path, ForwardingFileManager::createFile(path));
    }

    void move(const fs::path& from, const fs::path& to) override {
        ForwardingFileManager::move(from, to);
        for (const auto& flush : std::exchange(postponed_, {})) flush(to);
        if (fault_.acknowledgesAtRename && acknowledge_) acknowledge_();
    }

    void flushDirectory(const fs::path& path) override {
        flush(path, [this](const fs::path& where) { ForwardingFileManager::flushDirectory(where); });
    }

private:
    using Flush = std::function<void(const fs::path& where)>;

    class Writer final : public FileWriter {
    public:
        Writer(FaultyProtocol& protocol, fs::path path, std::unique_ptr<FileWriter> file)
            : protocol_(protocol), path_(std::move(path)), file_(std::move(file)) {}
        void write(std::string_view bytes) override { file_->write(bytes); }
        void flush() override {
            protocol_.flush(path_, [file = file_](const fs::path&) { file->flush(); });
        }
        void close() override { file_->close(); }

    private:
        FaultyProtocol& protocol_;
        fs::path path_;
        std::shared_ptr<FileWriter> file_;
    };

    void flush(const fs::path& path, const Flush& flush) {
        const bool isSession = UUID::parse(path.filename().string()).has_value();
        const auto name = isSession ? "<session>" : path.filename().string();
        if (!fault_.leavesOutFlushOf.empty() && name.ends_with(fault_.leavesOutFlushOf)) return;
        if (fault_.flushesAfterRename && path.string().find(".partial") != std::string::npos) {
            postponed_.push_back(flush);
            return;
        }
        try {
            flush(path);
        } catch (const MeetingError&) {
            if (!fault_.believesSecondFlush) throw;
            flush(path);
        }
    }

    const Fault& fault_;
    std::function<void()> acknowledge_;
    std::vector<Flush> postponed_;
};

/// A recording whose data folder does not exist yet, with two chunks of a few samples, driven as the recorder
/// drives it; and what it was told to be safe.
class Recording {
public:
    explicit Recording(Fault plantedFault = {}, std::size_t count = 2)
        : fault(std::move(plantedFault)), buffers(makeBuffers(session.id, count)) {}

    static fs::path root(const fs::path& folder) { return folder / "data" / "Meetings"; }

    void createSession(FileManager& files, const fs::path& folder) {
        sessionIsSafe = false;
        FaultyProtocol protocol(files, fault, [&] { sessionIsSafe = true; });
        DurableChunkStore(root(folder), protocol).createSession(session);
        sessionIsSafe = true;
    }

    /// Starts capturing anew.
    void start(FileManager& files, const fs::path& folder) {
        offered.clear();
        safe.clear();
        captured_ = 0;
        const auto commit = [&, folder](const AudioChunk& chunk, std::span<const std::int16_t> samples) {
            if (!holds(offered, chunk)) offered.push_back(chunk);
            EXPECT_LE(offered.size(), captured_ + 1) << "a retry must offer the same chunk";
            EXPECT_EQ(std::vector(samples.begin(), samples.end()), samplesOf(chunk));
            FaultyProtocol protocol(files, fault, [&] { safe.push_back(chunk); });
            DurableChunkStore(root(folder), protocol).commit(chunk, samples);
            safe.push_back(chunk);
        };
        accumulator_ = PCMChunkAccumulator::make(session.id, AudioSource::microphone, 1, commit);
    }

    /// Captures what is left; after an error it goes on where it stopped.
    void capture() {
        for (; captured_ < buffers.size(); ++captured_) {
            accumulator_->flush();
            accumulator_->append(samplesOf(buffers[captured_]), buffers[captured_].startSeconds);
        }
        accumulator_->flush();
    }

    /// What recovery lists counts as safe from then on.
    void recover(FileManager& files, const fs::path& folder) {
        FaultyProtocol protocol(files, fault);
        safe = DurableChunkStore(root(folder), protocol).recover().chunks;
    }

    /// What is wrong with what is left. Tries again what was not told to be safe, and looks at every disk that
    /// may be left after that.
    std::string judge(CrashingFileManager& files, const fs::path& folder) const {
        if (auto violation = judgeChunks(files, folder, safe); !violation.empty()) return violation;
        DurableChunkStore store(root(folder), files);
        try {
            if (!sessionIsSafe && !files.status(store.sessionDirectory(session.id)))
                store.createSession(session);
            for (const auto& chunk : offered) store.commit(chunk, samplesOf(chunk));
        } catch (const MeetingError& error) {
            return "the retry fails: " + error.message();
        }
        std::string violation;
        const auto disk = folder.parent_path() / "after the retry";
        files.forEachDisk(disk, [&] {
            CrashingFileManager left(disk);
            violation += judgeChunks(left, disk, offered);
        });
        return violation;
    }

    const Fault fault;
    const MeetingSession session = testSession();
    const std::vector<AudioChunk> buffers;
    bool sessionIsSafe = false;
    std::vector<AudioChunk> offered;
    std::vector<AudioChunk> safe;

private:
    static std::vector<AudioChunk> makeBuffers(const UUID& session, std::size_t count) {
        std::vector<AudioChunk> chunks{testChunk(session, 0, 0, 3), testChunk(session, 1, 0.001, 5)};
        chunks.resize(count);
        return chunks;
    }

    static bool holds(const std::vector<AudioChunk>& chunks, const AudioChunk& chunk) {
        return std::find(chunks.begin(), chunks.end(), chunk) != chunks.end();
    }

    std::string judgeChunks(FileManager& files, const fs::path& folder,
                            const std::vector<AudioChunk>& expected) const {
        DurableChunkStore store(root(folder), files);
        const auto report = store.recover();
        for (const auto& chunk : report.chunks) {
            if (!holds(offered, chunk)) return "lists an unknown chunk";
            const auto bytes = files.read(store.chunkDirectory(chunk) / "audio.wav", 0, 1000);
            if (bytes != WAV::encode(samplesOf(chunk))) return "lists a chunk with other samples";
        }
        for (const auto& chunk : expected) {
            if (!holds(report.chunks, chunk)) return "a safe chunk is lost";
        }
        return report.problems.empty() ? "" : "half-written: " + report.problems.front();
    }

    std::optional<PCMChunkAccumulator> accumulator_;
    std::size_t captured_ = 0;
};

CrashTest sessionTest(Recording& recording) {
    return {nullptr, [&](auto& files, const auto& folder) { recording.createSession(files, folder); },
            [&](auto& files, const auto& folder) {
                // That the session can take a chunk is what makes it one.
                if (recording.offered.empty()) recording.offered = recording.buffers;
                return recording.judge(files, folder);
            }};
}

CrashTest commitTest(Recording& recording) {
    return {[&](auto& files, const auto& folder) { recording.createSession(files, folder); },
            [&](auto& files, const auto& folder) {
                recording.start(files, folder);
                recording.capture();
            },
            [&](auto& files, const auto& folder) { return recording.judge(files, folder); }};
}

/// Builds the whole file again, which a chunk has made stale.
class Archive {
public:
    explicit Archive(Recording& recording) : recording_(recording) {
        std::vector<std::int16_t> samples(16 + 5);
        const auto first = samplesOf(recording.buffers[0]);
        const auto second = samplesOf(recording.buffers[1]);
        std::copy(first.begin(), first.end(), samples.begin());
        std::copy(second.begin(), second.end(), samples.begin() + 16);
        stale_ = WAV::encode(first);
        complete_ = WAV::encode(samples);
    }

    void prepare(FileManager& files, const fs::path& folder) {
        recording_.createSession(files, folder);
        DurableChunkStore store(Recording::root(folder), files);
        store.commit(recording_.buffers[0], samplesOf(recording_.buffers[0]));
        build(files, folder);
        store.commit(recording_.buffers[1], samplesOf(recording_.buffers[1]));
        recording_.safe = recording_.offered = recording_.buffers;
    }

    void build(FileManager& files, const fs::path& folder) {
        isBuilt_ = false;
        FaultyProtocol protocol(files, recording_.fault);
        AudioArchive::build(recording_.session.id, AudioSource::microphone, folder / "data", protocol);
        isBuilt_ = true;
    }

    std::string judge(CrashingFileManager& files, const fs::path& folder) const {
        const auto left = contentIn(folder);
        if (left != complete_ && (isBuilt_ || left != stale_)) return "a wrong file stands under the name";
        AudioArchive::build(recording_.session.id, AudioSource::microphone, folder / "data", files);
        std::string violation;
        const auto disk = folder.parent_path() / "after the retry";
        files.forEachDisk(disk, [&] {
            if (contentIn(disk) != complete_) violation = "the file built again is lost";
        });
        return violation.empty() ? recording_.judge(files, folder) : violation;
    }

private:
    std::string contentIn(const fs::path& folder) const {
        const auto meeting = Recording::root(folder) / recording_.session.id.string();
        return FileManager::system().read(meeting / "Audio" / "microphone.wav", 0, 1000);
    }

    Recording& recording_;
    std::string stale_;
    std::string complete_;
    bool isBuilt_ = false;
};

CrashTest archiveTest(Archive& archive) {
    return {[&](auto& files, const auto& folder) { archive.prepare(files, folder); },
            [&](auto& files, const auto& folder) { archive.build(files, folder); },
            [&](auto& files, const auto& folder) { return archive.judge(files, folder); }};
}

/// Makes the act pass over its error, as a program that goes on running does. It must have been reported.
CrashTest reporting(CrashTest test) {
    test.act = [act = std::move(test.act)](auto& files, const auto& folder) {
        try {
            act(files, folder);
        } catch (const MeetingError& error) {
            EXPECT_THAT(error.message(), Not(IsEmpty()));
        }
    };
    return test;
}

void expectNoViolation(const char* what, const CrashReport& report) {
    EXPECT_THAT(report.violations, IsEmpty()) << what;
    std::cout << what << ": " << report.stops << " stops, " << report.disks << " disks\n";
}

TEST(PowerCut, LeavesSessionWholeOrAbsent) {
    Recording recording;
    expectNoViolation("createSession", forEachPowerCut(sessionTest(recording)));
    expectNoViolation("createSession killed and repeated",
                      forEachKill(sessionTest(recording), [&](auto& files, const auto& folder) {
                          const DurableChunkStore store(Recording::root(folder), files);
                          if (!pathExists(store.sessionDirectory(recording.session.id)))
                              recording.createSession(files, folder);
                          recording.start(files, folder);
                          recording.capture();
                      }));
}

TEST(PowerCut, LosesNoAcknowledgedChunkAndShowsNoHalf) {
    Recording recording;
    expectNoViolation("commit", forEachPowerCut(commitTest(recording)));
}

TEST(PowerCut, LosesNothingOfACommitRepeatedAfterAFailure) {
    Recording recording({}, 1);
    CrashReport report;
    bool failed = true;
    for (std::size_t operation = 0; failed; ++operation) {
        auto test = commitTest(recording);
        test.act = [&](auto& files, const auto& folder) {
            recording.start(files, folder);
            files.failAt(operation, EIO, false);
            try {
                recording.capture();
            } catch (const MeetingError&) {
                recording.capture();
            }
            failed = files.hasFailed();
        };
        report += forEachPowerCut(test);
    }
    expectNoViolation("commit repeated after a failure", report);
}

TEST(PowerCut, LeavesTheOldArchiveOrTheNew) {
    Recording recording;
    Archive archive(recording);
    expectNoViolation("build", forEachPowerCut(archiveTest(archive)));
}

TEST(Kill, LeavesNothingListedThatAPowerCutCouldTake) {
    Recording recording;
    const auto recover = [&](auto& files, const auto& folder) { recording.recover(files, folder); };
    expectNoViolation("commit killed, then recover", forEachKill(commitTest(recording), recover));
    // Without recovery in between, the same chunk is offered again.
    const auto repeat = [&](auto& files, const auto& folder) {
        DurableChunkStore store(Recording::root(folder), files);
        for (const auto& chunk : recording.offered) store.commit(chunk, samplesOf(chunk));
        recording.safe = recording.offered;
    };
    expectNoViolation("commit killed, then repeated", forEachKill(commitTest(recording), repeat));
}

TEST(FailingDisk, IsReportedAndKeepsTheSamplesForTheRetry) {
    Recording recording;
    expectNoViolation("commit on a failing disk",
                      forEachFailure(reporting(commitTest(recording)), [&](auto&, const auto&) {
                          recording.capture();
                          EXPECT_EQ(recording.safe.size(), recording.buffers.size());
                      }));
}

TEST(FailingDisk, LetsSessionAndArchiveBeMadeAgain) {
    Recording recording;
    expectNoViolation("createSession on a failing disk",
                      forEachFailure(reporting(sessionTest(recording)), [&](auto& files, const auto& folder) {
                          // A folder that could be created but neither flushed nor removed is on a lost disk.
                          if (!files.failsForGood() && !recording.sessionIsSafe &&
                              !pathExists(Recording::root(folder) / recording.session.id.string()))
                              recording.createSession(files, folder);
                      }));
    Archive archive(recording);
    expectNoViolation("build on a failing disk",
                      forEachFailure(reporting(archiveTest(archive)),
                                     [&](auto& files, const auto& folder) { archive.build(files, folder); }));
}

TEST(FailingDisk, NeverHidesAChunkFromRecoverySilently) {
    Recording recording;
    auto test = commitTest(recording);
    test.prepare = [&, act = test.act, prepare = test.prepare](auto& files, const auto& folder) {
        prepare(files, folder);
        act(files, folder);
    };
    test.act = [&](auto& files, const auto& folder) {
        const auto report = DurableChunkStore(Recording::root(folder), files).recover();
        EXPECT_TRUE(report.chunks == recording.offered || !report.problems.empty());
    };
    expectNoViolation("recover on a failing disk", forEachFailure(reporting(test), [](auto&, const auto&) {}));
}

/// The tests above find something only if they would find each of these.
TEST(CrashTests, CatchPlantedFaults) {
    const auto cut = [](auto test) {
        return [test](Recording& recording) { return forEachPowerCut(test(recording)); };
    };
    const auto fail = [](Recording& recording) {
        return forEachFailure(reporting(commitTest(recording)),
                              [&](auto&, const auto&) { recording.capture(); });
    };
    const auto kill = [](Recording& recording) {
        return forEachKill(commitTest(recording),
                           [&](auto& files, const auto& folder) { recording.recover(files, folder); });
    };
    const auto archive = [](Recording& recording) {
        Archive built(recording);
        return forEachPowerCut(archiveTest(built));
    };
    const std::vector<std::pair<Fault, std::function<CrashReport(Recording&)>>> faults{
        {{"no flush of the manifest", "session.json"}, cut(sessionTest)},
        {{"no flush of the root", "Meetings"}, cut(sessionTest)},
        {{"no flush of the root's parent", "data"}, cut(sessionTest)},
        {{"no flush of the samples", "audio.wav"}, cut(commitTest)},
        {{"no flush of the metadata", "metadata.json"}, cut(commitTest)},
        {{"no flush of the chunk's folder", ".partial"}, cut(commitTest)},
        {{"no flush of the session's folder", "<session>"}, cut(commitTest)},
        {{.name = "renamed before flushed", .flushesAfterRename = true}, cut(commitTest)},
        {{.name = "acknowledged at the rename", .acknowledgesAtRename = true}, cut(commitTest)},
        {{.name = "a failed flush tried again and believed", .believesSecondFlush = true}, fail},
        {{"recovery flushes nothing", "<session>"}, kill},
        {{"no flush of the archive", ".partial"}, archive},
        {{"no flush of the archive's folder", "Audio"}, archive},
    };
    for (const auto& [fault, run] : faults) {
        Recording recording(fault);
        EXPECT_THAT(run(recording).violations, Not(IsEmpty())) << fault.name;
    }
}

}  // namespace
}  // namespace meetingcore::testing
