# The MinGW runtime DLLs (C++ library, GCC support, POSIX threads) go beside the programs in
# the build folder and in the installed bin folder, so tessel.exe starts on a plain Windows.
if(NOT WIN32 OR NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  return()
endif()
set(TESSEL_WINDOWS_RUNTIME_DLLS)
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                  OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT IS_ABSOLUTE "${found}" OR NOT EXISTS "${found}")
    # libwinpthread lives in the sysroot rather than the compiler's own folder.
    find_file(found_${dll} ${dll} PATHS /usr/${TESSEL_MINGW_TRIPLET}/lib NO_DEFAULT_PATH)
    set(found ${found_${dll}})
  endif()
  if(NOT EXISTS "${found}")
    message(FATAL_ERROR "MinGW runtime ${dll} not found")
  endif()
  file(COPY ${found} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  list(APPEND TESSEL_WINDOWS_RUNTIME_DLLS ${found})
endforeach()
install(FILES ${TESSEL_WINDOWS_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
