# SPDX-License-Identifier: MIT
# The product catalogue and the required-products rules.
target_sources(VmWorkflowCoreObjects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ProductCatalog.h ${CMAKE_CURRENT_LIST_DIR}/ProductCatalog.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ProductExpression.h ${CMAKE_CURRENT_LIST_DIR}/ProductExpression.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ProductRules.h ${CMAKE_CURRENT_LIST_DIR}/ProductRules.cpp
)
