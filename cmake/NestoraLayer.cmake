# Declares one layer of the program as a static library:
#   nestora_add_layer(<target> SOURCES <files...> LINKS <targets...>)
# Each layer sees only the headers of its own sources and of the layers it links: they are
# published through a folder of links (<build>/layers/<target>) that mirrors the source paths, and
# the source root itself is on no include path. An include against the layering therefore fails to
# compile, and a call against it fails to link.
function(nestora_add_layer target)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${target} STATIC ${ARG_SOURCES})
  set(headers "${CMAKE_BINARY_DIR}/layers/${target}")
  file(REMOVE_RECURSE "${headers}") # a header dropped from the list must not stay visible
  foreach(source IN LISTS ARG_SOURCES)
    if(source MATCHES "\\.h$")
      cmake_path(GET source PARENT_PATH folder)
      file(MAKE_DIRECTORY "${headers}/${folder}")
      file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}/${source}" "${headers}/${source}" SYMBOLIC)
    endif()
  endforeach()
  target_include_directories(${target} PUBLIC "${headers}")
  target_link_libraries(${target} PUBLIC nestora_build_flags ${ARG_LINKS})
endfunction()
