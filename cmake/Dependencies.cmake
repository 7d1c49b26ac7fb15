# Every dependency is a Debian package (scripts/install-deps installs them).
find_package(Threads REQUIRED)
find_package(PNG REQUIRED)

if(CMAKE_CROSSCOMPILING AND WIN32)
  # The header-only libraries come from the build machine's Debian packages. Their folders
  # are linked into one include folder of their own: adding /usr/include itself would hide
  # the MinGW C library behind glibc's headers.
  set(TESSEL_HOST_HEADERS ${PROJECT_BINARY_DIR}/host-headers)
  file(MAKE_DIRECTORY ${TESSEL_HOST_HEADERS})
  foreach(entry nlohmann utf8cpp asio asio.hpp CLI fmt spdlog)
    if(NOT EXISTS /usr/include/${entry})
      message(FATAL_ERROR "/usr/include/${entry} is missing: run scripts/install-deps")
    endif()
    file(CREATE_LINK /usr/include/${entry} ${TESSEL_HOST_HEADERS}/${entry} SYMBOLIC)
  endforeach()
  add_library(tessel_host_headers INTERFACE)
  target_include_directories(tessel_host_headers SYSTEM INTERFACE ${TESSEL_HOST_HEADERS})
  foreach(name nlohmann_json::nlohmann_json utf8cpp CLI11::CLI11)
    add_library(${name} ALIAS tessel_host_headers)
  endforeach()
  target_include_directories(tessel_host_headers SYSTEM INTERFACE ${TESSEL_HOST_HEADERS}/utf8cpp)
  add_library(tessel_fmt INTERFACE)
  target_link_libraries(tessel_fmt INTERFACE tessel_host_headers)
  target_compile_definitions(tessel_fmt INTERFACE FMT_HEADER_ONLY)
  add_library(fmt::fmt ALIAS tessel_fmt)
  add_library(tessel_spdlog INTERFACE)
  target_link_libraries(tessel_spdlog INTERFACE tessel_fmt)
  target_compile_definitions(tessel_spdlog INTERFACE SPDLOG_FMT_EXTERNAL)
  add_library(spdlog::spdlog ALIAS tessel_spdlog)
  set(ASIO_INCLUDE_DIR ${TESSEL_HOST_HEADERS})
else()
  find_package(nlohmann_json 3.10 REQUIRED)
  find_package(utf8cpp REQUIRED)
  find_package(fmt REQUIRED)
  find_package(spdlog REQUIRED)
  find_package(CLI11 REQUIRED)
  # Standalone Asio is header-only and ships no CMake package.
  find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
endif()

add_library(tessel_asio INTERFACE)
target_include_directories(tessel_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(tessel_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
if(WIN32)
  target_compile_definitions(tessel_asio INTERFACE _WIN32_WINNT=0x0A00)
  target_link_libraries(tessel_asio INTERFACE ws2_32 mswsock)
endif()

# Image decoding, SVG artwork and the mount table come from the operating system's own
# libraries on Windows (GDI+, the shell); elsewhere from these packages.
if(NOT WIN32)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
  pkg_check_modules(RSVG REQUIRED IMPORTED_TARGET librsvg-2.0)
  pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo)
  # The SVG renderer is opened when artwork is first drawn, not linked: loading librsvg's
  # tree of some forty libraries would cost every program milliseconds at start-up. Only its
  # headers are used at build time, and its run-time name (SONAME) is what gets opened.
  add_library(tessel_svg_headers INTERFACE)
  target_include_directories(tessel_svg_headers SYSTEM INTERFACE ${RSVG_INCLUDE_DIRS}
                             ${CAIRO_INCLUDE_DIRS})
  find_library(TESSEL_RSVG_FILE rsvg-2 HINTS ${RSVG_LIBRARY_DIRS} REQUIRED)
  get_filename_component(TESSEL_RSVG_SONAME ${TESSEL_RSVG_FILE} NAME)
  if(CMAKE_OBJDUMP)
    execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${TESSEL_RSVG_FILE}
                    OUTPUT_VARIABLE dump ERROR_QUIET RESULT_VARIABLE failed)
    if(NOT failed AND dump MATCHES "SONAME +([^\n]+)")
      string(STRIP "${CMAKE_MATCH_1}" TESSEL_RSVG_SONAME)
    endif()
  endif()
  message(STATUS "SVG renderer opened at run time as ${TESSEL_RSVG_SONAME}")
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

# XMP reading for the metadata layer: exempi, through its pkg-config module on Linux and, on
# Windows, the static library that scripts/build-windows-deps builds (its CMake package brings
# expat and zlib along).
add_library(tessel_exempi INTERFACE)
if(WIN32)
  find_package(exempi 2.6 CONFIG)
  if(NOT exempi_FOUND)
    message(FATAL_ERROR "exempi is missing: configure with -DTESSEL_WINDOWS_DEPS=$(scripts/build-windows-deps)")
  endif()
  target_link_libraries(tessel_exempi INTERFACE exempi::exempi)
else()
  pkg_check_modules(EXEMPI REQUIRED IMPORTED_TARGET exempi-2.0>=2.6)
  target_link_libraries(tessel_exempi INTERFACE PkgConfig::EXEMPI)
endif()

# XML DOM for the camera cards' clip files: Xerces-C, through its pkg-config module on Linux and,
# on Windows, the static library that scripts/build-windows-deps builds (its CMake package,
# installed under <prefix>/cmake). tessel_xerces_headers gives the headers alone, for code
# outside the library that reaches the DOM only through the library's helpers and the DOM's
# virtual interfaces (a second static copy of Xerces would have its own, uninitialised state).
add_library(tessel_xerces INTERFACE)
add_library(tessel_xerces_headers INTERFACE)
if(WIN32)
  find_package(XercesC 3.2 CONFIG)
  if(NOT XercesC_FOUND)
    message(FATAL_ERROR "Xerces-C is missing: configure with -DTESSEL_WINDOWS_DEPS=$(scripts/build-windows-deps)")
  endif()
  target_link_libraries(tessel_xerces INTERFACE XercesC::XercesC)
  target_include_directories(tessel_xerces_headers SYSTEM INTERFACE ${XercesC_INCLUDE_DIRS})
else()
  pkg_check_modules(XERCES REQUIRED IMPORTED_TARGET xerces-c>=3.2)
  target_link_libraries(tessel_xerces INTERFACE PkgConfig::XERCES)
  target_include_directories(tessel_xerces_headers SYSTEM INTERFACE ${XERCES_INCLUDE_DIRS})
endif()
