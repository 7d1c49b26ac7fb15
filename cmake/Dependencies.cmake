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
