# The manual pages: what the tool says of itself, with the examples of docs/man. A file of examples a
# page, named after it.
file(GLOB examples CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/docs/man
     ${PROJECT_SOURCE_DIR}/docs/man/*.txt)
set(pages "")
foreach(file ${examples})
  string(REGEX REPLACE "[.]txt$" "" page ${file})
  string(REGEX REPLACE "^velatable-?" "" command ${page})
  set(out ${PROJECT_BINARY_DIR}/man/${page}.1)
  add_custom_command(
    OUTPUT ${out}
    COMMAND velatable manual ${command} --examples ${PROJECT_SOURCE_DIR}/docs/man/${file} > ${out}
    DEPENDS velatable ${PROJECT_SOURCE_DIR}/docs/man/${file} VERBATIM)
  list(APPEND pages ${out})
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
add_custom_target(manual ALL DEPENDS ${pages})
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
