#include <cstdlib>
#include <fstream>

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include "Comparison.h"
#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

double peakMiB() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

/// A file of pseudo-random bytes, with its catalog.
ModelCatalog catalogFor(const std::filesystem::path& file, std::size_t mebibytes) {
    std::ofstream out(file, std::ios::binary);
    std::string block(1 << 20, '\0');
    SHA256 digest;
    std::uint32_t value = 1;
    for (std::size_t i = 0; i < mebibytes; ++i) {
        for (auto& byte : block) byte = static_cast<char>((value = value * 1664525 + 1013904223) >> 24);
        out << block;
        digest.update(block);
    }
    return ModelCatalog(
        {{"summary", file.filename().string(), static_cast<std::int64_t>(mebibytes << 20), digest.hex()}});
}

void check(benchmark::State& state) {
    const testing::TemporaryFolder folder;
    const auto file = folder.path() / "model.gguf";
    const auto catalog = catalogFor(file, static_cast<std::size_t>(state.range(0)));
    const auto command = "openssl dgst -sha256 '" + file.string() + "' >/dev/null";
    const auto before = peakMiB();
    for ([[maybe_unused]] auto iteration : state) {
        const auto compared = benchmarks::interleaved(
            5, [&] { return benchmarks::secondsOf([&] { catalog.verify("summary", folder.path()); }); },
            [&] {
                return benchmarks::secondsOf([&] {
                    if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl failed");
                });
            });
        state.SetIterationTime(compared.ours);
        state.counters["openssl_s"] = compared.baseline;
        state.counters["speed_ours/openssl"] = 1 / compared.ratio;
        state.counters["memory_growth_MiB"] = peakMiB() - before;
    }
}

BENCHMARK(check)->Arg(64)->Arg(512)->ArgName("MiB")->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
}  // namespace meetingcore
