# Debian packages through CPack: liblumbase0 holds the shared object (with
# an ldconfig trigger), liblumbase-dev the headers, the unversioned link,
# pkg-config and CMake files and the reference. The examples stay out.
#   cmake --build <build> && (cd <build> && cpack -G DEB)
set(LUM_DEB_ARCHITECTURE amd64)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|ARM)")
  set(LUM_DEB_ARCHITECTURE armhf)
elseif(NOT CMAKE_CROSSCOMPILING)
  find_program(LUM_DPKG dpkg)
  if(LUM_DPKG)
    execute_process(COMMAND ${LUM_DPKG} --print-architecture OUTPUT_VARIABLE LUM_DEB_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
  endif()
endif()

file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/liblumbase0 RENAME copyright COMPONENT runtime)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/liblumbase-dev RENAME copyright COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumbase)
set(CPACK_PACKAGE_VENDOR "LumBase")
set(CPACK_PACKAGE_CONTACT "LumBase maintainers <lumbase@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${LUM_DEB_ARCHITECTURE})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://lumbase.invalid/")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liblumbase0)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "base library for small embedded Linux devices
Reference-counted objects with pluggable allocators, strings and formatting,
collections, a run loop with sockets and timers, streams, JSON, time zones
and dates, in one shared object with a C API.")
# The newest C library symbol version the library uses (GLIBC_2.33).
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.33)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liblumbase-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "base library for small embedded Linux devices (development files)
Headers for C99 and C++17, the pkg-config file, the CMake package with the
32-bit ARM toolchain file, and the HTML reference.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "liblumbase0 (= ${PROJECT_VERSION})")

include(CPack)
