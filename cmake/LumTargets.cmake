# Helpers that give every library, tool and test of the project the same shape.

# Warnings for code that ships.
function(lum_product_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${LUM_WERROR}>:-Werror>)
endfunction()

# Warnings for tests, fixtures and benchmarks. For another machine they are not optimised: what they
# save when an emulator runs them once is less than what that takes to compile.
function(lum_test_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow $<$<BOOL:${LUM_WERROR}>:-Werror>
    $<$<BOOL:${CMAKE_CROSSCOMPILING}>:-O0 -U_FORTIFY_SOURCE>)
endfunction()

# lum_add_platform_library(NAME SOURCES file... HEADERS file... [LIBRARIES target...])
#
# One platform library NAME as a shared library with its public headers from include/, offered in
# the build tree under the name an installed package gives it, NAME::NAME.
function(lum_add_platform_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;HEADERS;LIBRARIES" ${ARGN})
  add_library(${name} SHARED ${arg_SOURCES})
  add_library(${name}::${name} ALIAS ${name})
  list(TRANSFORM arg_HEADERS PREPEND include/)
  target_sources(${name} PUBLIC
    FILE_SET HEADERS BASE_DIRS include FILES ${arg_HEADERS})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  lum_product_warnings(${name})
  lum_install_library(${name})
endfunction()

# lum_install_library(NAME [DEPENDENCIES package...])
#
# Gives a shared library its version and installs it: the library itself as the runtime component;
# headers, linker name and the CMake package NAME, which finds DEPENDENCIES first, for development.
function(lum_install_library name)
  cmake_parse_arguments(arg "" "" "DEPENDENCIES" ${ARGN})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  if(NOT LUM_INSTALL)
    return()
  endif()

  get_target_property(header_sets ${name} INTERFACE_HEADER_SETS)
  set(header_arguments)
  foreach(header_set ${header_sets})
    list(APPEND header_arguments
      FILE_SET ${header_set} DESTINATION ${LUM_INSTALL_INCLUDEDIR} COMPONENT development)
  endforeach()
  install(TARGETS ${name} EXPORT ${name}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ${header_arguments})

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  install(EXPORT ${name}Targets NAMESPACE ${name}::
    DESTINATION ${package_dir} COMPONENT development)
  set(find_dependencies)
  foreach(dependency ${arg_DEPENDENCIES})
    string(APPEND find_dependencies "find_dependency(${dependency})\n")
  endforeach()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/PackageConfig.cmake.in
    ${PROJECT_BINARY_DIR}/packages/${name}Config.cmake @ONLY)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES
    ${PROJECT_BINARY_DIR}/packages/${name}Config.cmake
    ${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)
endfunction()

# lum_add_test(NAME SOURCES file... [LIBRARIES target...] [LABEL label...]
#              [TIMEOUT seconds])
#
# One GoogleTest program, one entry of ctest. The cases run in random order; the seed is printed.
function(lum_add_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES;LABEL" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main)
  target_precompile_headers(${name} REUSE_FROM LumTestHeaders)
  lum_test_warnings(${name})
  if(NOT arg_LABEL)
    set(arg_LABEL unit)
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_test(NAME ${name}
    COMMAND ${name} --gtest_shuffle --gtest_brief=1
            --gtest_output=json:${PROJECT_BINARY_DIR}/test-results/${name}.json)
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT})
endfunction()
