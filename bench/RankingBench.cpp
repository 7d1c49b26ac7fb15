// One ranking pass (ProviderHost::GetProviderList) over folders of 10, 10,000 and 100,000
// entries, with twenty providers that each look through the folder for their own marker.
// However many providers look, a pass must read the folder once.
#include <benchmark/benchmark.h>

#if defined(_WIN32)
#include <fstream>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include "BenchHost.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel::Bench {

namespace {

constexpr int kProviders = 20;
// The only provider whose marker the folders hold; it looks among the files.
constexpr int kClaimingProvider = 6;

// Even providers look for a file MARKERnn.XML, odd ones for a folder MARKERnn, as format
// providers look for their signature files or folders.
std::string MarkerName(int provider) {
    char name[16];
    std::snprintf(name, sizeof name, provider % 2 == 0 ? "MARKER%02d.XML" : "MARKER%02d", provider);
    return name;
}

bool EndsWithLeaf(const std::u16string& path, const std::u16string& leaf) {
    if (path.size() <= leaf.size() || !path.ends_with(leaf))
        return false;
    const char16_t separator = path[path.size() - leaf.size() - 1];
    return separator == u'/' || separator == u'\\';
}

// Makes an empty file; open and close alone keep 100,000 of them quick to make.
void Touch(const std::filesystem::path& path) {
#if defined(_WIN32)
    std::ofstream(path, std::ios::binary);
#else
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0)
        ::close(fd);
#endif
}

// A folder of ENTRIES entries: empty files, one ordinary subfolder and the claiming
// provider's marker file. Made on first use (100,000 files take a while) and kept.
std::u16string FolderWithEntries(int entries) {
    static std::map<int, std::unique_ptr<Test::TempDir>> folders;
    auto& folder = folders[entries];
    if (!folder) {
        folder = std::make_unique<Test::TempDir>();
        folder->MakeDir("SUBFOLDER");
        Touch(folder->path() / MarkerName(kClaimingProvider));
        char name[32];
        for (int i = 0; i < entries - 2; ++i) {
            std::snprintf(name, sizeof name, "C%07d.MXF", i);
            Touch(folder->path() / name);
        }
    }
    return folder->u16();
}

void RankingPass(benchmark::State& state) {
    const std::u16string folder = FolderWithEntries(static_cast<int>(state.range(0)));
    const auto check = ProviderHost::GetProviderList(folder, {});
    if (check.size() != 1 ||
        check.front()->GetIdentification() != Utf8ToUtf16(std::string(kProviderIDPrefix) + "Rank" +
                                                          std::to_string(kClaimingProvider))) {
        state.SkipWithError("the pass did not select exactly the claiming provider");
        return;
    }

    const std::uint64_t readsBefore = Platform::DirectoryReadCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ProviderHost::GetProviderList(folder, {}));
    }
    const std::uint64_t reads = Platform::DirectoryReadCount() - readsBefore;
    state.SetItemsProcessed(state.iterations());  // passes per second
    state.counters["dir_reads_per_pass"] =
        benchmark::Counter(static_cast<double>(reads), benchmark::Counter::kAvgIterations);
    if (reads != static_cast<std::uint64_t>(state.iterations())) {
        state.SkipWithError("a pass did not read the folder exactly once");
    }
}

BENCHMARK(RankingPass)
    ->ArgName("entries")
    ->Arg(10)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

// One read of the same folder by the platform alone, names and kinds: what a pass costs at
// the least. The ratio of the two is the price of ranking.
void FolderRead(benchmark::State& state) {
    const std::u16string folder = FolderWithEntries(static_cast<int>(state.range(0)));
    const Platform::NativeString native = Path::ToNative(std::u16string_view(folder));
    for (auto _ : state) {
        std::vector<Platform::DirectoryEntry> entries;
        benchmark::DoNotOptimize(Platform::ReadDirectory(native, entries, {}));
        benchmark::DoNotOptimize(entries.data());
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(FolderRead)
    ->ArgName("entries")
    ->Arg(10)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace

void RegisterRankingProviders() {
    for (int i = 0; i < kProviders; ++i) {
        auto provider = std::make_shared<Test::TestProvider>("Rank" + std::to_string(i));
        const std::u16string marker = Utf8ToUtf16(MarkerName(i));
        if (i % 2 == 0) {
            provider->scoreFunction = [marker](const std::string&, DirectoryContents& contents,
                                               const AbortPredicate& abort) {
                for (const std::u16string& file : contents.GetFileList(abort)) {
                    if (EndsWithLeaf(file, marker))
                        return 30;
                }
                return 0;
            };
        } else {
            provider->scoreFunction = [marker](const std::string&, DirectoryContents& contents,
                                               const AbortPredicate& abort) {
                for (const Directory& directory : contents.GetDirectoryList(abort)) {
                    if (EndsWithLeaf(directory.GetFullPath(), marker))
                        return 30;
                }
                return 0;
            };
        }
        Test::Register(provider);
    }
}

}  // namespace Tessel::Bench
