# embed_text(TARGET FILE NAME): compile a text file into a target, as the std::string_view embedded::NAME of the header
# NAME.h. A change of the file rebuilds it.
function(embed_text target file name)
  embed_by(write_embedded.cmake ${target} ${file} ${name})
endfunction()

# embed_bytes(TARGET FILE NAME): the same with a file of any bytes.
function(embed_bytes target file name)
  embed_by(write_embedded_bytes.cmake ${target} ${file} ${name})
endfunction()

function(embed_by script target file name)
  set(directory ${CMAKE_CURRENT_BINARY_DIR}/embedded)
  set(header ${directory}/${name}.h)
  set(script ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${script})
  add_custom_command(
    OUTPUT ${header}
    COMMAND ${CMAKE_COMMAND} -D INPUT=${file} -D OUTPUT=${header} -D NAME=${name} -P ${script}
    DEPENDS ${file} ${script}
    VERBATIM)
  target_sources(${target} PRIVATE ${header})
  target_include_directories(${target} PRIVATE ${directory})
endfunction()
