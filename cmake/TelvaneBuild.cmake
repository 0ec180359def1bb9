# All targets link TelvaneBuildFlags, which sets the language, the warnings (as errors) and the sanitizers of the preset.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
# GCC warns about the standard library's own code if it optimises code with precompiled headers. The tests are compiled
# without optimisation and use them nevertheless; see tests/CMakeLists.txt.
if(NOT TELVANE_PRECOMPILE_HEADERS OR CMAKE_BUILD_TYPE STREQUAL Release)
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

add_library(TelvaneBuildFlags INTERFACE)
target_compile_options(TelvaneBuildFlags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(TELVANE_SANITIZE)
  target_compile_options(TelvaneBuildFlags INTERFACE
    -fsanitize=${TELVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # Only the tested code is checked for undefined behaviour, and counted for the fuzzers. In tests, this would double
  # the compile time.
  set(omitted undefined)
  if(TELVANE_SANITIZE MATCHES fuzzer-no-link)
    set(omitted undefined,fuzzer-no-link)
  endif()
  target_compile_options(TelvaneBuildFlags INTERFACE
    $<$<BOOL:$<TARGET_PROPERTY:TELVANE_IS_TEST>>:-fno-sanitize=${omitted}>)
  target_link_options(TelvaneBuildFlags INTERFACE -fsanitize=${TELVANE_SANITIZE})
endif()
