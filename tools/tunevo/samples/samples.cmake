# Embeds the demo's sample answers (samples/*.json) into tunevo_core, so that `tunevo demo` runs
# from any directory. Each file becomes a raw string literal named after the file's stem; editing
# a sample re-runs the configuration step that generates the source.
file(GLOB TUNEVO_SAMPLE_FILES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.json)
list(SORT TUNEVO_SAMPLE_FILES)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${TUNEVO_SAMPLE_FILES})

set(TUNEVO_SAMPLE_ENTRIES "")
foreach(sample_file IN LISTS TUNEVO_SAMPLE_FILES)
  get_filename_component(sample_name ${sample_file} NAME_WE)
  file(READ ${sample_file} sample_text)
  string(FIND "${sample_text}" ")sample\"" delimiter_at)
  if(NOT delimiter_at EQUAL -1)
    message(FATAL_ERROR "${sample_file} contains the raw-string delimiter )sample\"")
  endif()
  string(APPEND TUNEVO_SAMPLE_ENTRIES "    {\"${sample_name}\", R\"sample(${sample_text})sample\"},\n")
endforeach()

configure_file(${CMAKE_CURRENT_LIST_DIR}/samples.cpp.in ${CMAKE_CURRENT_BINARY_DIR}/demo_samples.cpp @ONLY)
target_sources(tunevo_core PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/demo_samples.cpp)
