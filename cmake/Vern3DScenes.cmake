# makevern3d_add_scenes(<target> SOURCES <scene>... [OPTIONS <switch>...] [OUTPUT_DIRECTORY <dir>])
#
# One build step per scene: Vern3D::MakeVern3D converts <scene> into <dir>/<name>.vern3D (<name>
# the scene's file name without its last extension; <dir> defaults to the current binary folder,
# a relative one is taken from there), and <target> (built by default) stands for them all.
#
# - A step runs again when its scene, the converter or any file the conversion read changes: the
#   converter writes what it read (-depfile) into <output>.d, which the build reads after the step.
# - A failed conversion fails the build with its message and leaves no output (the step removes
#   the earlier one first), so the next build tries it again.
# - OPTIONS are passed on after the scene, each switch and value as one item. Relative values of
#   -ma and -vertexdir are taken from the current source folder, like SOURCES; with -ivertex and
#   no -vertexdir, vertex files are read from the current source folder.
# - Each conversion runs on one thread (-threads 1) unless OPTIONS set -threads: the build runs as
#   many steps at once as it has jobs, and a thread of each on every core would only compete.
# - Each step runs in the current binary folder and names its files relative to it (through -uri,
#   which also takes what lies outside the project by its absolute path): the outputs (whose root
#   node is named after the scene as given) and the dependency files are the same wherever the
#   project lies, as long as the build folder keeps its place beside the sources.

# A file as the converter is given it, for a step run in the current binary folder: "file:" and
# the path from there, or the absolute path for a file outside the project.
function(_makevern3d_file_name path base_directory out)
  cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY "${base_directory}" NORMALIZE)
  cmake_path(IS_PREFIX CMAKE_SOURCE_DIR "${path}" NORMALIZE in_source)
  cmake_path(IS_PREFIX CMAKE_BINARY_DIR "${path}" NORMALIZE in_binary)
  if(in_source OR in_binary)
    cmake_path(RELATIVE_PATH path BASE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
  endif()
  set(${out} "file:${path}" PARENT_SCOPE)
endfunction()

function(makevern3d_add_scenes target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "OUTPUT_DIRECTORY" "SOURCES;OPTIONS")
  if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
    message(FATAL_ERROR "makevern3d_add_scenes(${target} SOURCES <scene>... [OPTIONS <switch>...] "
                        "[OUTPUT_DIRECTORY <dir>]): ${arg_UNPARSED_ARGUMENTS}")
  endif()
  set(base ${CMAKE_CURRENT_BINARY_DIR})
  set(directory ${base})
  if(DEFINED arg_OUTPUT_DIRECTORY)
    cmake_path(ABSOLUTE_PATH arg_OUTPUT_DIRECTORY BASE_DIRECTORY ${base} NORMALIZE OUTPUT_VARIABLE directory)
  endif()
  file(MAKE_DIRECTORY ${directory})

  set(options)
  set(path_value FALSE)
  foreach(option IN LISTS arg_OPTIONS)
    if(path_value)
      _makevern3d_file_name("${option}" "${CMAKE_CURRENT_SOURCE_DIR}" option)
      set(path_value FALSE)
    elseif(option MATCHES "^[-/](ma|vertexdir)$")
      set(path_value TRUE)
      set(has_${CMAKE_MATCH_1} TRUE)
    elseif(option MATCHES "^[-/]ivertex$")
      set(has_ivertex TRUE)
    elseif(option MATCHES "^[-/]threads$")
      set(has_threads TRUE)
    elseif(option MATCHES "^[-/](o|depfile)$")
      message(FATAL_ERROR "makevern3d_add_scenes(${target}): ${option} is set for each scene, not in OPTIONS")
    endif()
    list(APPEND options ${option})
  endforeach()
  if(NOT has_threads)
    list(APPEND options -threads 1)
  endif()
  if(has_ivertex AND NOT has_vertexdir)
    _makevern3d_file_name(. "${CMAKE_CURRENT_SOURCE_DIR}" folder)
    list(APPEND options -vertexdir ${folder})
  endif()

  # The dependency file's relative names are read from the binary folder, whatever the policy
  # default of the calling project.
  cmake_policy(PUSH)
  cmake_policy(SET CMP0116 NEW)
  set(outputs)
  foreach(scene IN LISTS arg_SOURCES)
    cmake_path(ABSOLUTE_PATH scene BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE OUTPUT_VARIABLE source)
    cmake_path(GET source STEM LAST_ONLY name)
    set(output ${directory}/${name}.vern3D)
    if(output IN_LIST outputs)
      message(FATAL_ERROR "makevern3d_add_scenes(${target}): two scenes would be written to ${output}")
    endif()
    list(APPEND outputs ${output})
    _makevern3d_file_name("${source}" "${base}" input_name)
    _makevern3d_file_name("${output}" "${base}" output_name)
    _makevern3d_file_name("${output}.d" "${base}" depfile_name)
    string(REGEX REPLACE "^file:" "" removed "${output_name}")
    file(RELATIVE_PATH shown ${CMAKE_CURRENT_SOURCE_DIR} ${source})
    add_custom_command(OUTPUT ${output}
      COMMAND ${CMAKE_COMMAND} -E rm -f -- ${removed}
      COMMAND Vern3D::MakeVern3D -batch -uri ${input_name} -o ${output_name} -depfile ${depfile_name} ${options}
      MAIN_DEPENDENCY ${source}
      DEPENDS Vern3D::MakeVern3D
      DEPFILE ${output}.d
      WORKING_DIRECTORY ${base}
      COMMENT "Converting scene ${shown}"
      VERBATIM)
  endforeach()
  cmake_policy(POP)
  add_custom_target(${target} ALL DEPENDS ${outputs})
endfunction()
