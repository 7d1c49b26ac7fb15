// Sends the process's standard error (descriptor 2) to a file for the lifetime of the
// object, so a test can read what was printed.
#pragma once

#include <filesystem>
#include <string>

namespace Tessel::Test {

class StandardErrorFile {
public:
    explicit StandardErrorFile(std::filesystem::path file);
    ~StandardErrorFile();
    StandardErrorFile(const StandardErrorFile&) = delete;
    StandardErrorFile& operator=(const StandardErrorFile&) = delete;

    // Restores standard error and returns what was written to it meanwhile.
    std::string Finish();

private:
    void Restore();
    std::filesystem::path mFile;
    int mSaved = -1;
};

}  // namespace Tessel::Test
