# Installation rules (library, headers, tool, CMake package config, pkg-config file).
# Users find the library with find_package(Tessel) (target Tessel::tessel) or with
# pkg-config (module tessel); tests/consumer builds against an installed copy both ways.
include(CMakePackageConfigHelpers)

set(TESSEL_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tessel)

install(TARGETS tessel EXPORT TesselTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The XML module libtessel opens at run time, installed beside it.
install(TARGETS tessel_xml
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The installed tool finds the library beside it, wherever the prefix is.
if(NOT WIN32 AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}"
   AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH TESSEL_BIN_TO_LIB /prefix/${CMAKE_INSTALL_BINDIR}
       /prefix/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tessel_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${TESSEL_BIN_TO_LIB}")
endif()
install(TARGETS tessel_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The public headers, listed one by one: a header is part of the interface only when it is
# named here. Everything a listed header includes must be listed too (tests/consumer
# compiles each installed header on its own). Not installed: the platform backends, the
# providers, metadata, thumbnail and image helpers used inside the library, and the
# library's test hooks.
set(TESSEL_PUBLIC_HEADERS
  foundation/AnyRegular.h
  foundation/ClassRef.h
  foundation/DateTime.h
  foundation/Directory.h
  foundation/Executor.h
  foundation/ImmutableString.h
  foundation/Localizer.h
  foundation/MainThread.h
  foundation/Messaging.h
  foundation/Path.h
  foundation/PathStyle.h
  foundation/Preferences.h
  foundation/Settings.h
  foundation/Trace.h
  foundation/Unicode.h
  framework/CapabilityInterfaces.h
  framework/ContentRecord.h
  framework/CustomUIView.h
  framework/DirectoryContents.h
  framework/MenuEntry.h
  framework/Messages.h
  framework/ProjectItem.h
  framework/Provider.h
  framework/ProviderHost.h
  framework/ProviderRequest.h
  framework/ProviderRequests.h
  framework/ProviderWrapper.h
  framework/RequestData.h
  media/DirectoryChangeMonitor.h
  media/PelPix.h
  media/PngEncoding.h
  media/VideoFrame.h
  platform/Export.h
  platform/FileSystem.h
  platform/ImageDecoding.h
  platform/Status.h
  platform/Terminal.h
  thumbnails/RenderThumbnail.h)
foreach(header ${TESSEL_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/src/tessel/${header}
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessel/${folder})
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/include/tessel/Version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessel)

# The providers' pictures as files too, for hosts that load artwork by path.
file(GLOB TESSEL_ARTWORK_PNG ${PROJECT_SOURCE_DIR}/src/tessel/thumbnails/artwork/*.png)
install(FILES ${TESSEL_ARTWORK_PNG} DESTINATION ${CMAKE_INSTALL_DATADIR}/tessel/resources/PNG)

install(EXPORT TesselTargets
  NAMESPACE Tessel::
  DESTINATION ${TESSEL_CMAKE_INSTALL_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TesselConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TesselConfig.cmake
  INSTALL_DESTINATION ${TESSEL_CMAKE_INSTALL_DIR})
# Before 1.0 a minor release may change the interface.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(TESSEL_COMPATIBILITY SameMinorVersion)
else()
  set(TESSEL_COMPATIBILITY SameMajorVersion)
endif()
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TesselConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY ${TESSEL_COMPATIBILITY})
install(FILES ${PROJECT_BINARY_DIR}/TesselConfig.cmake
              ${PROJECT_BINARY_DIR}/TesselConfigVersion.cmake
  DESTINATION ${TESSEL_CMAKE_INSTALL_DIR})

# The .pc file locates the prefix from its own folder, so an install with
# `cmake --install --prefix` elsewhere than the configured prefix stays correct.
set(TESSEL_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(TESSEL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(TESSEL_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(TESSEL_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH TESSEL_PC_TO_PREFIX /prefix/${TESSEL_PC_DIR} /prefix)
  string(REGEX REPLACE "/$" "" TESSEL_PC_TO_PREFIX "${TESSEL_PC_TO_PREFIX}")
  set(TESSEL_PC_PREFIX "\${pcfiledir}/${TESSEL_PC_TO_PREFIX}")
  set(TESSEL_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(TESSEL_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/tessel.pc.in ${PROJECT_BINARY_DIR}/tessel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tessel.pc DESTINATION ${TESSEL_PC_DIR})

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
