# What `cmake --install` puts under the prefix, by component:
#   Runtime      libapplogic.so.0 and its versioned file                         (libapplogic0)
#   Development  public headers, libapplogic.so or libapplogic.a, libapplogic-testing.a and the
#                doubles' headers, libapplogic-services.a and the service clients' headers, the
#                CMake package and the pkg-config files                           (libapplogic-dev)
#   Tunevo       bin/tunevo and its manual page                                   (tunevo)
# A shared build and a static build of the same version install side by side: each writes its own
# targets file (applogic-shared-targets.cmake / applogic-static-targets.cmake), and
# applogicConfig.cmake picks one.
include(CMakePackageConfigHelpers)

set(APPLOGIC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/applogic)
if(BUILD_SHARED_LIBS)
  set(APPLOGIC_LINKAGE shared)
else()
  set(APPLOGIC_LINKAGE static)
endif()

install(TARGETS applogic applogic_testing applogic_services EXPORT applogicTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Only the public headers: the library's own (include/), the Linux ports', the doubles' and the
# service clients'.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_SOURCE_DIR}/platform/linux/include/
    ${PROJECT_SOURCE_DIR}/platform/fake/include/ ${PROJECT_SOURCE_DIR}/services/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development
  FILES_MATCHING PATTERN "*.h")
install(EXPORT applogicTargets NAMESPACE applogic:: FILE applogic-${APPLOGIC_LINKAGE}-targets.cmake
  DESTINATION ${APPLOGIC_CMAKE_DIR} COMPONENT Development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/applogicConfig.cmake.in
  ${PROJECT_BINARY_DIR}/applogicConfig.cmake INSTALL_DESTINATION ${APPLOGIC_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/applogicConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/applogicConfig.cmake ${PROJECT_BINARY_DIR}/applogicConfigVersion.cmake
  DESTINATION ${APPLOGIC_CMAKE_DIR} COMPONENT Development)

# pkg-config: the libraries the archive needs besides its own, for `pkg-config --static`. The
# files find the prefix from where they are, so that any --prefix (or DESTDIR) works.
file(RELATIVE_PATH APPLOGIC_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" APPLOGIC_PC_TO_PREFIX "${APPLOGIC_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/applogic.pc.in ${PROJECT_BINARY_DIR}/applogic.pc @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/applogic-testing.pc.in ${PROJECT_BINARY_DIR}/applogic-testing.pc @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/applogic-services.pc.in ${PROJECT_BINARY_DIR}/applogic-services.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/applogic.pc ${PROJECT_BINARY_DIR}/applogic-testing.pc
    ${PROJECT_BINARY_DIR}/applogic-services.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

if(TARGET tunevo)
  install(TARGETS tunevo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Tunevo)
  # tunevo(1): its --help and --version, as help2man lays them out; each command's own --help
  # has the details, which the page points to.
  find_program(APPLOGIC_HELP2MAN help2man)
  # Not in sanitizer builds, which would run an instrumented tunevo while building.
  if(APPLOGIC_HELP2MAN AND NOT APPLOGIC_SANITIZE)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/tunevo.1.gz
      COMMAND ${APPLOGIC_HELP2MAN} --no-info --section 1 --name "the Tunevo app's command-line host"
        --output ${PROJECT_BINARY_DIR}/tunevo.1 $<TARGET_FILE:tunevo>
      COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/tunevo.1
      DEPENDS tunevo VERBATIM)
    add_custom_target(tunevo_manual ALL DEPENDS ${PROJECT_BINARY_DIR}/tunevo.1.gz)
    install(FILES ${PROJECT_BINARY_DIR}/tunevo.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Tunevo)
  endif()
endif()
