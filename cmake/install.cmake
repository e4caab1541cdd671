# Installed tree: programs, both libraries, headers, CMake and pkg-config files, data, man pages.
# Components are the Debian packages of cmake/packages.cmake; "setup" is what only other installations need.
include(CMakePackageConfigHelpers)

set(QUORIX_DATA_DIR ${CMAKE_INSTALL_DATADIR}/quorix)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quorix)

set_target_properties(quorix_static PROPERTIES EXPORT_NAME quorix_static)
install(TARGETS quorix-map quorix-program
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
install(TARGETS quorix quorix_static EXPORT quorixTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY include/quorix DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
        FILES_MATCHING PATTERN "*.h")
install(DIRECTORY data/xray DESTINATION ${QUORIX_DATA_DIR} COMPONENT data
        FILES_MATCHING PATTERN "*.dat")
install(DIRECTORY data/report DESTINATION ${QUORIX_DATA_DIR} COMPONENT data)
install(FILES cmake/setup.sh DESTINATION ${QUORIX_DATA_DIR} COMPONENT setup)
install(DIRECTORY ${QUORIX_PAGES}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT programs)
install(DIRECTORY ${QUORIX_PAGES}/bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}
        COMPONENT programs)
install(DIRECTORY ${QUORIX_PAGES}/zsh DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT setup)
file(GLOB guides docs/*.md)
file(GLOB pictures docs/*.png)
install(FILES ${guides} ${pictures} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT programs)
include(cmake/site.cmake)
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT programs
        FILES_MATCHING PATTERN "*.pdb" PATTERN "*.mtz" PATTERN "README.md" PATTERN "*.qx"
        PATTERN "ligand_density.*")
install(DIRECTORY workflow/ DESTINATION ${QUORIX_DATA_DIR}/workflow COMPONENT programs
        USE_SOURCE_PERMISSIONS)
install(EXPORT quorixTargets NAMESPACE quorix:: DESTINATION ${package_dir} COMPONENT dev)

configure_package_config_file(cmake/quorixConfig.cmake.in ${PROJECT_BINARY_DIR}/quorixConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS QUORIX_DATA_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quorixConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
file(RELATIVE_PATH QUORIX_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" QUORIX_PC_TO_PREFIX "${QUORIX_PC_TO_PREFIX}")
configure_file(cmake/quorix.pc.in ${PROJECT_BINARY_DIR}/quorix.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorixConfig.cmake ${PROJECT_BINARY_DIR}/quorixConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/quorix.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
