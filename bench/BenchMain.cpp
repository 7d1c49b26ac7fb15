// Runs the benchmarks on the host's main thread, inside one host for the whole process.
#include <benchmark/benchmark.h>
#include "support/Environment.h"

#include <cstdlib>
#include <string>

#include "BenchHost.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace {

using Tessel::Test::SetEnvironment;

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    // The user's favorites must not add providers' work to the figures, nor be touched.
    Tessel::Test::TempDir preferences;
    SetEnvironment("TESSEL_PREFS", (preferences.path() / "preferences.json").string());
    {
        // Names this thread the main thread (Google Benchmark runs single-threaded
        // benchmarks on the thread that calls it), initialises, and shuts down at the end.
        Tessel::Test::HostFixture host;
        Tessel::Bench::RegisterRankingProviders();
        Tessel::Bench::RegisterRoundTripProvider();
        benchmark::RunSpecifiedBenchmarks();
    }
    benchmark::Shutdown();
    return 0;
}
