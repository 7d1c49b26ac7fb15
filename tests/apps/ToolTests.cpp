// The tessel command line, run in process against test providers.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include "Commands.h"
#include "Interrupt.h"
#include "Tool.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;

struct Result {
    int status;
    std::string out;
    std::string err;
};

Result RunTool(std::vector<std::string> args) {
    std::ostringstream out, err;
    const int status = Tool::Run(args, out, err);
    return {status, out.str(), err.str()};
}

std::string Id(const char* name) {
    return std::string(kProviderIDPrefix) + name;
}

TEST(Tool, ProvidersRanksAndListsInRegistrationOrder) {
    Tessel::Test::HostFixture host;
    Tessel::Test::Register(std::make_shared<Tessel::Test::TestProvider>("Folder", 30));
    Tessel::Test::Register(std::make_shared<Tessel::Test::TestProvider>("Card", 100));
    Tessel::Test::Register(std::make_shared<Tessel::Test::TestProvider>("Never", 0));

    Result ranked = RunTool({"providers", "/media/card", "--json"});
    ASSERT_EQ(ranked.status, 0) << ranked.err;
    auto doc = nlohmann::json::parse(ranked.out);
    // On Windows the path is on the current drive, in long-path form.
    EXPECT_EQ(doc["path"], Utf16ToUtf8(Tool::NormalizeLocation("/media/card")));
    ASSERT_EQ(doc["providers"].size(), 2u);
    EXPECT_EQ(doc["providers"][0]["id"], Id("Card"));
    EXPECT_EQ(doc["providers"][0]["score"], 100);
    EXPECT_EQ(doc["providers"][1]["name"], "Test Folder");

    Result all = RunTool({"providers", "--all", "--json"});
    ASSERT_EQ(all.status, 0);
    doc = nlohmann::json::parse(all.out);
    ASSERT_EQ(doc["providers"].size(), 3u);
    EXPECT_EQ(doc["providers"][2]["id"], Id("Never"));
    EXPECT_FALSE(doc["providers"][0].contains("score"));

    Result empty = RunTool({"providers", "", "--json"});
    EXPECT_EQ(empty.status, 1);
    EXPECT_TRUE(nlohmann::json::parse(empty.out)["providers"].empty());

    Result people = RunTool({"providers", "/media/card/"});
    EXPECT_EQ(people.status, 0);
    EXPECT_NE(people.out.find("100    " + Id("Card")), std::string::npos) << people.out;
}

TEST(Tool, LocationsAreNormalised) {
    for (const char* same : {"volumes:", "CLSource://project/bin", "\\\\?\\C:\\Media", ""})
        EXPECT_EQ(Tool::NormalizeLocation(same), Utf8ToUtf16(same)) << same;
#if defined(_WIN32)
    // Drive and share paths take the long-path form the library works with, in which "." and
    // ".." mean nothing, so they are resolved first.
    const std::pair<const char*, std::u16string> longForms[] = {
        {"C:\\Media", u"\\\\?\\C:\\Media"},
        {"C:\\", u"\\\\?\\C:\\"},
        {"c:/Media/./x/../y/", u"\\\\?\\c:\\Media\\y"},
        {"C:\\..", u"\\\\?\\C:\\"},
        {"\\\\server\\share\\x", u"\\\\?\\UNC\\server\\share\\x"},
        {"\\\\server\\share\\..", u"\\\\?\\UNC\\server\\share\\"},
        {"\\\\server\\share", u"\\\\?\\UNC\\server\\share"}};
    for (const auto& [argument, expected] : longForms)
        EXPECT_EQ(Tool::NormalizeLocation(argument), expected) << argument;
    const std::u16string relative = Tool::NormalizeLocation("some\\where");
    EXPECT_EQ(relative.substr(0, 4), u"\\\\?\\");
    EXPECT_EQ(relative.substr(relative.size() - 11), u"\\some\\where");
#else
    EXPECT_EQ(Tool::NormalizeLocation("/"), u"/");
    EXPECT_EQ(Tool::NormalizeLocation("/a/b//"), u"/a/b");
    const std::u16string relative = Tool::NormalizeLocation("some/where");
    EXPECT_EQ(relative.front(), u'/');
    EXPECT_EQ(relative.substr(relative.size() - 11), u"/some/where");
#endif
}

#if defined(_WIN32)
TEST(Tool, TheFolderProviderClaimsADrivePathGivenAsPeopleWriteIt) {
    Tessel::Test::HostFixture host;
    Tessel::Test::Register(std::make_shared<WinProviderDirectory>());
    Result result = RunTool({"providers", "C:\\windows", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto doc = nlohmann::json::parse(result.out);
    EXPECT_EQ(doc["path"], "\\\\?\\C:\\windows");
    ASSERT_EQ(doc["providers"].size(), 1u);
    EXPECT_EQ(doc["providers"][0]["score"], 30);
}
#endif

TEST(Tool, ListWritesRecordsForPeopleAndPrograms) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("b.mov");
    dir.WriteFile("A.wav");
    dir.WriteFile("caf\xC3\xA9.jpg");
    dir.MakeDir("Sub");
    Tessel::Test::HostFixture host;
    Tessel::Test::Register(std::make_shared<Tessel::Test::TestProvider>("Folder", 30));

    Result json = RunTool({"ls", dir.str(), "--json", "--fields", "Name,Directory"});
    ASSERT_EQ(json.status, 0) << json.err;
    auto doc = nlohmann::json::parse(json.out);
    EXPECT_EQ(doc["provider"], Id("Folder"));
    EXPECT_EQ(doc["code"], 0);
    ASSERT_EQ(doc["items"].size(), 4u);
    // Keys in UTF-16 order of the full paths: "A.wav" < "Sub" < "b.mov" < "café.jpg".
    EXPECT_EQ(doc["items"][0]["fields"]["Name"], "A.wav");
    EXPECT_EQ(doc["items"][1]["fields"]["Directory"], true);
    EXPECT_EQ(doc["items"][3]["fields"]["Name"], "caf\xC3\xA9.jpg");
    EXPECT_EQ(doc["items"][3]["key"],
              Path::Join(std::string_view(dir.longStr()), "caf\xC3\xA9.jpg"));

    Result people = RunTool({"ls", dir.str()});
    ASSERT_EQ(people.status, 0);
    std::istringstream lines(people.out);
    std::string header, first;
    std::getline(lines, header);
    std::getline(lines, first);
    EXPECT_EQ(header, "Name      Folder");  // labels localized, columns aligned by characters
    EXPECT_EQ(first, "A.wav     no");

    Result unknown = RunTool({"ls", dir.str(), "--provider", "nobody"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("nobody"), std::string::npos);
}

TEST(Tool, ErrorsAndUsage) {
    Tessel::Test::HostFixture host;
    Result missing = RunTool({"ls", "/no/such/folder"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "tessel: " + Utf16ToUtf8(Tool::NormalizeLocation("/no/such/folder")) +
                               ": no such file or folder\n");
    EXPECT_EQ(RunTool({"ls"}).status, 2);
    EXPECT_EQ(RunTool({"frobnicate"}).status, 2);
    EXPECT_EQ(RunTool({"providers"}).status, 2);
    EXPECT_EQ(RunTool({"--set", "novalue", "providers", "--all"}).status, 2);
    Result help = RunTool({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("providers"), std::string::npos);
    EXPECT_EQ(RunTool({"--version"}).status, 0);

    EXPECT_EQ(RunTool({"--set", "Tessel.Tests.Value=42", "providers", "--all"}).status, 0);
    EXPECT_EQ(Settings::GetInt("Tessel.Tests.Value", 0), 42);
    Settings::Reset("Tessel.Tests.Value");
}

TEST(Tool, DefaultListingAndInterrupt) {
    Tessel::Test::TempDir dir;
    dir.MakeDir("Opens");
    dir.WriteFile("clip.mov");
    Tessel::Test::HostFixture host;
    auto folder = std::make_shared<Tessel::Test::TestProvider>("Folder");
    folder->scoreFunction = [](const std::string& path, DirectoryContents& contents,
                               const AbortPredicate&) {
        return contents.IsDirectory() || path.empty() ? 30 : 0;
    };
    Tessel::Test::Register(folder);

    Result json = RunTool({"default", dir.str(), "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    auto doc = nlohmann::json::parse(json.out);
    ASSERT_EQ(doc["items"].size(), 1u);  // the file cannot be opened as a location
    EXPECT_EQ(doc["items"][0]["fields"]["Name"], "Opens");

    // Ctrl-C while a listing runs aborts the request; the tool exits with 3.
    folder->contentFunction = [](const std::string&, const SDKFieldSet&, ProviderRequest* request) {
        Tool::SetInterruptRequested(true);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!IsRequestAborted(request) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return SDKContentMap();
    };
    Result interrupted = RunTool({"ls", dir.str()});
    Tool::SetInterruptRequested(false);
    EXPECT_EQ(interrupted.status, 3);
    EXPECT_EQ(interrupted.err, "tessel: interrupted\n");
}

// The size from a PNG file's header (the IHDR chunk follows the signature).
std::optional<std::pair<std::uint32_t, std::uint32_t>> PngSize(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::string b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (b.size() < 24 || b.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0)
        return std::nullopt;
    const auto be32 = [&](std::size_t at) {
        std::uint32_t v = 0;
        for (std::size_t i = at; i < at + 4; ++i)
            v = (v << 8) | std::uint8_t(b[i]);
        return v;
    };
    return std::make_pair(be32(16), be32(20));
}

TEST(Tool, ThumbnailsAreWrittenAsPng) {
    Tessel::Test::HostFixture host;
    Tessel::Test::TempDir dir;
    auto card = std::make_shared<Tessel::Test::TestProvider>("Card", 100);
    std::atomic<std::uint32_t> askedWidth{0}, askedHeight{0};
    card->thumbnailFunction = [&](const std::string&, std::uint32_t width, std::uint32_t height) {
        askedWidth = width;
        askedHeight = height;
        return pelpixNew(3, 5);
    };
    auto none = std::make_shared<Tessel::Test::TestProvider>("None", 10);
    none->thumbnailFunction = [](const std::string&, std::uint32_t, std::uint32_t) {
        return PelPixHandle(nullptr);
    };
    Tessel::Test::Register(card);
    Tessel::Test::Register(none);

    const std::string output = (dir.path() / "out.png").string();
    Result best = RunTool({"thumb", dir.str(), "--size", "320x180", "-o", output});
    ASSERT_EQ(best.status, 0) << best.err;
    EXPECT_NE(best.out.find("3x5 from " + Id("Card")), std::string::npos) << best.out;
    EXPECT_EQ(askedWidth, 320u);
    EXPECT_EQ(askedHeight, 180u);
    EXPECT_EQ(PngSize(output), std::make_pair(3u, 5u));

    // A provider without a picture, a bad size, an unknown provider, an unwritable file.
    Result nothing = RunTool({"thumb", dir.str(), "--provider", Id("None"), "-o", output});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_NE(nothing.err.find("has no thumbnail"), std::string::npos) << nothing.err;
    for (const char* size : {"320", "x180", "320x", "-1x5", "99999x1", "20000x1", "axb"}) {
        Result bad = RunTool({"thumb", dir.str(), "--size", size, "-o", output});
        EXPECT_EQ(bad.status, 2) << size;
        EXPECT_NE(bad.err.find("--size"), std::string::npos) << bad.err;
    }
    EXPECT_EQ(RunTool({"thumb", dir.str(), "--provider", "nope", "-o", output}).status, 2);
    EXPECT_EQ(RunTool({"thumb", dir.str()}).status, 2);  // no -o
    Result unwritable = RunTool({"thumb", dir.str(), "-o", dir.str() + "/missing/x.png"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_NE(unwritable.err.find("cannot write"), std::string::npos) << unwritable.err;
    // The earlier thumbnail is still there, whole.
    EXPECT_EQ(PngSize(output), std::make_pair(3u, 5u));

    // Several items go into a folder, each named after its item; a file is no folder.
    const std::string a = dir.MakeDir("a").string(), b = dir.MakeDir("b").string();
    const fs::path out = dir.MakeDir("out");
    Result several = RunTool({"thumb", a, b, "-o", out.string()});
    ASSERT_EQ(several.status, 0) << several.err;
    EXPECT_EQ(PngSize(out / "a.png"), std::make_pair(3u, 5u));
    EXPECT_EQ(PngSize(out / "b.png"), std::make_pair(3u, 5u));
    EXPECT_EQ(RunTool({"thumb", a, b, "-o", output}).status, 2);

    // --image renders an image file without asking the providers.
    const fs::path again = dir.path() / "again.png";
    Result image = RunTool({"thumb", "--image", output, "--size", "6x10", "-o", again.string()});
    ASSERT_EQ(image.status, 0) << image.err;
    EXPECT_EQ(PngSize(again), std::make_pair(6u, 10u));
    EXPECT_EQ(image.out.find(" from "), std::string::npos);
    EXPECT_EQ(RunTool({"thumb", "--image", a, "-o", output}).status, 1);
}

}  // namespace
}  // namespace Tessel
