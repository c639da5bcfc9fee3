# Debian packages, one per component: library, development, programs, documentation. scripts/make-packages builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kolvexipcapture)
# Each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "Kolvex IP capture driver developers <kolvexipcapture@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL library development programs documentation)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

# Each word of a name once: the library's package carries the number of its soname.
set(kolvex_library_package libkolvexipcapture${PROJECT_VERSION_MAJOR})

#   kolvex_package(COMPONENT NAME SECTION SHORT LONG [DEPENDS])
macro(kolvex_package component name section short long depends)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${short}\n${long}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/copyright.in ${PROJECT_BINARY_DIR}/debian/${name}/copyright @ONLY)
  set(kolvex_package_name ${name})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/${name}/changelog @ONLY)
  execute_process(COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/debian/${name}/changelog COMMAND_ERROR_IS_FATAL ANY)
  file(RENAME ${PROJECT_BINARY_DIR}/debian/${name}/changelog.gz ${PROJECT_BINARY_DIR}/debian/${name}/changelog.Debian.gz)
  if(KOLVEX_PACKAGES)
    install(FILES ${PROJECT_BINARY_DIR}/debian/${name}/copyright ${PROJECT_BINARY_DIR}/debian/${name}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
  endif()
endmacro()

kolvex_package(library ${kolvex_library_package} libs
  "Capture driver for Kolvex IP cameras - shared library"
  "Plug-in that a video recording server loads to take live video, MJPEG or\nMPEG-4, from the Kolvex family of IP cameras, and to control their inputs,\noutputs, heads and stored positions."
  "")
kolvex_package(development libkolvexipcapture-dev libdevel
  "Capture driver for Kolvex IP cameras - development files"
  "Headers of the host contract, link, CMake package and pkg-config file, for\nrecording servers that load the library at run time."
  "${kolvex_library_package} (= ${PROJECT_VERSION}-1)")
kolvex_package(programs kolvexipcapture-tools video
  "Capture driver for Kolvex IP cameras - sample host and simulated camera"
  "kolvex-host does with the library what a recording server does, from the\ncommand line. kolvex-camera is the other side: simulated cameras that stream\na drawn scene and misbehave on request."
  "${kolvex_library_package} (>= ${PROJECT_VERSION})")
kolvex_package(documentation libkolvexipcapture-doc doc
  "Capture driver for Kolvex IP cameras - guides, reference and examples"
  "The guide for makers of recording servers, the reference of the headers,\nand complete small hosts to begin with."
  "")
# dpkg calls ldconfig by the trigger.
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libkolvexipcapture ${PROJECT_VERSION_MAJOR} ${kolvex_library_package} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/triggers ${PROJECT_BINARY_DIR}/debian/shlibs)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
include(CPack)
