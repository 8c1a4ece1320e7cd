# The shared libraries of this family: what is the same for each of them.

# The soname tells which libraries can stand in for each other. While the major number is 0 a minor release may change
# what programs were built against, so it counts; a patch release never does.
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(QRAPI_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    set(QRAPI_COMPATIBILITY SameMinorVersion)
else()
    set(QRAPI_SOVERSION ${PROJECT_VERSION_MAJOR})
    set(QRAPI_COMPATIBILITY SameMajorVersion)
endif()

# qrapi_library(<target> <name>): other projects reach the target as qrapi::<name>, in this tree as well.
function(qrapi_library target name)
    set_target_properties(
        ${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${QRAPI_SOVERSION} EXPORT_NAME ${name})
    add_library(qrapi::${name} ALIAS ${target})
    target_link_libraries(${target} PUBLIC $<BUILD_INTERFACE:tree>)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${QRAPI_PUBLIC_INCLUDE}>)
    install(
        TARGETS ${target}
        EXPORT qrapiTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
