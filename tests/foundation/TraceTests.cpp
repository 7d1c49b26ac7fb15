#include <tessel/foundation/Trace.h>

#include <cctype>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string_view>

#include <gtest/gtest.h>

#include <tessel/platform/StandardErrorCapture.h>

#include "support/Environment.h"
#include "support/StandardErrorFile.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

// The lines written to standard error while ACT runs, as "category: text", their
// "[HH:MM:SS.mmm] [category] text" shape checked.
template <class Act>
std::vector<std::string> TraceLines(Act&& act) {
    Tessel::Test::TempDir dir;
    Tessel::Test::StandardErrorFile file(dir.path() / "stderr.txt");
    act();
    std::istringstream lines(file.Finish());
    std::vector<std::string> seen;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();  // Windows ends lines with CR LF
        // "[HH:MM:SS.mmm] [": digits where the pattern has 9 (no std::regex: g++ 12 warns
        // falsely about it in the sanitizer build).
        const std::string_view shape = "[99:99:99.999] [";
        bool shaped = line.size() > shape.size();
        for (std::size_t i = 0; shaped && i < shape.size(); ++i)
            shaped = shape[i] == '9' ? std::isdigit(static_cast<unsigned char>(line[i])) != 0
                                     : line[i] == shape[i];
        const std::size_t close = line.find("] ", shape.size());
        EXPECT_TRUE(shaped && close != std::string::npos) << line;
        if (shaped && close != std::string::npos)
            seen.push_back(line.substr(16, close - 16) + ": " + line.substr(close + 2));
    }
    return seen;
}

TEST(Trace, OnlyEnabledCategoriesWriteLinesInTheAgreedFormat) {
    Trace::Disable("all");
    const std::vector<std::string> seen = TraceLines([] {
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
        Tessel::Test::SetEnvironment("TESSEL_TRACE", " alpha ,beta,,");
        Trace::EnableFromEnvironment();
        Trace::Write("alpha", "from the environment");
        Trace::Write("beta", "also");
        Trace::Write("gamma", "not listed");
        Trace::Disable("all");
        Tessel::Test::SetEnvironment("TESSEL_TRACE", "");
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"io: read 3 entries", "thumbs: through all",
                                              "alpha: from the environment", "beta: also"}));
    EXPECT_FALSE(Trace::IsEnabled("alpha"));
}

TEST(Trace, SinksAndCapturesOfStandardError) {
    // What a library prints is caught, by either route; the trace still reaches the real
    // standard error meanwhile.
    std::string caught;
    Trace::Enable("io");
    const std::vector<std::string> seen = TraceLines([&] {
        Platform::StandardErrorCapture capture;
        std::fprintf(stderr, "from C\n");
        std::cerr << "from C++\n";
        Trace::Write("io", "during a capture");
        caught = capture.Finish();
        EXPECT_EQ(capture.Finish(), "");
    });
    std::erase(caught, '\r');  // Windows writes text with CR LF
    EXPECT_EQ(caught, "from C\nfrom C++\n");
    EXPECT_EQ(seen, (std::vector<std::string>{"io: during a capture"}));

    // A sink takes the lines of enabled categories instead of standard error, until reset.
    std::vector<std::string> sunk;
    Trace::SetSink([&sunk](std::string_view category, std::string_view text) {
        sunk.push_back(std::string(category) + ": " + std::string(text));
    });
    EXPECT_TRUE(TraceLines([] {
                    Trace::Write("io", "to the sink");
                    Trace::Write("other", "not enabled");
                }).empty());
    Trace::SetSink({});
    EXPECT_EQ(TraceLines([] { Trace::Write("io", "back"); }),
              (std::vector<std::string>{"io: back"}));
    Trace::Disable("all");
    EXPECT_EQ(sunk, (std::vector<std::string>{"io: to the sink"}));
}

}  // namespace
}  // namespace Tessel
