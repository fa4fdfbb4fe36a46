#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Comparison.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/ForwardingFileManager.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;

using benchmarks::interleaved;
using benchmarks::secondsOf;
using testing::TemporaryFolder;

void require(bool success) {
    if (!success) throw std::runtime_error(std::strerror(errno));
}

void report(benchmark::State& state, const benchmarks::Comparison& result, const std::string& parameters) {
    state.SetIterationTime(result.ours);
    state.counters["baseline_us"] = result.baseline * 1e6;
    state.counters["ours/baseline"] = result.ratio;
    state.SetLabel(parameters);
}

AudioChunk fullChunk(const UUID& session, std::int64_t sequence, AudioSource source = AudioSource::microphone) {
    return testing::testChunk(session, sequence, 60.0 * static_cast<double>(sequence),
                              audio::maximumChunkSamples, source);
}

void flushFolder(const fs::path& folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    require(descriptor >= 0 && ::fsync(descriptor) == 0 && ::close(descriptor) == 0);
}

void writeFlushed(const fs::path& file, const void* header, std::size_t headerBytes, const void* data,
                  std::size_t dataBytes) {
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    require(descriptor >= 0);
    require(::write(descriptor, header, headerBytes) == static_cast<ssize_t>(headerBytes));
    require(::write(descriptor, data, dataBytes) == static_cast<ssize_t>(dataBytes));
    require(::fsync(descriptor) == 0 && ::close(descriptor) == 0);
}

/// The same files, renames and flushes as a commit makes, by hand and without a thought.
void commitByHand(const fs::path& session, const AudioChunk& chunk, std::span<const std::int16_t> samples) {
    static const auto header = WAV::header(audio::maximumChunkSamples);
    const auto partial = session / ("." + chunk.id.string() + ".partial");
    require(::mkdir(partial.c_str(), 0700) == 0);
    writeFlushed(partial / "audio.wav", header.data(), header.size(), samples.data(), samples.size_bytes());
    const auto metadata = json::encode(chunk);
    writeFlushed(partial / "metadata.json", metadata.data(), metadata.size(), "", 0);
    flushFolder(partial);
    require(::rename(partial.c_str(), (session / (chunk.id.string() + ".chunk")).c_str()) == 0);
    flushFolder(session);
    flushFolder(session.parent_path());
}

void commit(benchmark::State& state) {
    const TemporaryFolder folder;
    DurableChunkStore store(folder.path());
    const auto session = testing::testSession();
    store.createSession(session);
    const auto samples = testing::samplesOf(fullChunk(session.id, 0));
    std::int64_t sequence = 0;
    constexpr int rounds = 60;
    for ([[maybe_unused]] auto iteration : state) {
        report(
            state,
            interleaved(
                rounds,
                [&] {
                    const auto chunk = fullChunk(session.id, sequence++);
                    return secondsOf([&] { store.commit(chunk, samples); });
                },
                [&] {
                    const auto chunk = fullChunk(session.id, sequence++);
                    return secondsOf([&] { commitByHand(store.sessionDirectory(session.id), chunk, samples); });
                }),
            "a chunk of 60 s, against the same system calls in C");
    }
}

void encode(benchmark::State& state) {
    const auto samples = testing::samplesOf(fullChunk(UUID(), 0));
    std::vector<char> target(WAV::fileBytes(samples.size()));
    constexpr int rounds = 200;
    for ([[maybe_unused]] auto iteration : state) {
        report(state,
               interleaved(
                   rounds, [&] { return secondsOf([&] { benchmark::DoNotOptimize(WAV::encode(samples)); }); },
                   [&] {
                       return secondsOf([&] {
                           std::memcpy(target.data(), samples.data(), 2 * samples.size());
                           benchmark::ClobberMemory();
                       });
                   }),
               "a chunk of 60 s with its memory, against memcpy into memory that is there");
    }
}

/// Opens what recovery opens and reads as much, and nothing else.
void walk(const fs::path& root) {
    std::array<char, 4096> bytes{};
    for (const auto& session : fs::directory_iterator(root)) {
        for (const auto& chunk : fs::directory_iterator(session)) {
            if (chunk.path().extension() != ".chunk") continue;
            for (const auto& [name, size] : {std::pair{"metadata.json", bytes.size()}, {"audio.wav", 44}}) {
                const int descriptor = ::open((chunk.path() / name).c_str(), O_RDONLY);
                require(descriptor >= 0 && ::read(descriptor, bytes.data(), size) > 0);
                struct stat info {};
                require(::fstat(descriptor, &info) == 0 && ::close(descriptor) == 0);
            }
        }
    }
}

/// A day of two tracks. The samples are holes in the files: neither side reads them.
void makeDay(const fs::path& root) {
    DurableChunkStore store(root);
    const auto session = testing::testSession();
    store.createSession(session);
    const auto header = WAV::header(audio::maximumChunkSamples);
    for (std::int64_t i = 0; i < 2'880; ++i) {
        const auto chunk =
            fullChunk(session.id, i / 2, i % 2 == 0 ? AudioSource::microphone : AudioSource::meeting);
        const auto folder = store.chunkDirectory(chunk);
        fs::create_directory(folder);
        std::ofstream(folder / "metadata.json") << json::encode(chunk);
        std::ofstream(folder / "audio.wav") << header;
        fs::resize_file(folder / "audio.wav", WAV::fileBytes(audio::maximumChunkSamples));
    }
}

class CountingReads final : public testing::ForwardingFileManager {
public:
    CountingReads() : ForwardingFileManager(FileManager::system()) {}
    std::string read(const fs::path& path, std::uint64_t offset, std::size_t maximum) override {
        auto result = ForwardingFileManager::read(path, offset, maximum);
        if (path.extension() == ".wav") bytes += result.size();
        return result;
    }
    std::size_t bytes = 0;
};

void recover(benchmark::State& state) {
    const TemporaryFolder folder;
    makeDay(folder.path());
    CountingReads counting;
    const auto found = DurableChunkStore(folder.path(), counting).recover();
    if (found.chunks.size() != 2'880 || !found.problems.empty())
        throw std::runtime_error("not all chunks found");
    DurableChunkStore store(folder.path());
    constexpr int rounds = 15;
    for ([[maybe_unused]] auto iteration : state) {
        report(state,
               interleaved(
                   rounds, [&] { return secondsOf([&] { store.recover(); }); },
                   [&] { return secondsOf([&] { walk(folder.path()); }); }),
               "2880 chunks in memory, against a plain walk");
        state.counters["wav_bytes_per_chunk"] = static_cast<double>(counting.bytes) / 2'880;
    }
}

void append(benchmark::State& state) {
    constexpr std::size_t bufferSamples = 160;
    constexpr std::int64_t buffers = 6'000;
    auto accumulator =
        *PCMChunkAccumulator::make(UUID::random(), AudioSource::microphone, 60, [](auto&, auto) {});
    const std::vector<std::int16_t> samples(bufferSamples, 1);
    std::vector<std::int16_t> target(audio::maximumChunkSamples);
    std::int64_t sent = 0;
    constexpr int rounds = 100;
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            rounds,
            [&] {
                return secondsOf([&] {
                           for (std::int64_t i = 0; i < buffers; ++i) {
                               accumulator.append(samples, 0.01 * static_cast<double>(sent++));
                           }
                       }) /
                       buffers;
            },
            [&] {
                return secondsOf([&] {
                           for (std::int64_t i = 0; i < buffers; ++i) {
                               std::memcpy(&target[static_cast<std::size_t>(i) * bufferSamples], samples.data(),
                                           2 * bufferSamples);
                               benchmark::ClobberMemory();
                           }
                       }) /
                       buffers;
            });
        report(state, result, "a buffer of 10 ms, against memcpy of it");
        state.counters["beside_copy_ns"] = (result.ours - result.baseline) * 1e9;
    }
}

void copyFiles(const std::vector<fs::path>& sources, const fs::path& target) {
    std::vector<char> buffer(1 << 20);
    const int output = ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    require(output >= 0);
    for (const auto& source : sources) {
        const int input = ::open(source.c_str(), O_RDONLY);
        require(input >= 0);
        ssize_t count = 0;
        while ((count = ::read(input, buffer.data(), buffer.size())) > 0) {
            require(::write(output, buffer.data(), static_cast<std::size_t>(count)) == count);
        }
        require(::close(input) == 0);
    }
    require(::fsync(output) == 0 && ::close(output) == 0);
}

void archive(benchmark::State& state) {
    constexpr std::int64_t chunks = 180;
    const TemporaryFolder data;
    DurableChunkStore store(data.path() / "Meetings");
    const auto session = testing::testSession();
    store.createSession(session);
    std::vector<fs::path> files;
    for (std::int64_t i = 0; i < chunks; ++i) {
        const auto chunk = fullChunk(session.id, i);
        files.push_back(store.commit(chunk, testing::samplesOf(chunk)) / "audio.wav");
    }
    constexpr int rounds = 5;
    for ([[maybe_unused]] auto iteration : state) {
        report(state,
               interleaved(
                   rounds,
                   [&] {
                       fs::remove_all(store.sessionDirectory(session.id) / "Audio");
                       return secondsOf(
                           [&] { AudioArchive::build(session.id, AudioSource::microphone, data.path()); });
                   },
                   [&] {
                       fs::remove(data.path() / "copy");
                       return secondsOf([&] { copyFiles(files, data.path() / "copy"); });
                   }),
               "three hours, against copying the same files with a flush");
        rusage usage{};
        require(::getrusage(RUSAGE_SELF, &usage) == 0);
        state.counters["peak_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
    }
}

BENCHMARK(archive)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);  // first: it tells the peak
BENCHMARK(commit)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(encode)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(recover)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(append)->UseManualTime()->Iterations(1)->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace meetingcore
