# The library's layers as targets.
#
# Each layer is an object library compiled against a view of the tree that
# holds only the folders it may include: its own and those of the layers
# below it (symbolic links under build/layer_views/<layer>/). An include that
# points up the layers therefore does not build. The shared library is the
# union of the layers' objects.

set(DDB_LAYER_VIEWS ${CMAKE_CURRENT_BINARY_DIR}/layer_views)

# ddb_layer(<target> <folder> [SEES <folders>...] [SOURCES <files>...])
# makes the object library <target> of every .cpp under <folder>, plus the
# given sources, seeing <folder> and the folders after SEES. A folder with
# generated headers (build/generated/<folder>) is seen with them.
function(ddb_layer target folder)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SEES;SOURCES")
  set(view ${DDB_LAYER_VIEWS}/${target})
  file(REMOVE_RECURSE ${view})  # links only: what they point to stays
  foreach(seen IN LISTS arg_SEES folder)
    get_filename_component(parent ${view}/source/${seen} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${seen} ${view}/source/${seen} SYMBOLIC)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${seen} AND seen MATCHES "^(fes|sim_schema)$")
      file(MAKE_DIRECTORY ${view}/generated)
      file(CREATE_LINK ${DDB_GENERATED_DIR}/${seen} ${view}/generated/${seen} SYMBOLIC)
    endif()
  endforeach()
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
  add_library(${target} OBJECT ${sources} ${arg_SOURCES})
  target_include_directories(${target} PRIVATE ${view}/source ${view}/generated)
  target_link_libraries(${target} PRIVATE hdf5::hdf5)
  set_target_properties(${target} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
endfunction()
