# embed_files(OUTPUT FILE...): files as rows of name and text, to be included in a table, for
# programs that find no files where they run.
function(embed_files output)
    add_custom_command(
        OUTPUT ${output}
        COMMAND ${CMAKE_COMMAND} -DOUTPUT=${output} "-DFILES=${ARGN}"
                -P ${CMAKE_CURRENT_FUNCTION_LIST_FILE}
        DEPENDS ${CMAKE_CURRENT_FUNCTION_LIST_FILE} ${ARGN}
        COMMENT "Embedding files as ${output}"
        VERBATIM)
endfunction()

# The script behind it.
if(CMAKE_SCRIPT_MODE_FILE)
    set(rows "")
    foreach(file IN LISTS FILES)
        get_filename_component(name ${file} NAME)
        file(READ ${file} text)
        string(APPEND rows "{\"${name}\", R\"embedded(${text})embedded\"},\n")
    endforeach()
    file(WRITE ${OUTPUT} "${rows}")
endif()
