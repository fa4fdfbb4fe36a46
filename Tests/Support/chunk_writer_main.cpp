// ChunkWriter <root> <session> <first sequence> <count>
//
// Records chunks of random length into a store and writes each chunk's record to the standard output once it is
// committed. Tries again after an error, as the recorder does, and writes its message to the standard error.

#include <iostream>
#include <random>
#include <string>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "Support/TestRecording.h"

namespace meetingcore::testing {
namespace {

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
        auto session = testSession();
        session.id = id;
        untilItWorks([&] { store.createSession(session); });
    }
    std::mt19937 random(static_cast<std::uint32_t>(first));
    for (auto sequence = first; sequence < first + count; ++sequence) {
        const auto start = static_cast<double>(sequence);
        const auto chunk = testChunk(id, sequence, start, static_cast<std::int64_t>(random() % 16'000 + 1));
        untilItWorks([&] { store.commit(chunk, samplesOf(chunk)); });
        std::cout << json::encode(chunk) << std::endl;
    }
}

}  // namespace
}  // namespace meetingcore::testing

int main(int argc, char** argv) {
    try {
        const auto session = argc == 5 ? meetingcore::UUID::parse(argv[2]) : std::nullopt;
        if (!session) return 2;
        meetingcore::testing::record(argv[1], *session, std::stoll(argv[3]), std::stoll(argv[4]));
        return 0;
    } catch (const std::exception&) {
        return 1;
    }
}
