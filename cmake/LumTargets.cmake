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

# lum_add_program(NAME SOURCES file... [LIBRARIES target...])
#
# A program of the tests' or the benchmarks' own.
function(lum_add_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  lum_test_warnings(${name})
endfunction()

# An ABI's name. While the major version is 0, each minor one may break callers.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(LUM_SOVERSION 0.${PROJECT_VERSION_MINOR})
  set(LUM_COMPATIBILITY SameMinorVersion)
else()
  set(LUM_SOVERSION ${PROJECT_VERSION_MAJOR})
  set(LUM_COMPATIBILITY SameMajorVersion)
endif()

# lum_add_platform_library(NAME DESCRIPTION text SOURCES file... HEADERS file...
#                          [LIBRARIES target...] [PRIVATE library...] [PACKAGES package...]
#                          [MODULES module...])
#
# One platform library NAME with its public headers from include/ and its tests from test/, offered
# in the build tree under the name an installed package gives it, NAME::NAME. PACKAGES and MODULES
# are what LIBRARIES come from, PRIVATE the platform libraries that it stands on: see
# lum_install_library.
function(lum_add_platform_library name)
  cmake_parse_arguments(arg "" "DESCRIPTION" "SOURCES;HEADERS;LIBRARIES;PRIVATE;PACKAGES;MODULES"
    ${ARGN})
  add_library(${name} ${arg_SOURCES})
  add_library(${name}::${name} ALIAS ${name})
  list(TRANSFORM arg_HEADERS PREPEND include/)
  target_sources(${name} PUBLIC
    FILE_SET HEADERS BASE_DIRS include FILES ${arg_HEADERS})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  foreach(library ${arg_PRIVATE})
    target_link_libraries(${name} PRIVATE ${library}::${library})
  endforeach()
  lum_product_warnings(${name})
  lum_install_library(${name} DESCRIPTION ${arg_DESCRIPTION} PRIVATE ${arg_PRIVATE}
    PACKAGES ${arg_PACKAGES} MODULES ${arg_MODULES})
  if(BUILD_TESTING)
    add_subdirectory(test)
  endif()
endfunction()

# lum_install_library(NAME DESCRIPTION text [PUBLIC library...] [PRIVATE library...]
#                     [PACKAGES package...] [MODULES module...])
#
# Gives a library its version and installs it: the library itself as the runtime component; headers,
# linker name, the CMake package NAME and NAME.pc for development. PUBLIC and PRIVATE are the
# platform libraries that NAME stands on, the first ones linked by its callers too. CMake's PACKAGES
# and pkg-config's MODULES are what third parties it stands on are found by (TARGET=MODULE where CMake
# asks pkg-config as well): an archive's callers link them, a shared library has linked them itself.
function(lum_install_library name)
  cmake_parse_arguments(arg "" "DESCRIPTION" "PUBLIC;PRIVATE;PACKAGES;MODULES" ${ARGN})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${LUM_SOVERSION})
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
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    ${header_arguments})

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  set(build_dir ${PROJECT_BINARY_DIR}/lib/cmake/${name})  # the build tree is a prefix, too
  install(EXPORT ${name}Targets NAMESPACE ${name}::
    DESTINATION ${package_dir} COMPONENT development)
  export(EXPORT ${name}Targets NAMESPACE ${name}:: FILE ${build_dir}/${name}Targets.cmake)
  set(find_dependencies)
  foreach(package ${arg_PUBLIC} ${arg_PRIVATE})
    string(APPEND find_dependencies "find_dependency(${package})\n")
  endforeach()
  if(NOT BUILD_SHARED_LIBS)
    foreach(package ${arg_PACKAGES})
      if(package MATCHES "^(.+)=(.+)$")
        string(APPEND find_dependencies "find_dependency(PkgConfig)\n"
          "pkg_check_modules(${CMAKE_MATCH_1} REQUIRED IMPORTED_TARGET ${CMAKE_MATCH_2})\n")
      else()
        string(APPEND find_dependencies "find_dependency(${package})\n")
      endif()
    endforeach()
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/PackageConfig.cmake.in
    ${build_dir}/${name}Config.cmake @ONLY)
  write_basic_package_version_file(${build_dir}/${name}ConfigVersion.cmake
    COMPATIBILITY ${LUM_COMPATIBILITY})
  install(FILES ${build_dir}/${name}Config.cmake ${build_dir}/${name}ConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)

  set(libs -l${name})
  set(requires)
  set(requires_private)
  if(LUM_PLATFORM STREQUAL "bundled")
    set(requires ${arg_PUBLIC})
    set(requires_private ${arg_PRIVATE})
  else()  # the framework's own have no .pc files to count on
    list(TRANSFORM arg_PUBLIC PREPEND -l OUTPUT_VARIABLE public_libs)
    list(APPEND libs ${public_libs})
    if(NOT BUILD_SHARED_LIBS)
      list(TRANSFORM arg_PRIVATE PREPEND -l OUTPUT_VARIABLE private_libs)
      list(APPEND libs ${private_libs})
    endif()
  endif()
  # With --static pkg-config asks for archives of third parties too, which few have. Whoever links
  # ours links theirs, archives or not, without that word.
  if(NOT BUILD_SHARED_LIBS)
    list(APPEND requires ${requires_private} ${arg_MODULES})
    set(requires_private)
  endif()
  list(JOIN libs " " libs)
  list(JOIN requires " " requires)
  list(JOIN requires_private " " requires_private)
  # In /usr the loader and the compiler look without being told; elsewhere the tree may be moved.
  set(prefix /usr)
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH prefix_from_pkgconfig
      ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" prefix "\${pcfiledir}/${prefix_from_pkgconfig}")
  endif()
  file(RELATIVE_PATH libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/lum)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/PkgConfig.pc.in ${build_dir}/${name}.pc @ONLY)
  install(FILES ${build_dir}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
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

# lum_expect_kept_memory(TEST...)
#
# What the library keeps on purpose (testing/lsan.supp) is no leak of these tests. It is libcurl's
# memory: to name the function that kept it, the sanitizer has to unwind libcurl's frames, which have
# no frame pointers and take long.
function(lum_expect_kept_memory)
  set_property(TEST ${ARGN} APPEND PROPERTY ENVIRONMENT
    ASAN_OPTIONS=fast_unwind_on_malloc=0:malloc_context_size=10
    LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/testing/lsan.supp:print_suppressions=0)
endfunction()
