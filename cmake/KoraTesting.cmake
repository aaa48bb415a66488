# kora_add_gtest(NAME SOURCES src... [LIBS lib...])
# One GoogleTest executable registered with CTest test by test. Tests run
# with the per-user tree moved into the build folder and with Qt offscreen,
# so no test touches the real home directory or needs a screen. The tests
# of one executable share its tree (the same settings files), so they take
# turns; different executables still run side by side.
function(kora_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main Threads::Threads)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
  target_compile_definitions(${name} PRIVATE
    KORA_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    KORA_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/data"
    KORA_BIN_DIR="${KORA_BIN_DIR}")
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    # One value per property: the discovery step splits a property's value
    # at every ";", however it is escaped.
    PROPERTIES ENVIRONMENT "KORA_USER_ROOT=${CMAKE_BINARY_DIR}/test-home/${name}"
               ENVIRONMENT_MODIFICATION "QT_QPA_PLATFORM=set:offscreen"
               RESOURCE_LOCK "test-home-${name}")
endfunction()
include(GoogleTest)
