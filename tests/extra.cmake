# The installed package must serve a host that includes only <vexa/vexa.h>.
# Skipped under the sanitizers, whose runtime the plain host would not link.
# Under a cross build they would build a host for this machine against the
# target's library: they are reported as skipped, with the reason.
if(CMAKE_CROSSCOMPILING)
  foreach(name install_package_host readme_host_commands)
    add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo
      "skipped: builds a host with this machine's compiler, which cannot link a cross-built library")
    set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "skipped: ")
  endforeach()
elseif(NOT VEXA_SANITIZE)
  add_test(NAME install_package_host
    COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/install/check.sh ${PROJECT_BINARY_DIR})
  # Every code sample of the README and of docs/, run as written against a
  # scratch prefix.
  add_test(NAME doc_samples
    COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/install/doc_samples.sh ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
endif()
# The documentation site builds without a warning (where MkDocs is installed;
# scripts/docs.sh installs it).
find_program(VEXA_MKDOCS mkdocs)
if(VEXA_MKDOCS)
  add_test(NAME docs_site
    COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/docs.sh --no-install ${CMAKE_CURRENT_BINARY_DIR}/site)
endif()

# The differential test once more with machine code from the first repeated
# evaluation on (its discovered run compares the interpreter, which serves
# the first 64 evaluations of an expression).
add_test(NAME compiled_differential_machine_code COMMAND test_compiled_differential)
set_tests_properties(compiled_differential_machine_code PROPERTIES ENVIRONMENT "VEXA_MACHINE_CODE_AFTER=0")

# The gradient tests once more without machine code: the runner, which the
# gradient's machine code must match.
add_test(NAME compiled_gradient_interpreted COMMAND test_compiled_gradient)
set_tests_properties(compiled_gradient_interpreted PROPERTIES ENVIRONMENT "VEXA_MACHINE_CODE_AFTER=-1")

# The gradient's machine code gives the runner's bits: outcomes and partials
# of generated expressions written with and without it, compared.
add_executable(gradient_bits ${CMAKE_CURRENT_SOURCE_DIR}/gradient_bits.cpp)
target_link_libraries(gradient_bits PRIVATE vexa)
target_compile_options(gradient_bits PRIVATE -Wall -Wextra)
add_test(NAME compiled_gradient_bits
  COMMAND ${CMAKE_COMMAND} -DTEST=$<TARGET_FILE:gradient_bits> -DDIR=${CMAKE_CURRENT_BINARY_DIR}
          "-DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}"
          -P ${CMAKE_CURRENT_SOURCE_DIR}/gradient_bits.cmake)

# The emitter and the frame are internal to the library (hidden): their tests
# build their own copies.
target_sources(test_compiled_emitter PRIVATE ${PROJECT_SOURCE_DIR}/vexa/compiled/x86_64/x64_emitter.cpp)
# The frame's test runs its code from its own copy of the executable memory,
# with the frame's description registered where the platform reads one.
target_sources(test_compiled_frame PRIVATE ${PROJECT_SOURCE_DIR}/vexa/compiled/x86_64/x64_emitter.cpp
                                           ${PROJECT_SOURCE_DIR}/vexa/compiled/x86_64/frame.cpp
                                           ${PROJECT_SOURCE_DIR}/vexa/compiled/x86_64/unwind_info.cpp
                                           ${PROJECT_SOURCE_DIR}/vexa/core/executable_memory.cpp
                                           ${PROJECT_SOURCE_DIR}/vexa/core/executable_arena.cpp
                                           ${PROJECT_SOURCE_DIR}/vexa/core/executable_arena_windows.cpp)
target_compile_definitions(test_compiled_frame PRIVATE VEXA_BUILDING_LIBRARY)
target_sources(test_compiled_a64_emitter PRIVATE ${PROJECT_SOURCE_DIR}/vexa/compiled/aarch64/a64_emitter.cpp)
# Where the processor is AArch64 the emitter's functions are run, placed in
# the test's own copy of the executable memory.
target_sources(test_compiled_a64_run PRIVATE ${PROJECT_SOURCE_DIR}/vexa/compiled/aarch64/a64_emitter.cpp)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$" AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
  target_sources(test_compiled_a64_run PRIVATE ${PROJECT_SOURCE_DIR}/vexa/core/executable_memory.cpp
                                               ${PROJECT_SOURCE_DIR}/vexa/core/executable_arena.cpp)
endif()

# A million expressions in machine code take about 12 s in Release; the
# sanitizer build, many times slower, holds fewer of them.
if(VEXA_SANITIZE)
  target_compile_definitions(test_core_executable_arena PRIVATE VEXA_ARENA_TEST_EXPRESSIONS=20000)
endif()

# The source tree's layout rules (tests/layout.cmake says which).
add_test(NAME source_layout
  COMMAND ${CMAKE_COMMAND} -DVEXA_ROOT=${PROJECT_SOURCE_DIR} -P ${CMAKE_CURRENT_SOURCE_DIR}/layout.cmake)
# Each folder links with only the folders below it, from the library's own
# objects: a function declared low and defined higher up fails here.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(vexa_layers "core" "core|calc" "core|calc|tree" "core|calc|tree|parser" "core|calc|tree|compiled")
  foreach(layer IN LISTS vexa_layers)
    string(REPLACE "|" "_" layer_name "${layer}")
    add_test(NAME links_alone_${layer_name}
      COMMAND ${CMAKE_CXX_COMPILER} -shared -o ${CMAKE_CURRENT_BINARY_DIR}/links_alone_${layer_name}.so
              "$<FILTER:$<TARGET_OBJECTS:vexa>,INCLUDE,/vexa/(${layer})/>" -Wl,--no-undefined
              $<$<BOOL:${VEXA_SANITIZE}>:-fsanitize=address,undefined>
      COMMAND_EXPAND_LISTS)
  endforeach()
endif()
# Shaped evaluations once more with machine code for the scalar program from
# the first repeated evaluation on: its exit for rows and matrices must reach
# the shaped program with the same outcome.
add_test(NAME compiled_shaped_machine_code COMMAND test_compiled_shaped)
set_tests_properties(compiled_shaped_machine_code PROPERTIES ENVIRONMENT "VEXA_MACHINE_CODE_AFTER=0")
