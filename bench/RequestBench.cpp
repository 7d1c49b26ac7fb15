// A request's round trip: RequestProviderList starts it on the high-priority executor, and
// the iteration ends when its GetProviderListMessage is delivered on the main thread.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <string>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Messaging.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Messages.h>
#include <tessel/framework/ProviderHost.h>

#include "BenchHost.h"
#include "support/TestProvider.h"

namespace Tessel::Bench {

namespace {

// Not a folder, so the ranking pass's providers find nothing to read and answer 0 at once.
const std::u16string kRoundTripPath = u"/tessel-bench/round-trip";

void RequestRoundTrip(benchmark::State& state) {
    MainThread::SetCurrent();
    const ImmutableString station("Tessel.Bench.RoundTrip");
    Messaging::RegisterStation(station);
    std::int64_t delivered = 0;
    std::int64_t wrong = 0;
    ScopedListener listener(Messaging::Listen<GetProviderListMessage>(
        station, [&](const GetProviderListMessage& message) {
            ++delivered;
            if (message.result != kResultSuccess || message.providers.size() != 1)
                ++wrong;
        }));

    for (auto _ : state) {
        const std::int64_t target = delivered + 1;
        ProviderHost::RequestProviderList(kRoundTripPath, {}, station);
        while (delivered < target) {
            if (!MainThread::RunOne(std::chrono::seconds(10))) {
                state.SkipWithError("no answer within 10 seconds");
                break;
            }
        }
        if (delivered < target)
            break;
    }
    state.SetItemsProcessed(state.iterations());  // round trips per second
    Messaging::DisposeStation(station);
    if (wrong != 0 && !state.error_occurred())
        state.SkipWithError("a wrong answer arrived");
}

BENCHMARK(RequestRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

void RegisterRoundTripProvider() {
    auto provider = std::make_shared<Test::TestProvider>("RoundTrip");
    provider->scoreFunction = [claimed = Utf16ToUtf8(kRoundTripPath)](
                                  const std::string& path, DirectoryContents&,
                                  const AbortPredicate&) { return path == claimed ? 30 : 0; };
    Test::Register(provider);
}

}  // namespace Tessel::Bench
