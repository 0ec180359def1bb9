# All dependencies come from the distribution. If one is missing, the configuration fails and names its Debian package.
find_package(Threads REQUIRED)
find_package(PkgConfig QUIET)
if(NOT PKG_CONFIG_FOUND)
  message(FATAL_ERROR "pkg-config was not found: install the Debian package pkg-config")
endif()

# telvane_pkg_config(<target> <pkg-config module> <Debian package>): creates an imported target for a library with
# pkg-config.
function(telvane_pkg_config target module package)
  pkg_check_modules(${target} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${target}_FOUND)
    message(FATAL_ERROR "${module} was not found: install the Debian package ${package}")
  endif()
  add_library(Dependency::${target} ALIAS PkgConfig::${target})
endfunction()

# telvane_cmake_package(<package name> <Debian package>): the same for a library with a CMake package.
macro(telvane_cmake_package name package)
  find_package(${name} QUIET)
  if(NOT ${name}_FOUND)
    message(FATAL_ERROR "${name} was not found: install the Debian package ${package}")
  endif()
endmacro()

telvane_pkg_config(cJSON libcjson libcjson-dev)
telvane_pkg_config(uuid uuid uuid-dev)
if(TELVANE_BUILD_TOOL)
  telvane_cmake_package(CLI11 libcli11-dev)
  telvane_pkg_config(zlib zlib zlib1g-dev)
  telvane_pkg_config(zstd libzstd libzstd-dev)
endif()
if(TELVANE_BUILD_TESTS)
  telvane_cmake_package(GTest libgtest-dev)
  include(GoogleTest)
endif()
if(TELVANE_BUILD_BENCHMARKS AND NOT CMAKE_CROSSCOMPILING)
  telvane_cmake_package(benchmark libbenchmark-dev)
endif()
