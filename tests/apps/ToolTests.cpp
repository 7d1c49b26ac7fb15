// The tessel command line, run in process against test providers: usage, the preferences
// file, aborts and thumbnails. What the commands print is checked by the golden outputs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <tessel/foundation/Preferences.h>
#include <tessel/media/PngEncoding.h>
#include <tessel/platform/ImageDecoding.h>

#include "Interrupt.h"
#include "Tool.h"
#include "support/FileKinds.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using Tessel::Test::Register;
using Tessel::Test::TestProvider;

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

TEST(Tool, ErrorsUsageAndThePreferencesFile) {
    Tessel::Test::TempDir dir;
    Tessel::Test::HostFixture host;
    EXPECT_EQ(RunTool({"--set", "x", "ls"}).status, 2);  // (other usage errors: golden outputs)
    // --prefs naming what cannot be a preferences file is refused, and nothing is touched.
    const fs::path folder = dir.MakeDir("Folder");
    std::vector<std::string> refused = {folder.string(), (dir.path() / "no" / "p.json").string()};
#if !defined(_WIN32)
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "fifo"));
    refused.push_back((dir.path() / "fifo").string());
#endif
    for (const std::string& prefs : refused)
        EXPECT_EQ(RunTool({"--prefs", prefs, "providers", "--all"}).status, 2) << prefs;
    // A malformed file: one warning, and a command that saves nothing leaves it as it is.
    const fs::path prefs = dir.WriteFile("prefs.json", "{\"cut");
    Result volumes = RunTool({"--prefs", prefs.string(), "providers", "--all"});
    Preferences::UseFile({});
    EXPECT_NE(volumes.err.find("warning: the preferences file"), std::string::npos);
    EXPECT_EQ(volumes.err.find("warning"), volumes.err.rfind("warning")) << volumes.err;
    EXPECT_TRUE(fs::is_directory(folder));
    for (const auto& entry : fs::directory_iterator(dir.path()))
        EXPECT_EQ(entry.path().string().find("unreadable"), std::string::npos) << entry.path();
    std::ifstream in(prefs);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "{\"cut");
}

TEST(Tool, AbortedListingsAndThumbnails) {
    Tessel::Test::TempDir dir;
    Tessel::Test::HostFixture host;
    auto card = std::make_shared<TestProvider>("Card", 100);
    // Ctrl-C while a listing runs aborts the request; the tool exits with 3.
    card->contentFunction = [](const std::string&, const SDKFieldSet&, ProviderRequest* request) {
        Tool::SetInterruptRequested(true);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!IsRequestAborted(request) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return SDKContentMap();
    };
    Register(card);
    Result interrupted = RunTool({"ls", dir.str()});
    Tool::SetInterruptRequested(false);
    EXPECT_EQ(interrupted.status, 3);
    EXPECT_EQ(interrupted.err, "tessel: interrupted\n");

    const std::string output = (dir.path() / "out.png").string();
    Result best = RunTool({"thumb", dir.str(), "-o", output});
    ASSERT_EQ(best.status, 0) << best.err;
    const auto bytes = fs::file_size(output);
    for (const char* size : {"320", "x180", "320x", "-1x5", "99999x1", "20000x1", "axb"})
        EXPECT_EQ(RunTool({"thumb", dir.str(), "--size", size, "-o", output}).status, 2) << size;
    // An unwritable file fails, and the earlier thumbnail is still there, whole.
    EXPECT_EQ(RunTool({"thumb", dir.str(), "-o", dir.str() + "/missing/x.png"}).status, 1);
    EXPECT_EQ(fs::file_size(output), bytes);
}

// Pictures drawn side by side: Ctrl-C once the first file is written stops the command with
// 3; every file left is a whole PNG, under the name its item was given, and no temporary
// file remains.
TEST(Tool, InterruptedPicturesLeaveOnlyWholeFiles) {
    Tessel::Test::TempDir dir;
    const OwnedPelPix picture(pelpixNew(640, 360));
    {
        PelPixLock lock(picture.get());
        for (std::size_t i = 0; i < 640 * 360 * 4; ++i)
            lock.Pixels()[i] = static_cast<std::uint8_t>(i * 7 + i / 2560);
    }
    const std::vector<std::uint8_t> png = EncodePng(picture.get());
    std::vector<std::string> args = {"thumb", "--image", "--size", "64x36", "-o"};
    args.push_back(dir.MakeDir("out").string());
    constexpr int kPictures = 150;
    for (int i = 0; i < kPictures; ++i)
        args.push_back(
            dir.WriteFile("p" + std::to_string(i) + ".png", std::string(png.begin(), png.end()))
                .string());
    std::atomic<bool> running = true;
    std::thread pressCtrlC([&] {
        while (running && !Tool::InterruptRequested()) {
            for (const auto& entry : fs::directory_iterator(dir.path() / "out"))
                if (entry.path().extension() == ".png")
                    Tool::SetInterruptRequested(true);
        }
    });
    const Result result = RunTool(args);
    running = false;
    pressCtrlC.join();
    Tool::SetInterruptRequested(false);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "tessel: interrupted\n");
    int written = 0;
    for (const auto& entry : fs::directory_iterator(dir.path() / "out")) {
        const std::string name = entry.path().filename().string();
        EXPECT_EQ(name.rfind("p", 0), 0u) << name;
        EXPECT_EQ(entry.path().extension(), ".png") << name;
        const auto bytes = Platform::ReadImageFile(entry.path().native());
        ASSERT_TRUE(bytes) << name;
        const auto decoded = Platform::DecodeImage(*bytes);
        ASSERT_TRUE(decoded) << name;
        EXPECT_EQ(decoded->width, 64u);
        ++written;
    }
    EXPECT_GT(written, 0);
    EXPECT_LT(written, kPictures);
}

}  // namespace
}  // namespace Tessel
