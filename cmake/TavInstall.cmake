# cmake --install: library, headers, catalogue, pkg-config file and the CMake package tavlib (target tavlib::tav). libtav.a is for
# `pkg-config --static`.
include(CMakePackageConfigHelpers)

install(TARGETS tav EXPORT tavlibTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT dev)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/tav DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CMAKE_SOURCE_DIR}/share/tav-trace.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/tavlib)
install(FILES $<TARGET_FILE:tav_static> DESTINATION ${CMAKE_INSTALL_LIBDIR})

install(EXPORT tavlibTargets NAMESPACE tavlib:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavlib)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/tavlibConfig.cmake.in ${CMAKE_BINARY_DIR}/tavlibConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavlib PATH_VARS CMAKE_INSTALL_DATADIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/tavlibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tavlibConfig.cmake ${CMAKE_BINARY_DIR}/tavlibConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavlib)

# The prefix is filled in when it is installed: `cmake --install --prefix` may name another one than the build.
set(TAV_PREFIX "@TAV_PREFIX@")
configure_file(${CMAKE_SOURCE_DIR}/cmake/tavlib.pc.in ${CMAKE_BINARY_DIR}/tavlib.pc.in @ONLY)
install(CODE "
  get_filename_component(TAV_PREFIX \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
  configure_file(\"${CMAKE_BINARY_DIR}/tavlib.pc.in\" \"${CMAKE_BINARY_DIR}/tavlib.pc\" @ONLY)")
install(FILES ${CMAKE_BINARY_DIR}/tavlib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
