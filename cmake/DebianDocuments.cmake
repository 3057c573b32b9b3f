# CPack runs this on the files of each Debian package before packing: it adds the usual files under share/doc and
# compresses the manual pages.
find_program(GZIP gzip REQUIRED)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
  file(WRITE ${root}/doc/${package}/changelog
       "morvix-protocol (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
       "  * Release ${CPACK_PACKAGE_VERSION}. The source's CHANGELOG.md tells what changed.\n\n"
       " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  if(CPACK_MORVIX_COPYRIGHT_FILE)
    configure_file(${CPACK_MORVIX_COPYRIGHT_FILE} ${root}/doc/${package}/copyright COPYONLY)
  endif()
  file(GLOB pages ${root}/man/man*/*[0-9])
  execute_process(COMMAND ${GZIP} -9nf ${root}/doc/${package}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
