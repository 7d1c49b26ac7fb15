// Project lock files: the text form both ways, and reading, replacing and removing real lock
// files, including the files that must not be read (FIFOs, folders, oversized ones).
#include <tessel/providers/filesystem/ProjectLockFile.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using namespace Tessel;

TEST(ProjectLockFile, TextForm) {
    const auto lock = ParseProjectLock(
        "\xEF\xBB\xBF# written elsewhere\r\n\r\n  holder = Jane Doe \r\nmachine=bay=3\r\n"
        "colour=blue\r\ntime=2024-03-05T10:07:02+01:00\r\n");
    ASSERT_TRUE(lock);
    EXPECT_EQ(lock->holder, "Jane Doe");
    EXPECT_EQ(lock->machine, "bay=3");
    ASSERT_TRUE(lock->time);
    EXPECT_EQ(lock->time->ToIso8601(), "2024-03-05T09:07:02Z");
    EXPECT_EQ(ParseProjectLock(*FormatProjectLock(*lock)), lock);

    for (const char* unusable :
         {"", "machine=m\n", "holder=\n", "holder=a\nholder=b\n", "holder=a\nnot a pair\n",
          "holder=a\tb\n", "holder=a\nx=\x01\n", "holder=a\ntime=yesterday\n",
          "holder=a\ntime=\n\ntime=\n", "holder=a\ntime=9999-12-31T23:59:59-01:00\n"}) {
        EXPECT_EQ(ParseProjectLock(unusable), std::nullopt) << unusable;
    }
    EXPECT_EQ(ParseProjectLock("holder=a\n" + std::string(kMaximumProjectLockFileSize, '#')),
              std::nullopt);

    EXPECT_EQ(FormatProjectLock({"  ", "m", {}}), std::nullopt);
    EXPECT_EQ(FormatProjectLock({"a\nholder=b", "", {}}), std::nullopt);
    EXPECT_EQ(FormatProjectLock({"a", "", DateTime{-62135596800LL * 1000000 - 1}}), std::nullopt);
}

#if !defined(_WIN32)

TEST(ProjectLockFile, ReadWriteAndRemove) {
    Tessel::Test::TempDir dir;
    const std::string project = dir.str() + "/Cut.plproj";
    EXPECT_EQ(ProjectLockFilePath(project), project + ".lock");
    EXPECT_EQ(ReadProjectLockFile(project), std::nullopt);

    const ProjectLock lock{"Jane", "bay-3", DateTime{1709629622000000}};
    ASSERT_TRUE(WriteProjectLockFile(project, lock).IsOk());
    EXPECT_EQ(ReadProjectLockFile(project), lock);
    ASSERT_TRUE(WriteProjectLockFile(project, {"Max", "", {}}).IsOk());
    EXPECT_EQ(WriteProjectLockFile(project, {"", "", {}}).Code(), StatusCode::kInvalidArgument);
    EXPECT_EQ(ReadProjectLockFile(project)->holder, "Max");  // a refused write changes nothing
    EXPECT_EQ(WriteProjectLockFile(dir.str() + "/missing/Cut.plproj", lock).Code(),
              StatusCode::kNotFound);

    for (int twice = 0; twice < 2; ++twice) {  // nothing to remove is fine
        const Status removed = RemoveProjectLockFile(project);
        EXPECT_TRUE(removed.IsOk()) << removed.Message();
    }
    EXPECT_EQ(ReadProjectLockFile(project), std::nullopt);

    // Lock paths that are no lock files: never opened, never read whole, never removed.
    dir.WriteFile("Folder.plproj.lock/inside");
    EXPECT_EQ(ReadProjectLockFile(dir.str() + "/Folder.plproj"), std::nullopt);
    EXPECT_FALSE(RemoveProjectLockFile(dir.str() + "/Folder.plproj").IsOk());
    dir.WriteFile("Big.plproj.lock", "holder=a\n" + std::string(kMaximumProjectLockFileSize, '#'));
    EXPECT_EQ(ReadProjectLockFile(dir.str() + "/Big.plproj"), std::nullopt);
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "Pipe.plproj.lock"));
    Tessel::Test::FifoReaderWatch watch(dir.path() / "Pipe.plproj.lock");
    EXPECT_EQ(ReadProjectLockFile(dir.str() + "/Pipe.plproj"), std::nullopt);
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
}

#endif  // !_WIN32

}  // namespace
