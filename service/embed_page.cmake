# cmake -DFOLDER=... -DOUTPUT=... -P embed_page.cmake
# Writes the files of a folder as arrays, each with its path and media type.
set(types html "text/html; charset=utf-8" css "text/css; charset=utf-8" js "text/javascript; charset=utf-8"
    mjs "text/javascript; charset=utf-8" svg "image/svg+xml" png "image/png" json "application/json" txt "text/plain"
    webmanifest "application/manifest+json" ico "image/x-icon")
file(GLOB_RECURSE files RELATIVE ${FOLDER} ${FOLDER}/*)
set(arrays "")
set(rows "")
set(number 0)
foreach(name IN LISTS files)
    get_filename_component(extension ${name} LAST_EXT)
    string(SUBSTRING "${extension} " 1 -1 extension)
    string(STRIP "${extension}" extension)
    list(FIND types "${extension}" place)
    if(place EQUAL -1)
        continue() # notes and scripts beside the page
    endif()
    math(EXPR place "${place} + 1")
    list(GET types ${place} type)
    file(READ ${FOLDER}/${name} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
    string(APPEND arrays "constexpr unsigned char pageFile${number}[] = {${bytes}0};\n")
    string(APPEND rows "    {\"/${name}\", \"${type}\", pageFile${number}, sizeof(pageFile${number}) - 1},\n")
    math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "${arrays}constexpr PageFile pageFiles[] = {\n${rows}    {\"\", \"\", nullptr, 0}};\n")
