# SPDX-License-Identifier: MIT
vmwf_add_test(NAME tst_productcatalog SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_productcatalog.cpp LIBS VmWorkflowCoreTesting)
vmwf_add_test(NAME tst_productrules SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_productrules.cpp LIBS VmWorkflowCoreTesting)
vmwf_add_test(NAME tst_productexpression SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_productexpression.cpp LIBS VmWorkflowCoreTesting)
