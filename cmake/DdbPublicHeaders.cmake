# The installed interface: the umbrella header and every header it reaches,
# found by following the #include "..." lines from it through the source
# tree. Generated schema headers are reached through the generator's own
# include (persistence/gbb_Schema.h) and their tables' include lines; they are
# installed with the generated code. Everything else stays in the tree.

# ddb_public_headers(<out-variable> <root header>... ) sets the variable to the
# headers reached, as paths relative to the source directory.
function(ddb_public_headers out)
  set(pending ${ARGN})
  set(reached)
  while(pending)
    list(POP_FRONT pending header)
    if(header IN_LIST reached OR NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${header})
      continue()  # seen, or a generated header
    endif()
    list(APPEND reached ${header})
    file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/${header} includes REGEX "^#include \"[^\"]+\"")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
      list(APPEND pending ${included})
    endforeach()
  endwhile()
  set(${out} ${reached} PARENT_SCOPE)
endfunction()
