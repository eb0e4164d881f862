# Adds every immediate subfolder of the current source folder that has a CMakeLists.txt, so that a
# new tool or benchmark needs no edit here.
function(nestora_add_all_subdirectories)
  file(GLOB entries CONFIGURE_DEPENDS LIST_DIRECTORIES true "${CMAKE_CURRENT_SOURCE_DIR}/*")
  foreach(entry IN LISTS entries)
    if(IS_DIRECTORY "${entry}" AND EXISTS "${entry}/CMakeLists.txt")
      add_subdirectory("${entry}")
    endif()
  endforeach()
endfunction()
