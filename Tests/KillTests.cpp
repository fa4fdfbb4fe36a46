#include <chrono>
#include <iostream>
#include <random>

#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/Process.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

/// The records that a writer acknowledged; a line that was cut off is none.
std::vector<AudioChunk> acknowledgedIn(const std::string& output) {
    std::vector<AudioChunk> chunks;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line) && !lines.eof();)
        chunks.push_back(json::decode<AudioChunk>(line, "the writer's line"));
    return chunks;
}

/// What is found holds all that was acknowledged, and nothing in it is half-written.
void expectIntact(DurableChunkStore& store, const std::vector<AudioChunk>& acknowledged) {
    const auto report = store.recover();
    EXPECT_THAT(report.problems, IsEmpty());
    for (const auto& chunk : acknowledged) EXPECT_THAT(report.chunks, Contains(chunk));
    for (const auto& chunk : report.chunks) {
        const auto bytes = contentOf(store.chunkDirectory(chunk) / "audio.wav");
        EXPECT_TRUE(bytes == WAV::encode(samplesOf(chunk))) << chunk.id.string();
    }
}

TEST(KilledWriter, KeepsWhatItAcknowledged) {
    const auto seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    const TemporaryFolder root;
    const auto session = UUID::random();
    DurableChunkStore store(root.path());
    std::vector<AudioChunk> acknowledged;
    constexpr std::size_t rounds = 20;
    for (std::size_t round = 0; round < rounds; ++round) {
        const auto first = std::to_string(1000 * round);
        ChildProcess writer(MEETING_ChunkWriter_PATH, {root.path().string(), session.string(), first, "1000"});
        for (auto lines = random() % 4; lines > 0; --lines) writer.nextLine();
        const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 10'000);
        while (std::chrono::steady_clock::now() < moment) {
        }
        writer.kill();
        const auto result = writer.wait();
        EXPECT_EQ(result.status, -SIGKILL) << result.err;
        for (const auto& chunk : acknowledgedIn(result.out)) acknowledged.push_back(chunk);
        expectIntact(store, acknowledged);
    }
    EXPECT_LE(store.recover().chunks.size(), acknowledged.size() + rounds) << "one more at most for each kill";
    std::cout << acknowledged.size() << " chunks acknowledged in " << rounds << " kills\n";
}

TEST(WriterOnAFailingSystem, ReportsTheErrorAndStoresTheChunkOnceOnTheRetry) {
    const auto run = [&](const std::string& inject, std::vector<std::string> program) {
        program.insert(program.begin(), {"-f", "-qq", "-o", "/dev/null", "-e", inject});
        // The leak check needs ptrace for itself.
        return runProcess("/usr/bin/strace", program, {{"ASAN_OPTIONS", "detect_leaks=0"}});
    };
    if (!fs::exists("/usr/bin/strace") || run("inject=sync:error=EIO", {"/bin/true"}).status != 0)
        GTEST_SKIP() << "system calls cannot be made to fail here: strace is missing or not allowed";
    // The calls with which a session and a chunk are stored: which, from where and to where.
    // The first flush is that of a folder above the root, which may be closed to us.
    std::vector<std::tuple<std::string, int, int>> cases{
        {"fsync", 2, 9}, {"/^mkdir", 1, 3}, {"/^rename", 1, 2}, {"/chmod", 1, 3}};
#ifndef MEETING_SANITIZED
    // The address sanitizer writes to pipes of its own, and ends where that fails.
    cases.emplace_back("write", 1, 3);
#endif
    for (const auto& [calls, first, last] : cases) {
        for (const char* error : {"EIO", "ENOSPC", "EMFILE"}) {
            for (int call = first; call <= last; ++call) {
                const TemporaryFolder folder;
                const auto root = folder.path() / "Meetings";
                const auto inject = "inject=" + calls + ":error=" + error + ":when=" + std::to_string(call);
                const auto result =
                    run(inject, {MEETING_ChunkWriter_PATH, root.string(), UUID::random().string(), "0", "1"});
                EXPECT_EQ(result.status, 0) << inject << '\n' << result.err;
                EXPECT_THAT(result.err, Not(IsEmpty())) << inject;
                DurableChunkStore store(root);
                const auto acknowledged = acknowledgedIn(result.out);
                expectIntact(store, acknowledged);
                EXPECT_EQ(acknowledged, store.recover().chunks) << inject;
                EXPECT_EQ(acknowledged.size(), 1U) << inject;
            }
        }
    }
}

}  // namespace
}  // namespace meetingcore::testing
