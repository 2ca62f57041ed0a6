# The installed package must serve a host that includes only <vexa/vexa.h>.
# Skipped under the sanitizers, whose runtime the plain host would not link.
if(NOT VEXA_SANITIZE)
  add_test(NAME install_package_host
    COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/install/check.sh ${PROJECT_BINARY_DIR})
endif()
