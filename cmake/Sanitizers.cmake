# TESSEL_SANITIZE=address gives ASan+UBSan, TESSEL_SANITIZE=thread gives TSan.
if(TESSEL_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TESSEL_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  # TSan does not model stand-alone fences; Asio's queues are mutex-protected anyway, so
  # its fenced blocks are turned off rather than reported.
  add_compile_definitions(ASIO_DISABLE_FENCED_BLOCK)
  add_link_options(-fsanitize=thread)
elseif(NOT TESSEL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "TESSEL_SANITIZE must be empty, 'address' or 'thread'")
endif()

# TESSEL_BUILD_FUZZ=ON: the library gets libFuzzer's coverage instrumentation plus ASan and
# UBSan, so that the fuzz targets in fuzz/ see into it and report memory and UB faults.
if(TESSEL_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "TESSEL_BUILD_FUZZ needs clang (CC=clang CXX=clang++)")
  endif()
  if(NOT TESSEL_SANITIZE STREQUAL "")
    message(FATAL_ERROR "TESSEL_BUILD_FUZZ brings its own sanitizers; leave TESSEL_SANITIZE empty")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
