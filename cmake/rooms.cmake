# A room is one static library made of every .cc file of its folder and of the folders in it, main.cc
# excepted.
#   idshift_room(NAME DEPENDENCY...)
function(idshift_room name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc
       ${CMAKE_CURRENT_SOURCE_DIR}/*/*.cc)
  list(FILTER sources EXCLUDE REGEX "/main\\.cc$")
  if(NOT sources)
    add_library(room_${name} INTERFACE)
    target_link_libraries(room_${name} INTERFACE ${ARGN})
    return()
  endif()
  add_library(room_${name} STATIC ${sources})
  target_link_libraries(room_${name} PUBLIC ${ARGN})
endfunction()

# The tests of a room: one program made of every .cc file of its folder.
#   idshift_tests(NAME [ALONE FILTER] DEPENDENCY...)
# Tests that FILTER names run while no other one does. Without IDSHIFT_ROOT_TESTS files that have none
# but tests with a fixture are left out: all fixtures are those of the sandbox.
function(idshift_tests name)
  cmake_parse_arguments(PARSE_ARGV 1 tests "" ALONE "")
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  if(NOT IDSHIFT_ROOT_TESTS)
    foreach(source ${sources})
      file(STRINGS ${source} fixture_tests REGEX "^TEST_[FP]\\(")
      file(STRINGS ${source} plain_tests REGEX "^TEST\\(")
      if(fixture_tests AND NOT plain_tests)
        list(REMOVE_ITEM sources ${source})
      endif()
    endforeach()
  endif()
  if(NOT sources)
    return()
  endif()
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE ${tests_UNPARSED_ARGUMENTS} test_support
                        GTest::gtest_main)
  if(tests_ALONE)
    gtest_discover_tests(test_${name} DISCOVERY_MODE PRE_TEST TEST_FILTER "${tests_ALONE}"
      TEST_LIST alone PROPERTIES TIMEOUT 120 RUN_SERIAL TRUE)
    set(others TEST_FILTER "-${tests_ALONE}")
  endif()
  gtest_discover_tests(test_${name} DISCOVERY_MODE PRE_TEST ${others} PROPERTIES TIMEOUT 120)
endfunction()
