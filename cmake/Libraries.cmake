# How this project's libraries are made and installed. All headers have one include root, here and
# where they are installed: "Orb/Ptr.h", "VelaSwitchTable/VelaTableLpm.h", "device/DataPath.h".

set(VELA_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/vela)
set(VELA_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelaSwitchTable)
# Warnings of these headers are not those of whoever includes this project.
set(VELA_SYSTEM "")
if(NOT PROJECT_IS_TOP_LEVEL)
  set(VELA_SYSTEM SYSTEM)
endif()
set_property(GLOBAL PROPERTY VELA_COMPONENTS "")

# vela_library(Vela<Component> [STATIC]
#              ROOT include root, beneath the project
#              SOURCES globs   HEADERS globs   PRIVATE_HEADERS those of them that stay here
#              NEEDS libraries of this project   ABOUT a line for pkg-config)
function(vela_library name)
  cmake_parse_arguments(ARG "STATIC" "ROOT;ABOUT" "SOURCES;HEADERS;PRIVATE_HEADERS;NEEDS" ${ARGN})
  string(REGEX REPLACE "^Vela" "" component ${name})
  file(GLOB sources CONFIGURE_DEPENDS ${ARG_SOURCES})
  set(kind "")
  if(ARG_STATIC)
    set(kind STATIC)
  endif()
  add_library(${name} ${kind} ${sources})
  add_library(Vela::${component} ALIAS ${name})
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${component} VERSION ${PROJECT_VERSION}
                                           SOVERSION ${VELA_SOVERSION})
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_include_directories(${name} ${VELA_SYSTEM} PUBLIC
                             $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/${ARG_ROOT}>
                             $<INSTALL_INTERFACE:${VELA_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_NEEDS})
  set_property(GLOBAL APPEND PROPERTY VELA_COMPONENTS ${component})
  if(NOT VELA_INSTALL)
    return()
  endif()

  install(TARGETS ${name} EXPORT VelaTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
                  NAMELINK_COMPONENT development
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/${ARG_ROOT} ${ARG_HEADERS})
  foreach(header ${headers})
    get_filename_component(folder ${header} DIRECTORY)
    if(NOT header IN_LIST ARG_PRIVATE_HEADERS)
      install(FILES ${PROJECT_SOURCE_DIR}/${ARG_ROOT}/${header}
              DESTINATION ${VELA_INCLUDEDIR}/${folder} COMPONENT development)
    endif()
  endforeach()

  file(RELATIVE_PATH INCLUDE_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
       ${CMAKE_INSTALL_FULL_INCLUDEDIR}/vela)
  set(LIBRARY ${name})
  set(ABOUT "${ARG_ABOUT}")
  string(REGEX REPLACE "Vela([A-Za-z]+)" "Vela\\1 = ${PROJECT_VERSION}" REQUIRES "${ARG_NEEDS}")
  string(REPLACE ";" ", " REQUIRES "${REQUIRES}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# To be called when all libraries are made: find_package(VelaSwitchTable) then works with the build
# tree and with what is installed.
function(vela_package)
  if(NOT VELA_INSTALL)
    return()
  endif()
  include(CMakePackageConfigHelpers)
  get_property(VELA_COMPONENTS GLOBAL PROPERTY VELA_COMPONENTS)
  configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/VelaSwitchTableConfig.cmake.in VelaSwitchTableConfig.cmake
    INSTALL_DESTINATION ${VELA_CMAKEDIR} NO_SET_AND_CHECK_MACRO)
  # Before 1.0 each minor version may break what was built with another.
  write_basic_package_version_file(VelaSwitchTableConfigVersion.cmake
                                   COMPATIBILITY SameMinorVersion)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VelaSwitchTableConfig.cmake
                ${CMAKE_CURRENT_BINARY_DIR}/VelaSwitchTableConfigVersion.cmake
          DESTINATION ${VELA_CMAKEDIR} COMPONENT development)
  install(EXPORT VelaTargets NAMESPACE Vela:: DESTINATION ${VELA_CMAKEDIR} COMPONENT development)
  export(EXPORT VelaTargets NAMESPACE Vela:: FILE ${CMAKE_CURRENT_BINARY_DIR}/VelaTargets.cmake)
endfunction()
