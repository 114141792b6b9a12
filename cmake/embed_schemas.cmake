# Script: writes the files SCHEMAS to OUTPUT as rows of document name and text.
set(rows "")
foreach(schema IN LISTS SCHEMAS)
    get_filename_component(name ${schema} NAME)
    string(REPLACE ".schema.json" ".json" document ${name})
    file(READ ${schema} text)
    string(APPEND rows "{\"${document}\", R\"schema(${text})schema\"},\n")
endforeach()
file(WRITE ${OUTPUT} "${rows}")
