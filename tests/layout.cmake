# The source tree's layout rules, checked: run as
#   cmake -DVEXA_ROOT=<checkout> -P tests/layout.cmake
# - a public header includes only public headers (else an installed host
#   cannot compile it);
# - the library's folders include one way: core <- calc <- tree <- parser,
#   and tree <- compiled (with its subfolders) <- the C interface;
# - the programs beside the library (tools, bench, fuzz, examples, the
#   Python module) include only public headers, as any host must; two
#   benchmarks that measure the library's inside are the named exceptions.
cmake_minimum_required(VERSION 3.25)
include(${VEXA_ROOT}/cmake/VexaPublicHeaders.cmake)

set(problems "")
function(vexa_includes file out)
  file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"vexa/")
  set(found "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"(vexa/[^\"]+)\".*" "\\1" header "${line}")
    list(APPEND found ${header})
  endforeach()
  set(${out} "${found}" PARENT_SCOPE)
endfunction()

foreach(header IN LISTS VEXA_PUBLIC_HEADERS)
  if(NOT EXISTS ${VEXA_ROOT}/${header})
    string(APPEND problems "public header ${header} does not exist\n")
    continue()
  endif()
  vexa_includes(${VEXA_ROOT}/${header} used)
  foreach(u IN LISTS used)
    if(NOT u IN_LIST VEXA_PUBLIC_HEADERS)
      string(APPEND problems "public ${header} includes ${u}, which is not public\n")
    endif()
  endforeach()
endforeach()

# Folder -> the folders its files may include.
set(allowed_core core)
set(allowed_calc core calc)
set(allowed_tree core calc tree)
set(allowed_parser core calc tree parser)
set(allowed_compiled core calc tree compiled)
set(allowed_c core calc tree parser compiled c)
file(GLOB_RECURSE library_files ${VEXA_ROOT}/vexa/*.h ${VEXA_ROOT}/vexa/*.cpp)
foreach(file IN LISTS library_files)
  file(RELATIVE_PATH rel ${VEXA_ROOT} ${file})
  if(NOT rel MATCHES "^vexa/([a-z0-9_]+)/")
    continue()  # vexa.h and vexa_c.h sit above every folder
  endif()
  set(folder ${CMAKE_MATCH_1})
  if(NOT DEFINED allowed_${folder})
    string(APPEND problems "${rel}: folder ${folder} has no place in the layout rules\n")
    continue()
  endif()
  vexa_includes(${file} used)
  foreach(u IN LISTS used)
    if(u MATCHES "^vexa/([a-z0-9_]+)/")
      if(NOT CMAKE_MATCH_1 IN_LIST allowed_${folder})
        string(APPEND problems "${rel} includes ${u}: ${folder} may not depend on ${CMAKE_MATCH_1}\n")
      endif()
    endif()
  endforeach()
endforeach()

file(GLOB_RECURSE host_files
  ${VEXA_ROOT}/tools/*.cpp ${VEXA_ROOT}/tools/*.h ${VEXA_ROOT}/bench/*.cpp ${VEXA_ROOT}/bench/*.h
  ${VEXA_ROOT}/fuzz/*.cpp ${VEXA_ROOT}/fuzz/*.h ${VEXA_ROOT}/examples/*.cpp ${VEXA_ROOT}/examples/*.c
  ${VEXA_ROOT}/python/*.cpp)
set(inside_views
  "bench/bench_memory.cpp:vexa/core/executable_arena.h"  # pages of machine code per expression
  "bench/pow_sweep.cpp:vexa/core/exact_pow.cpp")        # the power routine itself, compiled in
foreach(file IN LISTS host_files)
  file(RELATIVE_PATH rel ${VEXA_ROOT} ${file})
  vexa_includes(${file} used)
  foreach(u IN LISTS used)
    if(NOT u IN_LIST VEXA_PUBLIC_HEADERS AND NOT "${rel}:${u}" IN_LIST inside_views)
      string(APPEND problems "${rel} includes ${u}, which is internal to the library\n")
    endif()
  endforeach()
endforeach()

if(problems)
  message(FATAL_ERROR "layout rules broken:\n${problems}")
endif()
