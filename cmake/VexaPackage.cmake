# A Debian package of everything `cmake --install` puts down (library,
# headers, CMake and pkg-config files, the vexa command), made with
#   cpack -G DEB --config build/CPackConfig.cmake
# It installs under /usr, where the dynamic linker finds the library; the
# command also finds it through its run path.
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION share/doc/vexa RENAME copyright)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vexa)
set(CPACK_PACKAGE_VENDOR "the vexa developers")
set(CPACK_PACKAGE_CONTACT "the vexa developers <vexa@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "parser, evaluator and differentiator of multibody-dynamics function expressions")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# Stated rather than discovered, so packaging needs no tools beyond CMake.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1")
# The package's shared library gets its shlibs file and the ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
