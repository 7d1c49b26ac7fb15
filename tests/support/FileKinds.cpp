#include "support/FileKinds.h"

#if !defined(_WIN32)

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

namespace Tessel::Test {

bool MakeFifo(const std::filesystem::path& path) {
    return mkfifo(path.c_str(), 0644) == 0;
}

bool MakeUnixSocket(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string& native = path.native();
    if (native.size() >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path, native.c_str(), native.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0)
        return false;
    const bool bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(fd);
    return bound;
}

FifoReaderWatch::FifoReaderWatch(std::filesystem::path fifo) : mFifo(std::move(fifo)) {
    mThread = std::thread([this] {
        while (!mStop.load()) {
            if (CheckOnce())
                mReaderSeen = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
}

FifoReaderWatch::~FifoReaderWatch() {
    Stop();
}

bool FifoReaderWatch::Stop() {
    if (mThread.joinable()) {
        mStop = true;
        mThread.join();
        if (CheckOnce())
            mReaderSeen = true;
    }
    return mReaderSeen.load();
}

bool FifoReaderWatch::CheckOnce() {
    const int fd = open(mFifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;  // ENXIO: nobody is reading
    close(fd);
    return true;
}

}  // namespace Tessel::Test

#endif
