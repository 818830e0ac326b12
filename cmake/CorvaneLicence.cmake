# CORVANE_LICENCE: the SPDX name of the program's licence. It stands in the first line of LICENSE, and nowhere else: whoever
# names a licence (packages, metadata, lists of components) reads it there.

file(STRINGS "${CMAKE_CURRENT_SOURCE_DIR}/LICENSE" corvane_licence LIMIT_COUNT 1)
if(NOT corvane_licence MATCHES "^SPDX-License-Identifier: ([A-Za-z0-9.+() -]+)$")
    message(FATAL_ERROR "LICENSE has to begin with \"SPDX-License-Identifier: \" and the licence's SPDX name")
endif()
set(CORVANE_LICENCE "${CMAKE_MATCH_1}")
