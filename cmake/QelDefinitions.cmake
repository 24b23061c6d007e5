# qel_compile_definition(OUT_VAR SOURCE NAME)
#
# Compiles the definition SOURCE (relative to the current source folder, or absolute) into
# ${CMAKE_CURRENT_BINARY_DIR}/defs/NAME and sets OUT_VAR to that path. The compiler writes a
# depfile of every file it read, so editing an included file rebuilds the image too. List
# the output among a target's sources (or in a custom target) for it to be built.
function(qel_compile_definition out_var source name)
  get_filename_component(input ${source} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/defs)
  set(output ${folder}/${name})
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(
    OUTPUT ${output}
    COMMAND defc ${input} -o ${output} --depfile ${output}.d
    MAIN_DEPENDENCY ${input}
    DEPENDS defc
    DEPFILE ${output}.d
    COMMENT "Compiling definition ${name}"
    VERBATIM)
  set(${out_var} ${output} PARENT_SCOPE)
endfunction()
