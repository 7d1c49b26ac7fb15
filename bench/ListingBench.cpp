// The folder provider's listing of a 100,000-entry folder: the default columns (names only,
// no stat) and all columns, on the provider and through its wrapper (which converts the
// records to the host's strings), beside the bare directory read they are built on.
#include <benchmark/benchmark.h>

#if defined(_WIN32)
#include <fstream>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include <tessel/framework/ProviderWrapper.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include "support/TempDir.h"

namespace Tessel::Bench {

namespace {

constexpr int kEntries = 100000;

// The folder, made on first use (100,000 files take a while) and kept for the process.
const Test::TempDir& Folder() {
    static const std::unique_ptr<Test::TempDir> folder = [] {
        auto made = std::make_unique<Test::TempDir>();
        char name[32];
        for (int i = 0; i < kEntries; ++i) {
            std::snprintf(name, sizeof name, "clip-%06d.mxf", i);
#if defined(_WIN32)
            std::ofstream(made->path() / name, std::ios::binary);
#else
            const int fd =
                ::open((made->path() / name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            if (fd >= 0)
                ::close(fd);
#endif
        }
        return made;
    }();
    return *folder;
}

void ListWithProvider(benchmark::State& state, const SDKFieldSet& fields) {
    const std::string path = Folder().str();
    WinProviderDirectory provider;
    for (auto _ : state) {
        SDKContentMap content = provider.GetContent(path, {}, fields, nullptr);
        if (content.size() != kEntries)
            state.SkipWithError("wrong entry count");
        benchmark::DoNotOptimize(content);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}

void ListingDefaultColumns(benchmark::State& state) {
    ListWithProvider(state, {kSDKNameField, "02"});
}
BENCHMARK(ListingDefaultColumns)->Unit(benchmark::kMillisecond);

void ListingAllColumns(benchmark::State& state) {
    ListWithProvider(state, WinProviderDirectory().GetFieldList());
}
BENCHMARK(ListingAllColumns)->Unit(benchmark::kMillisecond);

void ListingDefaultColumnsThroughWrapper(benchmark::State& state) {
    const std::u16string path = Folder().u16();
    ProviderWrapper wrapper(std::make_shared<WinProviderDirectory>());
    for (auto _ : state) {
        ContentMap content = wrapper.GetContent(path, {}, {kNameField, u"02"}, nullptr);
        benchmark::DoNotOptimize(content);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(ListingDefaultColumnsThroughWrapper)->Unit(benchmark::kMillisecond);

// What the listings cost at the least: the directory read with the details they ask for.
void DirectoryReadOnly(benchmark::State& state) {
    const Platform::NativeString path = Folder().path().native();
    const auto details = static_cast<Platform::EntryDetails>(state.range(0));
    for (auto _ : state) {
        std::vector<Platform::DetailedEntry> entries;
        Platform::ReadDirectoryWithDetails(path, details, entries, {}).Ignore();
        benchmark::DoNotOptimize(entries);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(DirectoryReadOnly)
    ->Arg(Platform::kDetailHidden)
    ->Arg(Platform::kAllDetails)
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace Tessel::Bench
