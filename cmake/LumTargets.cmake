# Helpers that give every library, tool and test of the project the same shape.

# Warnings for code that ships.
function(lum_product_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${LUM_WERROR}>:-Werror>)
endfunction()

# Warnings for tests, fixtures and benchmarks.
function(lum_test_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow $<$<BOOL:${LUM_WERROR}>:-Werror>)
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
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  lum_product_warnings(${name})
endfunction()

# lum_add_test(NAME SOURCES file... [LIBRARIES target...] [LABEL unit|live|integration]
#              [TIMEOUT seconds])
#
# One GoogleTest program, one entry of ctest. The cases run in random order; the seed is printed.
function(lum_add_test name)
  cmake_parse_arguments(arg "" "LABEL;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main)
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
  set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT ${arg_TIMEOUT})
endfunction()
