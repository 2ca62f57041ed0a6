# The public headers are vexa/vexa.h and the headers it includes: a header is
# made public by adding it there, and the install rules and the layout test
# read this list. Beside them: the C interface's header and the name hosts
# included the compiled form by before it was called compiled_expression.h.
# Sets VEXA_PUBLIC_HEADERS, paths relative to VEXA_ROOT.
file(STRINGS ${VEXA_ROOT}/vexa/vexa.h vexa_umbrella_lines REGEX "^#include \"vexa/")
set(VEXA_PUBLIC_HEADERS vexa/vexa.h vexa/vexa_c.h vexa/compiled/compiled_form.h)
foreach(line IN LISTS vexa_umbrella_lines)
  string(REGEX REPLACE "^#include \"(vexa/[^\"]+)\".*" "\\1" header "${line}")
  list(APPEND VEXA_PUBLIC_HEADERS ${header})
endforeach()
if(NOT CMAKE_SCRIPT_MODE_FILE)
  # A header added to vexa.h is installed without a hand-run configure.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VEXA_ROOT}/vexa/vexa.h)
endif()
