// A provider for tests and benchmarks whose answers are set by the test: a score (fixed,
// or computed from the shared directory contents), a listing, and a thumbnail. It counts
// how often it was asked.
#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <tessel/framework/CapabilityInterfaces.h>
#include <tessel/framework/Provider.h>
#include <tessel/framework/ProviderHost.h>

namespace Tessel::Test {

class TestProvider : public Provider {
public:
    explicit TestProvider(std::string className, int score = 0);
    // What CanProvideFor answers; by default the fixed score.
    std::function<int(const std::string& path, DirectoryContents& contents,
                      const AbortPredicate& abort)>
        scoreFunction;
    // What GetContent answers; by default one record per entry of the folder (Name, Path,
    // Directory), or nothing for a path that is not a folder.
    std::function<SDKContentMap(const std::string& path, const SDKFieldSet& fields,
                                ProviderRequest* request)>
        contentFunction;
    // What GetThumbnail answers; by default a 4x2 buffer filled with 0x11223344.
    std::function<PelPixHandle(const std::string& path, std::uint32_t width, std::uint32_t height)>
        thumbnailFunction;
    std::atomic<int> canProvideCalls{0};
    std::atomic<int> contentCalls{0};
    bool projectBased = false;
    bool cloud = false;
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override {
        return {kSDKNameField, kSDKPathField, kSDKDirectoryFlagField};
    }
    std::vector<std::string> GetDefaultFieldList() override {
        return {kSDKNameField, kSDKDirectoryFlagField};
    }
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override { return kProviderIDPrefix + mClassName; }
    std::string GetUIString() override { return "Test " + mClassName; }
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t height) override {
        return std::min<std::uint32_t>(height, 256);
    }
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override { return true; }
    bool IsSelectable() override { return true; }
    bool IsProjectBasedProvider() override { return projectBased; }
    bool IsCloudStorageType() override { return cloud; }
    // Lets a test call the protected notifications.
    void Progress(const std::u16string& path, double progress) {
        NotifyGetContentProgress(path, progress);
    }
    void Unavailable(const std::u16string& path) { NotifyGetContentUnavailable(path); }

private:
    std::string mClassName;
    int mScore;
};

// Registers PROVIDER with the running host and returns its wrapper.
ProviderWrapper* Register(std::shared_ptr<Provider> provider);

// An initialised host on this thread as its main thread, shut down at the end (also when
// the test fails). The library's own providers are registered only when asked for.
class HostFixture {
public:
    explicit HostFixture(bool builtInProviders = false);
    ~HostFixture();
    HostFixture(const HostFixture&) = delete;
    HostFixture& operator=(const HostFixture&) = delete;
};

// What a user sees for PATH (UTF-8): the names of the providers that can show it, best first,
// each followed by ";".
std::string Ranking(const std::string& path);

// Pumps the main thread until DONE() or 10 seconds passed; returns DONE().
bool PumpUntil(const std::function<bool()>& done);

}  // namespace Tessel::Test
