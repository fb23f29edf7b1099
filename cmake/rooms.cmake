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
#   idshift_tests(NAME DEPENDENCY...)
function(idshift_tests name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE ${ARGN} test_support GTest::gtest_main)
  gtest_discover_tests(test_${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()
