# Compiles the string table data file into a C++ source at build time.
function(alertdb_embed_strings input output)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DINPUT=${input} -DOUTPUT=${output}
            -P ${CMAKE_SOURCE_DIR}/cmake/EmbedStringsScript.cmake
    DEPENDS ${input} ${CMAKE_SOURCE_DIR}/cmake/EmbedStringsScript.cmake
    COMMENT "Embedding the string table")
endfunction()
