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
