// The host every benchmark runs in: one per process, initialised before the first benchmark
// and shut down after the last, with the providers of every benchmark registered up front
// (the provider list may change only on the main thread, and only between passes).
#pragma once

namespace Tessel::Bench {

// The twenty folder-scanning providers of the ranking pass.
void RegisterRankingProviders();
// The one cheap provider the request round trip is answered by.
void RegisterRoundTripProvider();

}  // namespace Tessel::Bench
