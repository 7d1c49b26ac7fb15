#include "support/TestProvider.h"

#include <algorithm>
#include <chrono>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/media/PelPix.h>

namespace Tessel::Test {

TestProvider::TestProvider(std::string className, int score)
    : mClassName(std::move(className)), mScore(score) {}

SDKContentMap TestProvider::GetContent(const std::string& path, const any_regular_t&,
                                       const SDKFieldSet& fields, ProviderRequest* request) {
    ++contentCalls;
    if (contentFunction)
        return contentFunction(path, fields, request);
    SDKContentMap content;
    std::vector<std::u16string> files;
    std::vector<Directory> directories;
    Directory(Utf8ToUtf16(path))
        .GetContainedFileAndDirectoryPaths(files, directories, {}, -1)
        .Ignore();
    auto add = [&](const std::u16string& item, bool isDirectory) {
        const std::string key = Utf16ToUtf8(item);
        SDKPropertyMap& record = content[key];
        record[kSDKNameField] = Path::LeafDisplayString(item);
        record[kSDKPathField] = item;
        record[kSDKDirectoryFlagField] = isDirectory;
    };
    for (const auto& file : files) {
        if (IsRequestAborted(request))
            return {};
        add(file, false);
    }
    for (const auto& directory : directories)
        add(directory.GetFullPath(), true);
    return content;
}

std::map<std::u16string, std::u16string> TestProvider::GetFieldLabelList() {
    return {{kNameField, u"$$$/Tests/Name=Name"},
            {kPathField, u"Path"},
            {kDirectoryFlagField, u"Folder"}};
}

int TestProvider::CanProvideFor(const std::string& path, const any_regular_t&,
                                DirectoryContents& contents, const AbortPredicate& abort) {
    ++canProvideCalls;
    if (scoreFunction)
        return scoreFunction(path, contents, abort);
    return mScore;
}

PelPixHandle TestProvider::GetThumbnail(const std::string& itemPath, const std::string&,
                                        const any_regular_t&, std::uint32_t width,
                                        std::uint32_t height, ProviderRequest*) {
    if (thumbnailFunction)
        return thumbnailFunction(itemPath, width, height);
    OwnedPelPix buffer(pelpixNew(4, 2));
    PelPixLock lock(buffer.get());
    for (std::uint32_t row = 0; row < 2; ++row)
        std::fill_n(reinterpret_cast<std::uint32_t*>(lock.Row(row)), 4, 0x11223344u);
    return buffer.release();  // handed over to the caller
}

ProviderWrapper* Register(std::shared_ptr<Provider> provider) {
    ProviderHost::RegisterProvider(std::make_unique<ProviderWrapper>(std::move(provider)));
    return ProviderHost::GetAllProviders().back().get();
}

HostFixture::HostFixture(bool builtInProviders) {
    MainThread::SetCurrent();
    Settings::Set(kSettingRegisterBuiltInProviders, any_regular_t(builtInProviders));
    ProviderHost::Initialize();
    MainThread::RunPending();
}

HostFixture::~HostFixture() {
    ProviderHost::Shutdown();
    MainThread::RunPending();
    Settings::Reset(kSettingRegisterBuiltInProviders);
}

bool PumpUntil(const std::function<bool()>& done) {
    return MainThread::RunUntil(done, std::chrono::seconds(10));
}

std::string Ranking(const std::string& path) {
    std::string text;
    for (ProviderWrapper* wrapper : ProviderHost::GetProviderList(Utf8ToUtf16(path), {}))
        text += Utf16ToUtf8(wrapper->GetUIString()) + ";";
    return text;
}

}  // namespace Tessel::Test
