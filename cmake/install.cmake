# SPDX-License-Identifier: MIT
# Installation: libzor.so and libmup.so with their headers, pkg-config files
# (zor.pc, mup.pc) and a CMake package (find_package(zor) gives zor::zor and
# zor::mup), the simulator and the tools, and the ALSA file-device set-up.
# The bundled libmup is the install component "mup" (cmake --install
# --component mup installs it alone); a build against an installed libmup
# installs libzor only, and its package finds that libmup again.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZOR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/zor)

# libzor.so finds libmup.so beside itself, wherever the prefix is: an
# application's run path does not apply to its libraries' own dependencies.
set_target_properties(zor PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS zor EXPORT zorTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/zor
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
if(ZOR_MUP_BUNDLED)
    install(TARGETS mup EXPORT zorTargets COMPONENT mup
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/mup
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT mup
        FILES_MATCHING PATTERN "*.h")
    set(ZOR_CONFIG_MUP "")
    set(ZOR_PC_REQUIRES "mup = ${PROJECT_VERSION}")
else()
    # The package finds the installed libmup the way this build did.
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/mup.cmake
        DESTINATION ${ZOR_INSTALL_CMAKEDIR} RENAME zorMup.cmake)
    set(ZOR_CONFIG_MUP "set(ZOR_MUP \"${ZOR_MUP}\")\ninclude(\"\${CMAKE_CURRENT_LIST_DIR}/zorMup.cmake\")")
    set(ZOR_PC_REQUIRES "mup")
endif()
install(FILES ${PROJECT_BINARY_DIR}/include/zor/zor_version.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zor)

install(EXPORT zorTargets NAMESPACE zor:: DESTINATION ${ZOR_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zorConfig.cmake.in
    ${PROJECT_BINARY_DIR}/zorConfig.cmake
    INSTALL_DESTINATION ${ZOR_INSTALL_CMAKEDIR})
# The shared libraries' SONAME carries the major version only.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zorConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zorConfig.cmake ${PROJECT_BINARY_DIR}/zorConfigVersion.cmake
    DESTINATION ${ZOR_INSTALL_CMAKEDIR})

# The .pc files find the prefix from their own place, so an install with
# `cmake --install --prefix` elsewhere than the configured prefix still works.
set(ZOR_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${ZOR_PC_DIR}")
    set(ZOR_PC_PREFIX_FROM_PCDIR "")
    set(ZOR_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
    file(RELATIVE_PATH ZOR_PC_PREFIX_FROM_PCDIR "/${ZOR_PC_DIR}" "/")
    string(REGEX REPLACE "/$" "" ZOR_PC_PREFIX_FROM_PCDIR "${ZOR_PC_PREFIX_FROM_PCDIR}")
    set(ZOR_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(ZOR_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
    set(ZOR_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/zor.pc.in ${PROJECT_BINARY_DIR}/zor.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zor.pc DESTINATION ${ZOR_PC_DIR})
if(ZOR_MUP_BUNDLED)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/mup.pc.in ${PROJECT_BINARY_DIR}/mup.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/mup.pc DESTINATION ${ZOR_PC_DIR} COMPONENT mup)
endif()

if(ZOR_BUILD_TOOLS)
    # zorctl needs libmup.so; found beside the programs' own prefix.
    if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
        set_target_properties(tvsim zorctl PROPERTIES
            INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    endif()
    install(TARGETS tvsim zorctl zorfeed RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${PROJECT_SOURCE_DIR}/sim/alsa/asound.conf
        ${PROJECT_SOURCE_DIR}/sim/tv-state.example.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zor)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/assistant
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# The HTML API reference, when it has been built (`make docs` builds it into
# build-docs/html; ZOR_API_REFERENCE_DIR points elsewhere).
set(ZOR_API_REFERENCE_DIR ${PROJECT_SOURCE_DIR}/build-docs/html CACHE PATH
    "Built HTML API reference that cmake --install copies, when present")
install(DIRECTORY ${ZOR_API_REFERENCE_DIR}/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html OPTIONAL)

# The licence travels with the libraries.
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
