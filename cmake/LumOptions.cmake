# Build options and the settings that hold for every target.

set(LUM_PLATFORM "bundled" CACHE STRING
  "bundled: build the five platform libraries; external: find the framework's own")
set_property(CACHE LUM_PLATFORM PROPERTY STRINGS bundled external)
if(NOT LUM_PLATFORM MATCHES "^(bundled|external)$")
  message(FATAL_ERROR "LUM_PLATFORM is '${LUM_PLATFORM}'; it must be 'bundled' or 'external'")
endif()

# The libraries and nothing else, unless more is asked for.
option(BUILD_SHARED_LIBS "Build shared libraries, not archives" ON)
if(DEFINED CACHE{LUM_BUILD_TESTS} AND NOT DEFINED CACHE{BUILD_TESTING})
  message(FATAL_ERROR "LUM_BUILD_TESTS is called BUILD_TESTING now: configure again with that one, "
    "or with `cmake --preset`")
endif()
if(PROJECT_IS_TOP_LEVEL)
  option(BUILD_TESTING "Build the tests" OFF)
else()
  set(BUILD_TESTING OFF)  # who embeds this project asks for tests of his own
endif()
option(LUM_BUILD_TOOLS "Build lumcurl and lumbackend" ${BUILD_TESTING})
if(BUILD_TESTING AND NOT (BUILD_SHARED_LIBS AND LUM_BUILD_TOOLS AND LUM_PLATFORM STREQUAL "bundled"))
  message(FATAL_ERROR "BUILD_TESTING tests the tools and all libraries, built here and shared: "
    "it needs LUM_BUILD_TOOLS=ON, BUILD_SHARED_LIBS=ON and LUM_PLATFORM=bundled")
endif()
option(LUM_BUILD_BENCH "Build the benchmarks" OFF)
option(LUM_INSTALL "Make the install rules" ${PROJECT_IS_TOP_LEVEL})
option(LUM_HARDENING "Compile and link with the flags of cmake/LumHardening.cmake" ON)
option(LUM_WERROR "Treat compiler warnings as errors" OFF)

get_property(multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(PROJECT_IS_TOP_LEVEL AND NOT multi_config AND NOT CMAKE_BUILD_TYPE)
  message(STATUS "CMAKE_BUILD_TYPE is not set: Release")
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release, RelWithDebInfo or MinSizeRel" FORCE)
endif()

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT BUILD_SHARED_LIBS)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF)  # an archive's callers may have another compiler
endif()
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
if(LUM_HARDENING)
  include(cmake/LumHardening.cmake)
endif()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(LUM_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/lum)
# Libraries and tools find each other wherever the prefix goes; in /usr the loader does.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH libdir_from_bindir
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(CMAKE_INSTALL_RPATH $ORIGIN $ORIGIN/${libdir_from_bindir})
endif()
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

if(BUILD_TESTING)
  enable_testing()
  find_package(GTest REQUIRED)
endif()
