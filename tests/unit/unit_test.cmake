include(GoogleTest)

# The unit tests of the service; the others are of the gateway that is simulated around it.
add_custom_target(service_tests)

# unit_test(NAME): one program NAME from NAME.cpp, every test of it known to ctest by name. What platform/ declares is
# supplied by UNIT_TEST_PLATFORM.
function(unit_test name)
  add_executable(${name} ${CMAKE_SOURCE_DIR}/tests/unit/${name}.cpp)
  # Optimising assertions under sanitizers takes most of the time of a build and gains nothing.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O0>)
  target_link_libraries(${name} PRIVATE ftm_service ${UNIT_TEST_PLATFORM} GTest::gmock_main ${ARGN})
  set(label simulator)
  if(NOT name MATCHES "^gateway_")
    set(label service)
    add_dependencies(service_tests ${name})
  endif()
  if(CMAKE_CROSSCOMPILING) # under an emulator the start of a program takes longer than its tests
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 300)
  else()
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST PROPERTIES LABELS ${label} TIMEOUT 120)
  endif()
endfunction()

# wrap(NAME SYMBOL...): the service's calls of these functions reach __wrap_SYMBOL of the test program.
function(wrap name)
  list(TRANSFORM ARGN PREPEND "LINKER:--wrap=")
  target_link_options(${name} PRIVATE ${ARGN})
endfunction()
