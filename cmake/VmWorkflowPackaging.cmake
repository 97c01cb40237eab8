# SPDX-License-Identifier: MIT
# One Debian package with everything an installation holds: the libraries, the exported headers
# and the packages that find them, the tools, the host, the sample plug-in and the sample data.
#   cmake -S . -B build-package -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr
#   cmake --build build-package && (cd build-package && cpack -G DEB)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/README.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME vmworkflowcore)
set(CPACK_PACKAGE_VENDOR "Velmora")
set(CPACK_PACKAGE_CONTACT "VmWorkflowCore maintainers <workflow@velmora.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Workflow library with its host application, tools and sample data")
set(CPACK_PACKAGE_DESCRIPTION
    "VmWorkflowCore finds, holds, localises, launches and follows workflows; this package also holds the application hub library, the host application VmWorkflowHost, the vmworkflow tool, the browser example, the sample plug-in and the sample workflows.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Install scripts see the final prefix, so the machine settings land in /etc/xdg.
set(CPACK_SET_DESTDIR ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The shared libraries get a shlibs file and the ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The exported headers need the Qt headers; the libraries' own dependencies come from shlibdeps.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "qt6-base-dev")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The shipped machine settings are the administrator's to change: upgrades keep their edits.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(WRITE ${PROJECT_BINARY_DIR}/debian/conffiles "/etc/xdg/Velmora/Workflow/2015.0.conf\n")
    set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/conffiles)
endif()
include(CPack)
