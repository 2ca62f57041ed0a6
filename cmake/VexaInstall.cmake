# Install rules: headers under include/vexa, the library under lib, a CMake
# package (find_package(vexa CONFIG) -> vexa::vexa) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS vexa EXPORT vexaTargets
  LIBRARY DESTINATION lib
  ARCHIVE DESTINATION lib
  RUNTIME DESTINATION bin
  INCLUDES DESTINATION include)

# Only the public headers are installed (cmake/VexaPublicHeaders.cmake): the
# portability layer, node helpers, built-in table and parser internals stay
# inside the library. The Fortran module beside them is a source a Fortran
# host compiles with its own compiler: module files differ between them.
include(${PROJECT_SOURCE_DIR}/cmake/VexaPublicHeaders.cmake)
foreach(h ${VEXA_PUBLIC_HEADERS})
  get_filename_component(dir ${h} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${h} DESTINATION include/${dir})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/vexa/vexa.f90 DESTINATION include/vexa)

install(EXPORT vexaTargets NAMESPACE vexa:: DESTINATION lib/cmake/vexa)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vexaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vexaConfig.cmake
  INSTALL_DESTINATION lib/cmake/vexa)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexaConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vexaConfig.cmake ${PROJECT_BINARY_DIR}/vexaConfigVersion.cmake
  DESTINATION lib/cmake/vexa)

configure_file(${PROJECT_SOURCE_DIR}/cmake/vexa.pc.in ${PROJECT_BINARY_DIR}/vexa.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vexa.pc DESTINATION lib/pkgconfig)
