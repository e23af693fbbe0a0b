file(REMOVE_RECURSE ${STAGE})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE}
    COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)

# Nothing of the developer parts, and no path of this machine, in what an application gets.
file(GLOB_RECURSE installed RELATIVE ${STAGE} ${STAGE}/*)
foreach(file IN LISTS installed)
    if(file MATCHES "test|bench|internal|gtest|\\.a$")
        message(FATAL_ERROR "installed by mistake: ${file}")
    endif()
    if(file MATCHES "\\.(cmake|pc|h|hpp)$")
        file(STRINGS ${STAGE}/${file} lines)
        string(FIND "${lines}" "${BUILD}" position)
        if(NOT position EQUAL -1)
            message(FATAL_ERROR "${file} names the build folder")
        endif()
    endif()
endforeach()
