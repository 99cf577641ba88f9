# Flags that every target of this project is built with: `target_link_libraries(x PRIVATE utility_flags)`.
add_library(utility_flags INTERFACE)
target_compile_features(utility_flags INTERFACE cxx_std_17)
target_compile_options(utility_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${UTILITY_WERROR}>:-Werror>)
# As C++20, g++ 12 sees strings overlap in its own library where none do.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(utility_flags INTERFACE -Wno-restrict)
endif()

# The library runs inside privileged processes. What it costs is not measurable in bench/.
target_compile_options(utility_flags INTERFACE
  -fstack-protector-strong -fstack-clash-protection -fcf-protection)
target_link_options(utility_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

if(UTILITY_SANITIZE)
  target_compile_options(utility_flags INTERFACE
    -fsanitize=${UTILITY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(utility_flags INTERFACE -fsanitize=${UTILITY_SANITIZE})
else()
  # Checks of buffer sizes in the C library's calls; it takes an optimised build, and sanitizers see more.
  target_compile_options(utility_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
