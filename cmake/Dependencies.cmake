# Every dependency is a Debian package (scripts/install-deps installs them).
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(utf8cpp REQUIRED)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_package(PNG REQUIRED)

# Standalone Asio is header-only and ships no CMake package.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(tessel_asio INTERFACE)
target_include_directories(tessel_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(tessel_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)

# Image decoding, SVG artwork and the mount table come from the operating system's own
# libraries on Windows (GDI+, the shell); elsewhere from these packages.
if(NOT WIN32)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
  pkg_check_modules(RSVG REQUIRED IMPORTED_TARGET librsvg-2.0)
  pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo)
  # stb_image: Debian builds the implementation into libstb; only its header is included.
  find_path(STB_INCLUDE_DIR stb_image.h PATH_SUFFIXES stb REQUIRED)
  find_library(STB_LIBRARY stb REQUIRED)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    pkg_check_modules(MOUNT REQUIRED IMPORTED_TARGET mount)
  endif()
  add_library(tessel_stb INTERFACE)
  target_include_directories(tessel_stb SYSTEM INTERFACE ${STB_INCLUDE_DIR})
  target_link_libraries(tessel_stb INTERFACE ${STB_LIBRARY})
endif()
