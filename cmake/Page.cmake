# The page that shows a switch: its sources are compiled in, as they are.
set(page_folder ${PROJECT_SOURCE_DIR}/tools/page)
file(READ ${page_folder}/page.html VELA_PAGE)
file(READ ${page_folder}/style.css VELA_PAGE_STYLE)
file(READ ${page_folder}/page.js VELA_PAGE_SCRIPT)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page_folder}/page.html
                                       ${page_folder}/style.css ${page_folder}/page.js)
configure_file(${page_folder}/Sources.cpp.in ${PROJECT_BINARY_DIR}/page/Sources.cpp @ONLY)
add_library(VelaPage STATIC ${page_folder}/Page.cpp ${PROJECT_BINARY_DIR}/page/Sources.cpp)
target_link_libraries(VelaPage PUBLIC VelaAgent)
target_compile_options(VelaPage PRIVATE ${LITTLE_OPTIMIZED})
