# What `cmake --install` lays out, and the .deb that CPack makes of it:
#   bin/mivo4                         the command-line host
#   lib/mivo4/mivo42.flt              the module (a host opens it with dlopen)
#   lib/mivo4/mivo4-{png,jpeg,tiff}.so the host's picture readers and decoder, one module per
#                                     picture library, each loaded when a job needs it
#   include/mivo4/*.h                 the public C headers
#   lib/pkgconfig/mivo4.pc            pkg-config: flags, and the module's path
#   lib/cmake/mivo4/                  find_package(mivo4 CONFIG): mivo4::mivo4
#   share/man/man1/mivo4.1            the manual page
#   share/doc/mivo4/                  README and the behaviour notes
# Every path is relative to the prefix, so an installed tree (or a .deb
# unpacked anywhere) finds itself.
include(CMakePackageConfigHelpers)

set(MIVO4_INSTALL_MODULEDIR lib/mivo4)
set(MIVO4_INSTALL_CMAKEDIR lib/cmake/mivo4)

install(TARGETS mivo42 LIBRARY DESTINATION ${MIVO4_INSTALL_MODULEDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/mivo4 DESTINATION include COMPONENT runtime
  FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/behaviour.md
  DESTINATION share/doc/mivo4 COMPONENT runtime)

configure_file(${PROJECT_SOURCE_DIR}/cmake/mivo4.pc.in ${PROJECT_BINARY_DIR}/mivo4.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/mivo4.pc DESTINATION lib/pkgconfig COMPONENT runtime)

configure_file(${PROJECT_SOURCE_DIR}/cmake/mivo4Config.cmake.in
  ${PROJECT_BINARY_DIR}/mivo4Config.cmake @ONLY)
# 0.x releases may change the records between minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mivo4ConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/mivo4Config.cmake ${PROJECT_BINARY_DIR}/mivo4ConfigVersion.cmake
  DESTINATION ${MIVO4_INSTALL_CMAKEDIR} COMPONENT runtime)

if(MIVO4_BUILD_TOOLS)
  install(TARGETS mivo4 RUNTIME DESTINATION bin COMPONENT runtime)
  install(TARGETS ${MIVO4_CODEC_MODULES} LIBRARY DESTINATION ${MIVO4_INSTALL_MODULEDIR} COMPONENT runtime)
  # The manual page is made from the program's own --help, so that it never
  # disagrees with it; the version is the project's (mivo4 --version would
  # also name the build tree's module).
  find_program(HELP2MAN help2man REQUIRED)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/mivo4.1
    COMMAND ${CMAKE_COMMAND} -E env MIVO4_MODULE=$<TARGET_FILE:mivo42>
      ${HELP2MAN} --no-info --section=1 --version-string=${PROJECT_VERSION}
      --name "export pictures as CALS Type 1 raster files (Group 4)"
      --output=${PROJECT_BINARY_DIR}/mivo4.1 $<TARGET_FILE:mivo4>
    DEPENDS mivo4 mivo42
    COMMENT "Writing the manual page from mivo4 --help" VERBATIM)
  add_custom_target(mivo4_man ALL DEPENDS ${PROJECT_BINARY_DIR}/mivo4.1)
  install(FILES ${PROJECT_BINARY_DIR}/mivo4.1 DESTINATION share/man/man1 COMPONENT runtime)
endif()

# cpack -G DEB: the runtime libraries' packages become dependencies through
# dpkg-shlibdeps.
set(CPACK_PACKAGE_NAME mivo4)
set(CPACK_PACKAGE_VENDOR "mivo4")
set(CPACK_PACKAGE_CONTACT "mivo4 developers <mivo4@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "A filter module that writes CALS Type 1 raster files.
mivo42.flt is loaded by a host application at run time; it reduces colour,
dithers, scales and codes pictures as one CCITT Group 4 stream behind a
2048-byte CALS header. The package holds the module, its C headers with
pkg-config and CMake files, and the mivo4 command-line host.")
set(CPACK_COMPONENTS_ALL runtime)
set(CPACK_DEB_COMPONENT_INSTALL OFF)
include(CPack)
