# The Debian packages: liblumcurlhttp0 (runtime), liblumcurlhttp-dev, lumcurl-tools. `cpack` in the
# build directory of the `package` preset makes them.

set(runtime_package liblumcurlhttp${PROJECT_VERSION_MAJOR})
set(same_version "(= ${PROJECT_VERSION})")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumcurlhttp)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The LumCurlHttp maintainers <maintainers@lumcurlhttp.example>")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies come from what the binaries link; the tools link the runtime package's libraries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "JSON requests, file download, data reports, uploads and configuration
properties over libcurl, with the five platform libraries they stand on.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liblumcurlhttp-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} ${same_version}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, CMake packages and pkg-config file of LumCurlHttp and of the
platform libraries it stands on.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME lumcurl-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION web)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} ${same_version}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "lumcurl talks to the services the library talks to; lumbackend is a local
back end to develop and test against.")

# What Debian wants beside every package.
find_program(GZIP gzip REQUIRED)
set(doc_dir ${PROJECT_BINARY_DIR}/packages/doc)
file(MAKE_DIRECTORY ${doc_dir})
string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(packaging/changelog.in ${doc_dir}/changelog @ONLY)
execute_process(COMMAND ${GZIP} -9nkf ${doc_dir}/changelog COMMAND_ERROR_IS_FATAL ANY)
foreach(component runtime development tools)
  string(TOUPPER ${component} upper)
  install(FILES packaging/copyright ${doc_dir}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
    COMPONENT ${component})
endforeach()

include(CPack)
