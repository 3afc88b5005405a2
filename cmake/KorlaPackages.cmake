# Debian packages, split as the distribution does: `cpack` in the build folder, or tools/make_packages, which builds what they
# should hold. What another program needs of ours is stated here; what it needs of others dpkg-shlibdeps finds.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korla)
set(CPACK_PACKAGE_VENDOR "The Korla authors")
set(CPACK_PACKAGE_CONTACT "The Korla authors <korla@example.org>" CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has one
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}) # for the libraries of packages beside
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_ALL "")

# korla_package(COMPONENT NAME SECTION SUMMARY DEPENDS): a component of the installation becomes a package.
function(korla_package component name section summary depends)
  string(TOUPPER ${component} upper)
  set(prefix CPACK_DEBIAN_${upper}_PACKAGE)
  set(${prefix}_NAME ${name} PARENT_SCOPE)
  set(${prefix}_SECTION ${section} PARENT_SCOPE)
  set(${prefix}_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()
# korla_library_package(COMPONENT LIBRARY SINCE SUMMARY): of a shared library, with a symbols file, so that a program depends on
# the version that its symbols came with.
macro(korla_library_package component library since summary)
  set(package lib${library}${PROJECT_VERSION_MAJOR})
  korla_package(${component} ${package} libs "${summary}" "")
  string(TOUPPER ${component} upper)
  set(text "lib${library}.so.${PROJECT_VERSION_MAJOR} ${package} #MINVER#\n")
  file(GLOB lists ${PROJECT_SOURCE_DIR}/exports/${library}/*.txt)
  set(symbols "")
  foreach(list IN LISTS lists)
    file(STRINGS ${list} lines REGEX "^[^#]")
    list(APPEND symbols ${lines})
  endforeach()
  list(TRANSFORM symbols REPLACE "^([^ ]+).*" " \\1@Base ${since}")
  list(SORT symbols)
  list(JOIN symbols "\n" symbols)
  set(file ${PROJECT_BINARY_DIR}/packages/${component}/symbols)
  file(CONFIGURE OUTPUT ${file} CONTENT "${text}${symbols}\n" @ONLY)
  set(shlibs ${PROJECT_BINARY_DIR}/packages/${component}/shlibs)
  file(CONFIGURE OUTPUT ${shlibs} CONTENT
    "lib${library} ${PROJECT_VERSION_MAJOR} ${package} (>= ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})\n" @ONLY)
  set(triggers ${PROJECT_BINARY_DIR}/packages/${component}/triggers)
  file(CONFIGURE OUTPUT ${triggers} CONTENT "activate-noawait ldconfig\n" @ONLY)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${file} ${shlibs} ${triggers})
endmacro()

korla_library_package(module korladownmixer 1.0 "Real-time downmix module and float DSP primitive library
The module downmixes PCM streams behind one exported object; the primitives
are block, vector and complex arithmetic, transforms and filter banks.")
korla_library_package(stream korlastream 1.1 "Downmixing from any speakers to any speakers
Any set of 1 to 12 speakers to any other, calls of any length, through a
look-ahead peak limiter.")
set(module "libkorladownmixer${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(stream "libkorlastream${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
korla_package(development libkorla-dev libdevel "Headers for the Korla libraries
What a program needs that is built with libkorladownmixer or libkorlastream." "${module}, ${stream}")
korla_package(documents libkorla-doc doc "Documents for the Korla libraries
Handbooks of the libraries, the host program and the wrappers." "")
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
if(TARGET korla-host)
  korla_package(tools korla-tools sound "Downmix audio files on the command line
korla-host mixes audio files from any speakers to any speakers, measures and
draws what happened." "${module}, ${stream}")
endif()
if(TARGET gstkorla)
  korla_package(gstreamer gstreamer1.0-korla libs "GStreamer element that downmixes
korladownmix mixes from any speakers to any speakers." "${stream}")
endif()
if(TARGET korla_python)
  korla_package(python python3-korla python "Downmixing and a DSP library for Python
The functions of libkorlastream and libkorladownmixer on numpy arrays."
    "${module}, ${stream}, ${KORLA_PYTHON_DEPENDS}")
endif()
if(TARGET korla_lv2)
  korla_package(lv2 korla-lv2 sound "LV2 plug-ins that downmix, and a PipeWire sink
One plug-in a pair of layouts; a PipeWire configuration that plays through it." "${stream}")
endif()
if(TARGET pcm_korla)
  korla_package(alsa libasound2-plugin-korla libs "ALSA filter that downmixes
The PCM type korla mixes from any speakers to any speakers." "${stream}")
endif()
include(CPack)
