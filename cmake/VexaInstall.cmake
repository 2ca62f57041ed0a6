# Install rules: headers under include/vexa, the library under lib, a CMake
# package (find_package(vexa CONFIG) -> vexa::vexa) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS vexa EXPORT vexaTargets
  LIBRARY DESTINATION lib
  ARCHIVE DESTINATION lib
  RUNTIME DESTINATION bin
  INCLUDES DESTINATION include)

# Only the public headers are installed; the portability layer, node helpers,
# built-in table and parser internals stay inside the library.
set(VEXA_PUBLIC_HEADERS
  vexa/vexa.h
  vexa/core/export.h vexa/core/data.h vexa/core/wstring.h vexa/core/time_counter.h vexa/core/utf8.h
  vexa/tree/inode.h vexa/tree/constant_param.h vexa/tree/variable_param.h
  vexa/tree/operater_node.h vexa/tree/function_node.h vexa/tree/tree_walk.h vexa/tree/tree_text.h
  vexa/calc/icalculator.h vexa/calc/calc_ref.h vexa/calc/expression.h vexa/calc/complex_step_calculator.h
  vexa/calc/buidin_function.h vexa/calc/function_factory.h vexa/calc/call_errors.h vexa/calc/call_forms.h
  vexa/calc/callable_names.h
  vexa/parser/vexa_parser.h vexa/parser/parse_limits.h vexa/parser/parse_diagnosis.h vexa/parser/host_input.h
  vexa/parser/evaluation_diagnosis.h)
foreach(h ${VEXA_PUBLIC_HEADERS})
  get_filename_component(dir ${h} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${h} DESTINATION include/${dir})
endforeach()
# The compiled form: many points, many threads, exact gradients.
install(FILES ${PROJECT_SOURCE_DIR}/vexa/compiled/compiled_expression.h ${PROJECT_SOURCE_DIR}/vexa/compiled/compiled_form.h
  DESTINATION include/vexa/compiled)

# The C interface, for C hosts, and its Fortran module (a source a Fortran
# host compiles with its own compiler: module files differ between them).
install(FILES ${PROJECT_SOURCE_DIR}/vexa/vexa_c.h ${PROJECT_SOURCE_DIR}/vexa/vexa.f90 DESTINATION include/vexa)

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
