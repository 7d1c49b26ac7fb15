#include <tessel/foundation/Trace.h>
#include "support/Environment.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "support/TempDir.h"

#if defined(_WIN32)
#include <io.h>
#define dup _dup
#define dup2 _dup2
#define close _close
#define fileno _fileno
#else
#include <unistd.h>
#endif

namespace Tessel {
namespace {

// Sends standard error to a file for the lifetime of the object.
class StderrCapture {
public:
    explicit StderrCapture(const std::filesystem::path& file) : mFile(file) {
        std::fflush(stderr);
        mSaved = dup(fileno(stderr));
        std::FILE* target = std::fopen(file.string().c_str(), "wb");
        dup2(fileno(target), fileno(stderr));
        std::fclose(target);
    }
    ~StderrCapture() { Restore(); }
    std::string Finish() {
        Restore();
        std::ifstream in(mFile, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    void Restore() {
        if (mSaved < 0)
            return;
        std::fflush(stderr);
        dup2(mSaved, fileno(stderr));
        close(mSaved);
        mSaved = -1;
    }
    std::filesystem::path mFile;
    int mSaved = -1;
};

// True when TEXT has the shape of PATTERN, in which '9' stands for any digit.
bool MatchesShape(std::string_view text, std::string_view pattern) {
    if (text.size() != pattern.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (pattern[i] == '9' ? !digit : text[i] != pattern[i])
            return false;
    }
    return true;
}

using Tessel::Test::SetEnvironment;

TEST(Trace, OnlyEnabledCategoriesWriteLinesInTheAgreedFormat) {
    Tessel::Test::TempDir dir;
    Trace::Disable("all");
    EXPECT_FALSE(Trace::IsEnabled("io"));

    StderrCapture capture(dir.path() / "stderr.txt");
    Trace::Write("io", "before enabling");
    Trace::Enable("io");
    Trace::Write("io", "read 3 entries");
    Trace::Write("thumbs", "not enabled");
    Trace::Enable("all");
    Trace::Disable("noisy");
    Trace::Write("thumbs", "through all");
    Trace::Write("noisy", "excluded from all");
    Trace::Disable("all");
    Trace::Write("io", "after disabling all");
    SetEnvironment("TESSEL_TRACE", " alpha ,beta,,");
    Trace::EnableFromEnvironment();
    Trace::Write("alpha", "from the environment");
    Trace::Write("beta", "also");
    Trace::Write("gamma", "not listed");
    Trace::Disable("all");
    SetEnvironment("TESSEL_TRACE", "");
    const std::string text = capture.Finish();

    std::vector<std::string> seen;
    std::istringstream lines(text);
    for (std::string current; std::getline(lines, current);) {
        if (!current.empty() && current.back() == '\r')
            current.pop_back();  // Windows ends lines with CR LF
        // "[HH:MM:SS.mmm] [category] text"
        ASSERT_TRUE(MatchesShape(current.substr(0, 16), "[99:99:99.999] [")) << current;
        const std::size_t close = current.find("] ", 16);
        ASSERT_NE(close, std::string::npos) << current;
        seen.push_back(current.substr(16, close - 16) + ": " + current.substr(close + 2));
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"io: read 3 entries", "thumbs: through all",
                                              "alpha: from the environment", "beta: also"}));
    EXPECT_FALSE(Trace::IsEnabled("alpha"));
}

}  // namespace
}  // namespace Tessel
