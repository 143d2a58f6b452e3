# The page of a report, bundled into one file in the build folder and taken into the library.
# Included by the folder above. RAVEL_NPM=OFF leaves it out.

find_program(RAVEL_NPM npm)
find_program(RAVEL_NODE node)
if(NOT RAVEL_NPM OR NOT RAVEL_NODE)
    message(STATUS "reports are left out: npm or node is not installed, or RAVEL_NPM is OFF; configure again with npm")
    return()
endif()

set(RAVEL_REPORT_FILE report.html)  # in the output of every run and every qualification
set(report_source "${CMAKE_CURRENT_SOURCE_DIR}/report")
set(report_build "${CMAKE_CURRENT_BINARY_DIR}/report")
set(report_page "${report_build}/page.html")

# What the lock file names, with its checksums; from npm's cache, or else from its registry.
add_custom_command(
    OUTPUT "${report_build}/node_modules/.package-lock.json"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${report_build}"
    COMMAND "${CMAKE_COMMAND}" -E copy "${report_source}/package.json" "${report_source}/package-lock.json"
            "${report_build}"
    COMMAND "${RAVEL_NPM}" ci --ignore-scripts --prefer-offline --no-audit --no-fund --loglevel=error
            || "${CMAKE_COMMAND}" -P "${report_source}/npmFailed.cmake"
    WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/report"
    DEPENDS "${report_source}/package.json" "${report_source}/package-lock.json"
    COMMENT "Fetching what the report's page is made with"
    VERBATIM)

file(GLOB report_parts CONFIGURE_DEPENDS "${report_source}/src/*")
add_custom_command(
    OUTPUT "${report_page}"
    COMMAND "${RAVEL_NODE}" "${report_source}/build.mjs" "${report_page}"
    WORKING_DIRECTORY "${report_build}"
    DEPENDS "${report_build}/node_modules/.package-lock.json" "${report_source}/build.mjs" ${report_parts}
    COMMENT "Bundling the report's page"
    VERBATIM)
file(MAKE_DIRECTORY "${report_build}")

set_source_files_properties(src/reportTemplate.cpp PROPERTIES
    COMPILE_DEFINITIONS "RAVELCTL_REPORT_TEMPLATE=\"${report_page}\""
    OBJECT_DEPENDS "${report_page}")
