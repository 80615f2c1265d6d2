# Checks of what the installation and the packages carry, run with the rest of the suite. Each is a
# shell script under tests/package/; a missing tool skips its check with a message (exit code 77).
if(WIN32)
    return()
endif()

set(checks ${PROJECT_SOURCE_DIR}/tests/package)

add_test(NAME tst_windowsworkflow
    COMMAND bash ${checks}/checkworkflow.sh ${PROJECT_SOURCE_DIR}/.github/workflows/windows.yml)
add_test(NAME tst_windowsresource
    COMMAND bash ${checks}/checkresource.sh ${PROJECT_BINARY_DIR}/src/generated/tavrinoxconfig.rc
        ${CMAKE_CURRENT_BINARY_DIR}/tavrinoxconfig.res)
set_tests_properties(tst_windowsworkflow tst_windowsresource PROPERTIES SKIP_RETURN_CODE 77)

if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
    return()
endif()

# One test builds the .deb and unpacks it into a scratch root; the others look at that result.
string(REPLACE ";" " " programs "${TAVRINOX_INSTALLED_PROGRAMS}")
string(REPLACE ";" " " icon_sizes "${TAVRINOX_ICON_SIZES}")
set(package_environment
    "PACKAGE_DIR=${CMAKE_CURRENT_BINARY_DIR}/package-check"
    "CPACK_COMMAND=${CMAKE_CPACK_COMMAND}"
    "CPACK_CONFIG=${PROJECT_BINARY_DIR}/CPackConfig.cmake"
    "DEB_PACKAGE=${TAVRINOX_DEB_PACKAGE}"
    "APP_ID=${TAVRINOX_APP_ID}"
    "VERSION=${PROJECT_VERSION}"
    "PROGRAMS=${programs}"
    "ICON_SIZES=${icon_sizes}")
set(package_tests)
foreach(step build contents metadata lintian start)
    add_test(NAME tst_package_${step} COMMAND bash ${checks}/checkdeb.sh ${step})
    list(APPEND package_tests tst_package_${step})
endforeach()
set_tests_properties(${package_tests} PROPERTIES
    ENVIRONMENT "${package_environment}" SKIP_RETURN_CODE 77 TIMEOUT 600)
set_tests_properties(tst_package_build PROPERTIES FIXTURES_SETUP deb_package)
list(REMOVE_ITEM package_tests tst_package_build)
set_tests_properties(${package_tests} PROPERTIES FIXTURES_REQUIRED deb_package)
