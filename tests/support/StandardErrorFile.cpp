#include "support/StandardErrorFile.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#if defined(_WIN32)
#include <io.h>
#define dup _dup
#define dup2 _dup2
#define close _close
#define fileno _fileno
#else
#include <unistd.h>
#endif

namespace Tessel::Test {

StandardErrorFile::StandardErrorFile(std::filesystem::path file) : mFile(std::move(file)) {
    std::cerr.flush();
    std::fflush(stderr);
    mSaved = dup(fileno(stderr));
    std::FILE* target = std::fopen(mFile.string().c_str(), "wb");
    dup2(fileno(target), fileno(stderr));
    std::fclose(target);
}

StandardErrorFile::~StandardErrorFile() {
    Restore();
}

std::string StandardErrorFile::Finish() {
    Restore();
    std::ifstream in(mFile, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void StandardErrorFile::Restore() {
    if (mSaved < 0)
        return;
    std::cerr.flush();
    std::fflush(stderr);
    dup2(mSaved, fileno(stderr));
    close(mSaved);
    mSaved = -1;
}

}  // namespace Tessel::Test
