# What an installation holds, and how another project finds it, by components:
#   library        the shared library, its bill of materials kolvexipcapture.spdx.json
#   development    host-facing headers, CMake package kolvexipcapture, pkg-config file kolvexipcapture.pc
#   programs       sample host and simulated camera, with manual pages and completion (tools/)
#   documentation  guides, examples and, when target "api" was built, the reference of the headers
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kolvexipcapture)

target_include_directories(kolvexipcapture INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(kolvexipcapture INTERFACE cxx_std_17)

# A host loads the library by its plain name; the versioned names and the link belong together here.
install(TARGETS kolvexipcapture EXPORT kolvexipcapture LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kolvex ${PROJECT_BINARY_DIR}/include/kolvex
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")

# Debian packages have a folder each, and the licence in a file of a form of its own (KolvexPackages.cmake).
set(library_docs ${CMAKE_INSTALL_DOCDIR})
set(docs ${CMAKE_INSTALL_DOCDIR})
set(readme ${PROJECT_SOURCE_DIR}/README.md)
if(KOLVEX_PACKAGES)
  set(library_docs ${CMAKE_INSTALL_DATADIR}/doc/libkolvexipcapture${PROJECT_VERSION_MAJOR})
  set(docs ${CMAKE_INSTALL_DATADIR}/doc/libkolvexipcapture-doc)
  file(READ ${readme} text)
  string(REPLACE "(LICENSE)" "(copyright)" text "${text}")
  set(readme ${PROJECT_BINARY_DIR}/debian/README.md)
  file(WRITE ${readme} "${text}")
else()
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${library_docs} COMPONENT library)
endif()
# In the layout of the source tree, so that links between pages lead somewhere.
install(FILES ${readme} ${PROJECT_SOURCE_DIR}/SECURITY.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md
        DESTINATION ${docs} COMPONENT documentation)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${docs} COMPONENT documentation
        FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg" PATTERN api EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${docs} COMPONENT documentation)
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/api/html DESTINATION ${docs}/docs/api COMPONENT documentation OPTIONAL)

# What the library needs of the machine that it was built on; also as target "sbom", into the build folder.
set(make_sbom ${PROJECT_SOURCE_DIR}/scripts/make-sbom $<TARGET_FILE:kolvexipcapture> ${PROJECT_VERSION}
              ${PROJECT_BINARY_DIR}/kolvexipcapture.spdx.json)
add_custom_target(sbom COMMAND ${make_sbom} DEPENDS kolvexipcapture VERBATIM)
list(JOIN make_sbom "\" \"" make_sbom_words)
install(CODE "execute_process(COMMAND \"${make_sbom_words}\" COMMAND_ERROR_IS_FATAL ANY)" COMPONENT library)
install(FILES ${PROJECT_BINARY_DIR}/kolvexipcapture.spdx.json DESTINATION ${library_docs} COMPONENT library)

install(EXPORT kolvexipcapture FILE kolvexipcaptureTargets.cmake NAMESPACE kolvexipcapture::
        DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kolvexipcaptureConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kolvexipcaptureConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kolvexipcaptureConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kolvexipcaptureConfig.cmake
              ${PROJECT_BINARY_DIR}/kolvexipcaptureConfigVersion.cmake
        DESTINATION ${package_folder} COMPONENT development)

# Paths relative to the file's own place, so that an installation may be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/kolvexipcapture.pc.in ${PROJECT_BINARY_DIR}/kolvexipcapture.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kolvexipcapture.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
