# The library's sources, for the main build and for the fuzz target's own
# build alike. VEXA_ROOT is the checkout's top folder.
file(GLOB VEXA_SOURCES CONFIGURE_DEPENDS
  ${VEXA_ROOT}/vexa/core/*.cpp
  ${VEXA_ROOT}/vexa/tree/*.cpp
  ${VEXA_ROOT}/vexa/calc/*.cpp
  ${VEXA_ROOT}/vexa/compiled/*.cpp
  ${VEXA_ROOT}/vexa/compiled/program/*.cpp
  ${VEXA_ROOT}/vexa/compiled/run/*.cpp
  ${VEXA_ROOT}/vexa/compiled/exact/*.cpp
  ${VEXA_ROOT}/vexa/compiled/x86_64/*.cpp
  ${VEXA_ROOT}/vexa/compiled/aarch64/*.cpp
  ${VEXA_ROOT}/vexa/parser/*.cpp)
# The C interface: hosts of the shared library only.
file(GLOB VEXA_C_SOURCES CONFIGURE_DEPENDS ${VEXA_ROOT}/vexa/c/*.cpp)
