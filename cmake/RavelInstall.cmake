# What others need to build on the library: headers, library, CMake package and pkg-config file (component "core").
# The platform installs itself (component "platform"), the application likewise (component "application").

include(CMakePackageConfigHelpers)

set(RAVELCORE_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/lumoRavelCore")

install(TARGETS lumoRavelCore EXPORT lumoRavelCoreTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT core NAMELINK_COMPONENT core)
install(DIRECTORY ravel/ravelcore/src/include/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT core
    FILES_MATCHING PATTERN "*.hpp")
install(EXPORT lumoRavelCoreTargets NAMESPACE lumo:: DESTINATION "${RAVELCORE_PACKAGE_DIR}" COMPONENT core)

configure_package_config_file(cmake/lumoRavelCoreConfig.cmake.in
    "${CMAKE_CURRENT_BINARY_DIR}/lumoRavelCoreConfig.cmake" INSTALL_DESTINATION "${RAVELCORE_PACKAGE_DIR}")
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/lumoRavelCoreConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/lumoRavelCoreConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/lumoRavelCoreConfigVersion.cmake"
    DESTINATION "${RAVELCORE_PACKAGE_DIR}" COMPONENT core)

configure_file(cmake/lumoRavelCore.pc.in "${CMAKE_CURRENT_BINARY_DIR}/lumoRavelCore.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/lumoRavelCore.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT core)
