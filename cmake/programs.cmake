# A folder of programs has a file expected.txt. Each of its lines names a program, the library that it needs (qrapi, or
# simulation, which comes with qrapi), and a regular expression for what it prints.

# qrapi_programs(<folder>): sets `programs` to the names, and `<name>_library` and `<name>_output` for each.
macro(qrapi_programs folder)
    file(STRINGS ${folder}/expected.txt rows)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/expected.txt)
    set(programs)
    foreach(row IN LISTS rows)
        if(NOT row MATCHES "^([a-z_]+) (qrapi|simulation) (.+)$")
            message(FATAL_ERROR "${folder}/expected.txt: not <name> <qrapi|simulation> <expression>: ${row}")
        endif()
        list(APPEND programs ${CMAKE_MATCH_1})
        set(${CMAKE_MATCH_1}_library ${CMAKE_MATCH_2})
        set(${CMAKE_MATCH_1}_output ${CMAKE_MATCH_3})
    endforeach()
endmacro()
