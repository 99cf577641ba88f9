# Flags that every target of this project is built with: `target_link_libraries(x PRIVATE utility_flags)`.
add_library(utility_flags INTERFACE)
target_compile_options(utility_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${UTILITY_WERROR}>:-Werror>)

if(UTILITY_SANITIZE)
  target_compile_options(utility_flags INTERFACE
    -fsanitize=${UTILITY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(utility_flags INTERFACE -fsanitize=${UTILITY_SANITIZE})
endif()
