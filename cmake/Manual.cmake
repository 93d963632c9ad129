# The manual pages: what the programs say of themselves, with the examples of docs/man. A file of examples a
# page, named after it.
file(GLOB examples CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/docs/man
     ${PROJECT_SOURCE_DIR}/docs/man/velatable*.txt)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
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
set(daemon ${PROJECT_BINARY_DIR}/man/velad.8)
add_custom_command(
  OUTPUT ${daemon}
  COMMAND velad --manual ${PROJECT_SOURCE_DIR}/docs/man/velad.txt > ${daemon}
  DEPENDS velad ${PROJECT_SOURCE_DIR}/docs/man/velad.txt VERBATIM)
add_custom_target(manual ALL DEPENDS ${pages} ${daemon})
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${daemon} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT tools)
