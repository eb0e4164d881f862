# Lays an executable out as an application bundle:
#   <NAME>.app/Contents/Info.plist, Contents/MacOS/<executable>, Contents/Resources/<files>
# so that Linux builds share the on-disk layout the engine expects of every bundle.
function(nestora_make_bundle target)
  cmake_parse_arguments(ARG "" "NAME;DISPLAY_NAME;IDENTIFIER;VERSION;OUTPUT_DIRECTORY" "EXTRA_KEYS;RESOURCES" ${ARGN})
  if(NOT ARG_OUTPUT_DIRECTORY)
    set(ARG_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
  endif()
  set(contents "${ARG_OUTPUT_DIRECTORY}/${ARG_NAME}.app/Contents")
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${contents}/MacOS")

  set(extra "")
  foreach(pair IN LISTS ARG_EXTRA_KEYS)
    string(FIND "${pair}" "=" eq)
    string(SUBSTRING "${pair}" 0 ${eq} key)
    math(EXPR valueStart "${eq} + 1")
    string(SUBSTRING "${pair}" ${valueStart} -1 value)
    string(APPEND extra "\t<key>${key}</key>\n\t<string>${value}</string>\n")
  endforeach()
  set(BUNDLE_EXECUTABLE "$<TARGET_FILE_NAME:${target}>")
  set(BUNDLE_NAME "${ARG_NAME}")
  set(BUNDLE_DISPLAY_NAME "${ARG_DISPLAY_NAME}")
  set(BUNDLE_IDENTIFIER "${ARG_IDENTIFIER}")
  set(BUNDLE_VERSION "${ARG_VERSION}")
  set(BUNDLE_EXTRA_KEYS "${extra}")
  configure_file("${PROJECT_SOURCE_DIR}/Resources/Info.plist.in" "${CMAKE_CURRENT_BINARY_DIR}/${target}.Info.plist.in" @ONLY)
  file(GENERATE OUTPUT "${contents}/Info.plist" INPUT "${CMAKE_CURRENT_BINARY_DIR}/${target}.Info.plist.in")

  foreach(resource IN LISTS ARG_RESOURCES)
    get_filename_component(absolute "${resource}" ABSOLUTE BASE_DIR "${PROJECT_SOURCE_DIR}")
    get_filename_component(fileName "${resource}" NAME)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E make_directory "${contents}/Resources"
      COMMAND ${CMAKE_COMMAND} -E copy_if_different "${absolute}" "${contents}/Resources/${fileName}"
      VERBATIM)
  endforeach()
  set_property(TARGET ${target} PROPERTY NESTORA_BUNDLE_PATH "${ARG_OUTPUT_DIRECTORY}/${ARG_NAME}.app")
endfunction()
