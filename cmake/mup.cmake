# SPDX-License-Identifier: MIT
# An installed libmup as the imported target zor::mup: found through the
# pkg-config module mup when ZOR_MUP is "pkg-config", else under the prefix
# that ZOR_MUP names. libzor needs only its header mup/mup.h and libmup.so.
# Used by a build with ZOR_MUP other than "bundled", and installed with it
# (as zorMup.cmake) so that find_package(zor) finds the same library again.
if(NOT TARGET zor::mup)
    if(ZOR_MUP STREQUAL "pkg-config")
        find_package(PkgConfig REQUIRED)
        pkg_check_modules(ZOR_MUP_PC REQUIRED mup)
        find_path(ZOR_MUP_INCLUDE_DIR mup/mup.h HINTS ${ZOR_MUP_PC_INCLUDE_DIRS})
        find_library(ZOR_MUP_LIBRARY mup HINTS ${ZOR_MUP_PC_LIBRARY_DIRS})
    else()
        find_path(ZOR_MUP_INCLUDE_DIR mup/mup.h PATHS "${ZOR_MUP}/include" NO_DEFAULT_PATH)
        find_library(ZOR_MUP_LIBRARY mup
            PATHS "${ZOR_MUP}/lib/${CMAKE_LIBRARY_ARCHITECTURE}" "${ZOR_MUP}/lib"
                  "${ZOR_MUP}/lib64"
            NO_DEFAULT_PATH)
    endif()
    if(NOT ZOR_MUP_INCLUDE_DIR OR NOT ZOR_MUP_LIBRARY)
        message(FATAL_ERROR "libmup not found for ZOR_MUP=${ZOR_MUP}: mup/mup.h "
                            "(${ZOR_MUP_INCLUDE_DIR}) and libmup.so (${ZOR_MUP_LIBRARY}) are needed")
    endif()
    add_library(zor::mup SHARED IMPORTED)
    set_target_properties(zor::mup PROPERTIES
        IMPORTED_LOCATION "${ZOR_MUP_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${ZOR_MUP_INCLUDE_DIR}")
endif()
