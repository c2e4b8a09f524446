# What `cmake --install` puts under the prefix for a chip layer built
# elsewhere: liborb and liborbplatform with their sonames, the soft chip's
# archive, the headers under include/ (so that "Orb/OrbMacAddrSm.h" style
# paths work unchanged), a CMake package (find_package(libOrb) gives
# libOrb::orb, libOrb::orbplatform and libOrb::softchip) and liborb.pc.
include(CMakePackageConfigHelpers)

set(ORB_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/libOrb)

# liborb finds liborbplatform beside itself wherever the prefix is moved.
set_target_properties(orb orbplatform PROPERTIES INSTALL_RPATH "$ORIGIN")

install(
  TARGETS orbplatform orb softchip
  EXPORT libOrbTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

foreach(dir Orb platform chip/softchip)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${dir}
          FILES_MATCHING PATTERN "*.h")
endforeach()

install(EXPORT libOrbTargets NAMESPACE libOrb:: DESTINATION ${ORB_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/libOrbConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/libOrbConfig.cmake INSTALL_DESTINATION ${ORB_INSTALL_CMAKEDIR})
# The soname carries the major version; so does compatibility.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/libOrbConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/libOrbConfig.cmake ${PROJECT_BINARY_DIR}/libOrbConfigVersion.cmake
        DESTINATION ${ORB_INSTALL_CMAKEDIR})

# The prefix is known only when installing (`cmake --install --prefix`), so
# liborb.pc is filled in twice: everything but the prefix now, the prefix then.
set(ORB_PC_PREFIX "@ORB_PC_PREFIX@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/liborb.pc.in ${PROJECT_BINARY_DIR}/liborb.pc.in @ONLY)
install(CODE "set(ORB_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/liborb.pc.in\" \"${PROJECT_BINARY_DIR}/liborb.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/liborb.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
