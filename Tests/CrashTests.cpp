#include <algorithm>
#include <iostream>

#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/CrashingFileManager.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using namespace std::string_literals;

/// A recording whose data folder does not exist yet, with two chunks of a few samples, driven as the recorder
/// drives it; and what it was told to be safe.
class Recording {
public:
    explicit Recording(Fault plantedFault = {}, std::size_t count = 2) : fault(std::move(plantedFault)) {
        if (fault.leavesOutFlushOf == "<session>") fault.leavesOutFlushOf = session.id.string();
        buffers = {testChunk(session.id, 0, 0, 3), testChunk(session.id, 1, 0.001, 5)};
        buffers.resize(count);
    }

    static fs::path root(const fs::path& folder) { return folder / "data" / "Meetings"; }

    void createSession(CrashingFileManager& files, const fs::path& folder) {
        sessionIsSafe = false;
        files.plant(fault, [&] { sessionIsSafe = true; });
        DurableChunkStore(root(folder), files).createSession(session);
        sessionIsSafe = true;
    }

    /// Starts capturing anew.
    void start(CrashingFileManager& files, const fs::path& folder) {
        offered.clear();
        safe.clear();
        captured_ = 0;
        const auto commit = [&, folder](const AudioChunk& chunk, std::span<const std::int16_t> samples) {
            if (!holds(offered, chunk)) offered.push_back(chunk);
            EXPECT_LE(offered.size(), captured_ + 1) << "a retry must offer the same chunk";
            EXPECT_EQ(std::vector(samples.begin(), samples.end()), samplesOf(chunk));
            files.plant(fault, [this, chunk] { safe.push_back(chunk); });
            DurableChunkStore(root(folder), files).commit(chunk, samples);
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
    void recover(CrashingFileManager& files, const fs::path& folder) {
        files.plant(fault);
        safe = DurableChunkStore(root(folder), files).recover().chunks;
    }

    /// What is wrong with what is left. Tries again what was not told to be safe, and looks at every disk that
    /// may be left after that.
    std::string judge(CrashingFileManager& files, const fs::path& folder) const {
        if (auto violation = judgeChunks(files, folder, safe); !violation.empty()) return violation;
        DurableChunkStore store(root(folder), files);
        auto violation = messageOf([&] {
            if (!sessionIsSafe && !files.status(store.sessionDirectory(session.id)))
                store.createSession(session);
            for (const auto& chunk : offered) store.commit(chunk, samplesOf(chunk));
        });
        const auto disk = folder.parent_path() / "after the retry";
        files.forEachDisk(disk, [&] {
            CrashingFileManager left(disk);
            violation += judgeChunks(left, disk, offered);
        });
        return violation;
    }

    Fault fault;
    const MeetingSession session = testSession();
    std::vector<AudioChunk> buffers;
    bool sessionIsSafe = false;
    std::vector<AudioChunk> offered;
    std::vector<AudioChunk> safe;

private:
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

/// Builds the whole file of a track again, which a chunk has made stale.
CrashTest archiveTest(Recording& recording) {
    auto samples = samplesOf(recording.buffers[0]);
    const auto stale = WAV::encode(samples);
    samples.resize(16);
    for (const auto sample : samplesOf(recording.buffers[1])) samples.push_back(sample);
    const auto complete = WAV::encode(samples);
    const auto isBuilt = std::make_shared<bool>(false);
    const auto build = [&recording, isBuilt](auto& files, const auto& folder) {
        *isBuilt = false;
        files.plant(recording.fault);
        AudioArchive::build(recording.session.id, AudioSource::microphone, folder / "data", files);
        *isBuilt = true;
    };
    const auto contentIn = [&recording](const fs::path& folder) {
        return contentOf(Recording::root(folder) / recording.session.id.string() / "Audio" / "microphone.wav");
    };
    return {[&recording, build](auto& files, const auto& folder) {
                recording.createSession(files, folder);
                DurableChunkStore store(Recording::root(folder), files);
                store.commit(recording.buffers[0], samplesOf(recording.buffers[0]));
                build(files, folder);
                store.commit(recording.buffers[1], samplesOf(recording.buffers[1]));
                recording.safe = recording.offered = recording.buffers;
            },
            build,
            [=, &recording](auto& files, const auto& folder) {
                const auto left = contentIn(folder);
                if (left != complete && (*isBuilt || left != stale)) return "a wrong file is under the name"s;
                AudioArchive::build(recording.session.id, AudioSource::microphone, folder / "data", files);
                const auto disk = folder.parent_path() / "after the retry";
                std::string violation;
                files.forEachDisk(disk, [&] {
                    if (contentIn(disk) != complete) violation = "the file built again is lost";
                });
                return violation.empty() ? recording.judge(files, folder) : violation;
            }};
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

TEST(PowerCut, LeavesOldOrNewOfSessionChunkAndArchive) {
    for (const auto& [what, test] :
         {std::pair("createSession", &sessionTest), {"commit", commitTest}, {"build", archiveTest}}) {
        Recording recording;
        expectNoViolation(what, forEachPowerCut(test(recording)));
    }
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
            if (!messageOf([&] { recording.capture(); }).empty()) recording.capture();
            failed = files.hasFailed();
        };
        report.add(forEachPowerCut(test));
    }
    expectNoViolation("commit repeated after a failure", report);
}

TEST(Kill, LeavesNothingListedThatAPowerCutCouldTake) {
    Recording recording;
    expectNoViolation("createSession killed, then repeated",
                      forEachKill(sessionTest(recording), [&](auto& files, const auto& folder) {
                          if (!pathExists(Recording::root(folder) / recording.session.id.string()))
                              recording.createSession(files, folder);
                          recording.start(files, folder);
                          recording.capture();
                      }));
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

TEST(FailingDisk, IsReportedAndTheRetryLosesNothing) {
    Recording recording;
    expectNoViolation("commit on a failing disk",
                      forEachFailure(reporting(commitTest(recording)), [&](auto&, const auto&) {
                          recording.capture();
                          EXPECT_EQ(recording.safe.size(), recording.buffers.size());
                      }));
    Recording other;
    expectNoViolation("createSession on a failing disk",
                      forEachFailure(reporting(sessionTest(other)), [&](auto& files, const auto& folder) {
                          // A folder that could be created but neither flushed nor removed is on a lost disk.
                          if (!files.failsForGood() && !other.sessionIsSafe &&
                              !pathExists(Recording::root(folder) / other.session.id.string()))
                              other.createSession(files, folder);
                      }));
    const auto archive = archiveTest(recording);
    expectNoViolation("build on a failing disk", forEachFailure(reporting(archive), archive.act));
}

TEST(FailingDisk, NeverHidesAChunkFromRecoverySilently) {
    Recording recording;
    auto test = commitTest(recording);
    test.prepare = [act = test.act, prepare = test.prepare](auto& files, const auto& folder) {
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
    using Run = std::function<CrashReport(Recording&)>;
    const auto cut = [](auto test) {
        return [test](auto& recording) { return forEachPowerCut(test(recording)); };
    };
    const Run session = cut(sessionTest), commit = cut(commitTest), archive = cut(archiveTest);
    const Run fail = [](auto& recording) {
        return forEachFailure(reporting(commitTest(recording)), [&](auto&, auto&) { recording.capture(); });
    };
    const Run kill = [](auto& recording) {
        return forEachKill(commitTest(recording),
                           [&](auto& files, auto& folder) { recording.recover(files, folder); });
    };
    const std::vector<std::pair<Fault, Run>> faults{
        {{"no flush of the manifest", "session.json"}, session},
        {{"no flush of the root", "Meetings"}, session},
        {{"no flush of the root's parent", "data"}, session},
        {{"no flush of the samples", "audio.wav"}, commit},
        {{"no flush of the metadata", "metadata.json"}, commit},
        {{"no flush of the chunk's folder", ".partial"}, commit},
        {{"no flush of the session's folder", "<session>"}, commit},
        {{.name = "renamed before flushed", .flushesAfterRename = true}, commit},
        {{.name = "acknowledged at the rename", .acknowledgesAtRename = true}, commit},
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
