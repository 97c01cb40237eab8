# SPDX-License-Identifier: MIT
# Notes the time before the first test (ACTION=note) and, after the last (ACTION=check), fails when
# anything in FOLDER was made, changed or removed since: no test may write where every test program
# runs from, since the tests run side by side and each would read what another left there.
#   cmake -DACTION=note|check -DFOLDER=<folder> -DSTAMP=<file> -P FolderUnchanged.cmake
if(ACTION STREQUAL "note")
    file(TOUCH "${STAMP}")
elseif(ACTION STREQUAL "check")
    if(NOT EXISTS "${STAMP}")
        message(FATAL_ERROR "${STAMP} is missing: the time before the tests was not noted")
    endif()
    # The folder's own time changes when an entry is made or removed in it, even one removed again.
    execute_process(COMMAND find "${FOLDER}" -maxdepth 1 -newer "${STAMP}"
                    OUTPUT_VARIABLE changed RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "cannot look at ${FOLDER}")
    endif()
    if(NOT changed STREQUAL "")
        message(FATAL_ERROR "The tests changed the folder the test programs run from:\n${changed}")
    endif()
    message(STATUS "${FOLDER} is as it was before the tests")
else()
    message(FATAL_ERROR "ACTION must be note or check")
endif()
