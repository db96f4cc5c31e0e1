# One interface target that every target of the project links: warnings, sanitizers, the root as include folder.
add_library(netrove_options INTERFACE)
target_include_directories(netrove_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(netrove_options INTERFACE -Wall -Wextra -Wpedantic -fvisibility=hidden
                                                 -fvisibility-inlines-hidden)
if(NETROVE_WERROR)
  target_compile_options(netrove_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Where it optimizes, GCC 12 sees overlapping copies in concatenations of strings that cannot overlap (its bug 105651).
  target_compile_options(netrove_options INTERFACE "$<$<NOT:$<CONFIG:Debug>>:-Wno-restrict>")
  if(NETROVE_PRECOMPILE) # it shows warnings of the standard library's headers then, which are as unfounded
    target_compile_options(netrove_options INTERFACE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
endif()
if(CMAKE_UNITY_BUILD) # an unnamed namespace is then in what GCC takes for a header
  target_compile_options(netrove_options INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endif()
if(NETROVE_SANITIZE)
  target_compile_options(netrove_options INTERFACE -fsanitize=${NETROVE_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(netrove_options INTERFACE -fsanitize=${NETROVE_SANITIZE})
  if(NETROVE_SANITIZE MATCHES "undefined")
    target_compile_options(netrove_options INTERFACE -fsanitize=float-cast-overflow -fno-sanitize-recover=all)
  endif()
endif()
if(NETROVE_FUZZ)
  target_compile_options(netrove_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# netrove_precompile(<library>): what most sources include is compiled once. Each source still includes what it uses,
# which builds without this notice.
function(netrove_precompile library)
  if(NETROVE_PRECOMPILE)
    target_precompile_headers(${library} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/Precompiled.h)
  endif()
endfunction()
