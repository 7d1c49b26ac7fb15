# Cross build for 64-bit Windows with Debian's MinGW-w64 g++ (the POSIX-thread variant,
# which gives std::thread and std::mutex). The tests run under Wine through the emulator.
#   cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/x86_64-w64-mingw32.cmake \
#         -DTESSEL_WINDOWS_DEPS=$(scripts/build-windows-deps)
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(TESSEL_MINGW_TRIPLET x86_64-w64-mingw32)

find_program(CMAKE_C_COMPILER ${TESSEL_MINGW_TRIPLET}-gcc-posix REQUIRED)
find_program(CMAKE_CXX_COMPILER ${TESSEL_MINGW_TRIPLET}-g++-posix REQUIRED)
find_program(CMAKE_RC_COMPILER ${TESSEL_MINGW_TRIPLET}-windres)

# Libraries come from the MinGW sysroot and the prefix that scripts/build-windows-deps
# prints (TESSEL_WINDOWS_DEPS); programs are the build machine's own.
set(TESSEL_WINDOWS_DEPS "" CACHE PATH "Prefix of the libraries built by scripts/build-windows-deps")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TESSEL_WINDOWS_DEPS)
set(CMAKE_FIND_ROOT_PATH /usr/${TESSEL_MINGW_TRIPLET})
if(TESSEL_WINDOWS_DEPS)
  list(APPEND CMAKE_PREFIX_PATH ${TESSEL_WINDOWS_DEPS})
endif()
# Every prefix is a search root too; with the root modes below nothing else would be found there.
list(APPEND CMAKE_FIND_ROOT_PATH ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config sees only the MinGW sysroot's modules (FindPkgConfig adds CMAKE_PREFIX_PATH's).
set(ENV{PKG_CONFIG_LIBDIR} /usr/${TESSEL_MINGW_TRIPLET}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Static libraries throughout, zlib too (FindZLIB would take the DLL's import library).
set(ZLIB_USE_STATIC_LIBS ON)

# Test programs run under Wine, in a private prefix inside the build folder.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine-run)
