# Installed tree: programs, both libraries, headers, CMake and pkg-config files, data, man pages.
include(CMakePackageConfigHelpers)

set(QUORIX_DATA_DIR ${CMAKE_INSTALL_DATADIR}/quorix)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quorix)

set_target_properties(quorix_static PROPERTIES EXPORT_NAME quorix_static)
install(TARGETS quorix quorix_static quorix-map quorix-program EXPORT quorixTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/quorix DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY data/xray DESTINATION ${QUORIX_DATA_DIR} FILES_MATCHING PATTERN "*.dat")
install(DIRECTORY data/report DESTINATION ${QUORIX_DATA_DIR})
install(FILES cmake/setup.sh DESTINATION ${QUORIX_DATA_DIR})
install(DIRECTORY ${QUORIX_PAGES}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})
install(DIRECTORY ${QUORIX_PAGES}/bash-completion ${QUORIX_PAGES}/zsh DESTINATION ${CMAKE_INSTALL_DATADIR})
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
        FILES_MATCHING PATTERN "*.pdb" PATTERN "*.mtz" PATTERN "README.md" PATTERN "*.qx")
install(EXPORT quorixTargets NAMESPACE quorix:: DESTINATION ${package_dir})

configure_package_config_file(cmake/quorixConfig.cmake.in ${PROJECT_BINARY_DIR}/quorixConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS QUORIX_DATA_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quorixConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
file(RELATIVE_PATH QUORIX_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" QUORIX_PC_TO_PREFIX "${QUORIX_PC_TO_PREFIX}")
configure_file(cmake/quorix.pc.in ${PROJECT_BINARY_DIR}/quorix.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorixConfig.cmake ${PROJECT_BINARY_DIR}/quorixConfigVersion.cmake
        DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/quorix.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
