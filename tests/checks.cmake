# Checks of the sources and of the built library rather than of its behaviour; `ctest -L check`.
foreach(check format words symbols)
  add_test(NAME check_${check}
    COMMAND ${PROJECT_SOURCE_DIR}/script/checks/${check} $<TARGET_FILE:utility>
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(check_${check} PROPERTIES LABELS check)
endforeach()
