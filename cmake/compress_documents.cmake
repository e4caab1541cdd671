# Debian wants manual pages and changelogs gzipped, without a time stamp.
file(GLOB_RECURSE documents ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.1
     ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/changelog)
if(documents)
  execute_process(COMMAND gzip -9nf ${documents} COMMAND_ERROR_IS_FATAL ANY)
endif()
