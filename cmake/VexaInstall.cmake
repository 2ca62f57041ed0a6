# Install rules: headers under include/vexa, the library under lib, a CMake
# package (find_package(vexa CONFIG) -> vexa::vexa) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS vexa EXPORT vexaTargets
  LIBRARY DESTINATION lib
  ARCHIVE DESTINATION lib
  RUNTIME DESTINATION bin
  INCLUDES DESTINATION include)

# Internal headers (portability layer, node helpers, built-in table) stay out.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/vexa DESTINATION include
  FILES_MATCHING PATTERN "*.h"
  PATTERN "platform.h" EXCLUDE
  PATTERN "node_util.h" EXCLUDE
  PATTERN "builtins.h" EXCLUDE
  PATTERN "*_internal.h" EXCLUDE)

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
