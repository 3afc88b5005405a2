# What `cmake --install` puts into a prefix: the libraries, their headers, the CMake package, the pkg-config files and
# the documents. korla-host and the wrappers add themselves. The components are the packages of KorlaPackages.cmake.
include(CMakePackageConfigHelpers)

install(TARGETS korladownmixer EXPORT KorlaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT module NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(TARGETS korlastream EXPORT KorlaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT stream NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY include/korla DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Korla)
install(EXPORT KorlaTargets NAMESPACE Korla:: DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(cmake/KorlaConfig.cmake.in KorlaConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(KorlaConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KorlaConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/KorlaConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)

# The prefix is relative to where the .pc file stands, so that an installed tree may be moved. Who links a static library
# links what it stands on.
file(RELATIVE_PATH KORLA_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
function(korla_pkg_config name description requires)
  set(KORLA_PC_NAME ${name})
  set(KORLA_PC_DESCRIPTION ${description})
  set(KORLA_PC_LIBS -l${name})
  set(KORLA_PC_REQUIRES "")
  if(korla_type STREQUAL "STATIC")
    string(APPEND KORLA_PC_LIBS " -lm")
    set(KORLA_PC_REQUIRES "${requires}")
  endif()
  configure_file(cmake/korla.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()
korla_pkg_config(korladownmixer "${PROJECT_DESCRIPTION}" "")
korla_pkg_config(korlastream "Downmixing from any speakers to any speakers, in calls of any length" korladownmixer)

# Headers and README name documents as docs/PAGE.md: the folder keeps its name.
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents
  PATTERN CMakeLists.txt EXCLUDE PATTERN Doxyfile.in EXCLUDE)
