# SPDX-License-Identifier: MIT
# Where everything goes under an installation prefix, and how the programs find it again from
# their own folder. The build folder mirrors the same relations (bin/, share/, ...), so a program
# behaves alike in both and never carries the absolute path of the tree it was built in.

# The binary interface of the shared libraries: raise it when an exported class changes in a way
# that breaks programs built against the previous headers. It ends the libraries' file names.
set(VMWF_ABI_VERSION 1)

set(VMWF_SAMPLE_INSTALL_DIR ${CMAKE_INSTALL_DATADIR}/vmworkflow)
set(VMWF_APPLICATIONS_INSTALL_DIR ${CMAKE_INSTALL_DATADIR}/Velmora/Applications)
set(VMWF_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)
set(VMWF_PKGCONFIG_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Relative paths between installed folders, taken from a stand-in prefix so that the answer holds
# for whatever prefix the installation is finally given.
set(_vmwf_root /vmwf-prefix)
file(RELATIVE_PATH VMWF_REL_SAMPLE_DIR ${_vmwf_root}/${CMAKE_INSTALL_BINDIR} ${_vmwf_root}/${VMWF_SAMPLE_INSTALL_DIR})
file(RELATIVE_PATH VMWF_REL_APPLICATIONS_DIR
    ${_vmwf_root}/${CMAKE_INSTALL_BINDIR} ${_vmwf_root}/${VMWF_APPLICATIONS_INSTALL_DIR})
file(RELATIVE_PATH VMWF_REL_SETTINGS_DIR ${_vmwf_root}/${CMAKE_INSTALL_BINDIR} ${_vmwf_root}/${CMAKE_INSTALL_SYSCONFDIR}/xdg)
file(RELATIVE_PATH VMWF_REL_LIB_FROM_BIN ${_vmwf_root}/${CMAKE_INSTALL_BINDIR} ${_vmwf_root}/${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH VMWF_REL_HOST_FROM_MANIFEST
    ${_vmwf_root}/${VMWF_APPLICATIONS_INSTALL_DIR} ${_vmwf_root}/${CMAKE_INSTALL_BINDIR}/VmWorkflowHost)
file(RELATIVE_PATH VMWF_PC_RELATIVE_PREFIX ${_vmwf_root}/${VMWF_PKGCONFIG_INSTALL_DIR} ${_vmwf_root})
string(REGEX REPLACE "/$" "" VMWF_PC_RELATIVE_PREFIX "${VMWF_PC_RELATIVE_PREFIX}")

configure_file(${CMAKE_CURRENT_LIST_DIR}/VmWorkflowCoreVersion.h.in
    ${PROJECT_BINARY_DIR}/include/VmWorkflowCore/VmWorkflowCoreVersion.h @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/VmWorkflowInstallPaths.h.in
    ${PROJECT_BINARY_DIR}/apps-include/VmWorkflowInstallPaths.h @ONLY)

# Installed programs find the installed libraries beside the prefix, wherever it is moved.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
    set(CMAKE_INSTALL_RPATH "$ORIGIN/${VMWF_REL_LIB_FROM_BIN};$ORIGIN")
endif()

# The build folder's sample data is the source tree's, reached the way an installed program
# reaches its own (bin/../share/vmworkflow); the tests, which run from tests/bin, reach it alike.
foreach(_vmwf_programs ${CMAKE_BINARY_DIR}/bin ${CMAKE_BINARY_DIR}/tests/bin)
    get_filename_component(_vmwf_built_samples ${_vmwf_programs}/${VMWF_REL_SAMPLE_DIR} ABSOLUTE)
    if(NOT EXISTS ${_vmwf_built_samples})
        get_filename_component(_vmwf_parent ${_vmwf_built_samples} DIRECTORY)
        file(MAKE_DIRECTORY ${_vmwf_parent})
        file(CREATE_LINK ${PROJECT_SOURCE_DIR}/share ${_vmwf_built_samples} SYMBOLIC)
    endif()
endforeach()
