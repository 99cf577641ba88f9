# Checks of the sources and of the built library rather than of its behaviour; `ctest -L check`.
function(check name)
  add_test(NAME check_${name}
    COMMAND ${PROJECT_SOURCE_DIR}/script/checks/${name} ${ARGN}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMAND_EXPAND_LISTS)
  set_tests_properties(check_${name} PROPERTIES LABELS check)
endfunction()

check(format)
check(cppcheck)
check(tidy)
check(abi $<TARGET_FILE:utility>)
check(hardening $<TARGET_FILE:utility>)
check(threads $<TARGET_OBJECTS:utility_objects>)
check(consumer ${PROJECT_BINARY_DIR})

add_test(NAME check_docs COMMAND ${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target docs)
set_tests_properties(check_docs PROPERTIES LABELS check)

# Every public header must compile alone and first, and all of them as every standard that users build with.
file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/include/utility/*.h)
set(alone "")
foreach(header IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${header} stem)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/${stem}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "#include \"@header@\"\n" @ONLY)
  list(APPEND alone ${source})
endforeach()
add_library(headers_alone OBJECT ${alone})
target_link_libraries(headers_alone PRIVATE utility::utility utility_flags)
foreach(standard 17 20 23)
  add_library(headers_${standard} OBJECT ${CMAKE_CURRENT_BINARY_DIR}/headers/utility_utility_h.cpp)
  target_link_libraries(headers_${standard} PRIVATE utility::utility utility_flags)
  # Not in the list for tools: they see the file above, and clang-tidy 14 crashes on the C++23 library.
  set_target_properties(headers_${standard} PROPERTIES CXX_STANDARD ${standard} CXX_STANDARD_REQUIRED ON
    EXPORT_COMPILE_COMMANDS OFF)
endforeach()
