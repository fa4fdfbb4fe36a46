// ChunkWriter <root> <session> <first sequence> <count>
//
// Records chunks of random length into a store and writes each chunk's record to the standard output once it is
// committed. Tries again after an error, as the recorder does, and writes its message to the standard error.

#include <cstdlib>
#include <iostream>
#include <random>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "Support/TestRecording.h"

namespace {

using namespace meetingcore;

template <class Attempt>
void untilItWorks(const Attempt& attempt) {
    constexpr int attempts = 3;
    for (int left = attempts - 1;; --left) {
        try {
            attempt();
            return;
        } catch (const MeetingError& error) {
            std::cerr << error.message() << std::endl;
            if (left == 0) throw;
        }
    }
}

void record(const char* root, const UUID& id, std::int64_t first, std::int64_t count) {
    DurableChunkStore store(root);
    if (!pathExists(store.sessionDirectory(id))) {
        auto session = testing::testSession();
        session.id = id;
        untilItWorks([&] { store.createSession(session); });
    }
    std::mt19937 random(static_cast<std::uint32_t>(first));
    for (auto sequence = first; sequence < first + count; ++sequence) {
        const auto start = static_cast<double>(sequence);
        const auto chunk = testing::testChunk(id, sequence, start, random() % 16'000 + 1);
        untilItWorks([&] { store.commit(chunk, testing::samplesOf(chunk)); });
        std::cout << json::encode(chunk) << std::endl;
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const auto session = argc == 5 ? UUID::parse(argv[2]) : std::nullopt;
        if (!session) return 2;
        record(argv[1], *session, std::atoll(argv[3]), std::atoll(argv[4]));
        return 0;
    } catch (const MeetingError&) {
        return 1;
    }
}
