// POSIX special files for tests that check they are listed as neither file nor folder and
// never opened: a FIFO opened for reading would block the test until a writer came.
#pragma once

#if !defined(_WIN32)

#include <atomic>
#include <filesystem>
#include <thread>

namespace Tessel::Test {

// Makes a FIFO at PATH; false on failure.
bool MakeFifo(const std::filesystem::path& path);
// Binds a Unix-domain socket at PATH and closes it, which leaves the socket file behind.
bool MakeUnixSocket(const std::filesystem::path& path);

// Watches a FIFO while the code under test runs. Opening the write end without blocking
// succeeds only while a reader has the FIFO open, so the watch notices a reader, lets it go
// (the reader's open returns and it reads end of file) and remembers it. The test then
// fails instead of hanging.
class FifoReaderWatch {
public:
    explicit FifoReaderWatch(std::filesystem::path fifo);
    ~FifoReaderWatch();
    FifoReaderWatch(const FifoReaderWatch&) = delete;
    FifoReaderWatch& operator=(const FifoReaderWatch&) = delete;

    // Stops watching; true when a reader opened the FIFO at any point the watch saw.
    bool Stop();

private:
    bool CheckOnce();

    std::filesystem::path mFifo;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mReaderSeen{false};
    std::thread mThread;
};

}  // namespace Tessel::Test

#endif
