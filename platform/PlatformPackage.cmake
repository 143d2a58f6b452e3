# How the packages of this folder are declared and installed.

include(CMakePackageConfigHelpers)

set(PLATFORM_FOLDER "${CMAKE_CURRENT_LIST_DIR}")

# platform_header_library(name LINKS x::y ...): a header-only library, headers under src/include, alias name::name.
function(platform_header_library name)
    cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
    add_library(${name} INTERFACE)
    add_library(${name}::${name} ALIAS ${name})
    target_include_directories(${name} INTERFACE
        "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/src/include>"
        "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    target_compile_features(${name} INTERFACE cxx_std_20)
    target_link_libraries(${name} INTERFACE ${ARG_LINKS})
endfunction()

# platform_install(name [ARCH_INDEPENDENT] DEPENDENCIES package ...)
# Installs the target, its headers and a package of the same name; DEPENDENCIES are the packages that its users need too.
function(platform_install name)
    cmake_parse_arguments(ARG "ARCH_INDEPENDENT" "" "DEPENDENCIES" ${ARGN})
    set(PACKAGE_NAME ${name})
    set(PACKAGE_DEPENDENCIES "")
    foreach(dependency IN LISTS ARG_DEPENDENCIES)
        string(APPEND PACKAGE_DEPENDENCIES "find_dependency(${dependency})\n")
    endforeach()
    set(independent "")
    if(ARG_ARCH_INDEPENDENT)
        set(independent ARCH_INDEPENDENT)
    endif()

    set(destination "${CMAKE_INSTALL_LIBDIR}/cmake/${name}")
    configure_file("${PLATFORM_FOLDER}/packageConfig.cmake.in" "${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake" @ONLY)
    write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake"
        VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion ${independent})
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake"
                  "${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake"
        DESTINATION "${destination}" COMPONENT platform)
    install(TARGETS ${name} EXPORT ${name}Targets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT platform NAMELINK_COMPONENT platform)
    install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION "${destination}" COMPONENT platform)
    install(DIRECTORY src/include/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT platform
        FILES_MATCHING PATTERN "*.hpp")
endfunction()
