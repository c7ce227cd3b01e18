# Debian packages: `cpack -G DEB` in a shared build directory makes
#   libapplogic0     the shared library
#   libapplogic-dev  headers, CMake package, pkg-config files, the archives
#   tunevo           the host app
# The -dev package also carries the static archive when APPLOGIC_PACKAGE_STATIC_BUILD_DIR names a
# static build directory of the same sources, whose Development files then join the packages:
# scripts/package does it.
set(APPLOGIC_PACKAGE_STATIC_BUILD_DIR "" CACHE PATH "A built static build directory for the -dev package's archive")

set(CPACK_PACKAGE_NAME applogic)
set(CPACK_PACKAGE_VENDOR "Tunevo")
set(CPACK_PACKAGE_CONTACT "Tunevo developers <dev@tunevo.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Tunevo's application logic library")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Development Tunevo)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# The packages carry stripped programs and libraries (debug information stays in the build).
set(CPACK_STRIP_FILES ON)
# Depends from the ELF files' needs (dpkg-shlibdeps), and a shlibs file in libapplogic0 so that
# other packages' shlibdeps find it; inter-package Depends from the component dependencies.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# dpkg-shlibdeps runs in each component's staging directory; tunevo's libapplogic.so.0 is in the
# Runtime component's, beside it (its Depends on libapplogic0 comes from the components).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ../Runtime/usr/${CMAKE_INSTALL_LIBDIR})

set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)
set(CPACK_COMPONENT_TUNEVO_DEPENDS Runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libapplogic${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Tunevo's application logic library
 Typed records from the music service's answers, one reactive data controller per family of
 requests, track previews through a shared audio session, and Amazon sign-in (OAuth 2 with PKCE).")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libapplogic-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# The headers need Boost.JSON; a static link (and pkg-config's Requires.private) the rest.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libboost-json1.81-dev, libboost-url1.81-dev, libutf8proc-dev, libgstreamer1.0-dev, libpulse-dev, libsecret-1-dev, libcurl4-openssl-dev | libcurl-dev, libsqlite3-dev, libssl-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Tunevo's application logic library (development files)
 Headers, the CMake package (find_package(applogic)), pkg-config files, the static archive and
 applogic::testing, the scripted services and platform doubles for an app's own tests.")

set(CPACK_DEBIAN_TUNEVO_PACKAGE_NAME tunevo)
set(CPACK_DEBIAN_TUNEVO_PACKAGE_SECTION sound)
# GStreamer's elements are plugins, which no ELF file names: the previews need playbin (base),
# wavparse and souphttpsrc (good).
set(CPACK_DEBIAN_TUNEVO_PACKAGE_DEPENDS "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good")
set(CPACK_DEBIAN_TUNEVO_DESCRIPTION "Tunevo's command-line host app
 Parses service answers, plays previews, signs in with an Amazon account and runs a local
 emulator of the sign-in service; `tunevo demo` tours the library offline.")

set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};${PROJECT_NAME};ALL;/")
if(APPLOGIC_PACKAGE_STATIC_BUILD_DIR)
  # The third field names a list of components: CPACK_COMPONENTS_<field>.
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS "${APPLOGIC_PACKAGE_STATIC_BUILD_DIR};${PROJECT_NAME};STATIC;/")
  set(CPACK_COMPONENTS_STATIC Development)
endif()
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
