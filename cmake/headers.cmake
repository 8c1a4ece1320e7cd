# The headers that are installed. They include each other relative to themselves, so that one include folder serves all.

# Reached as <qrapi/Name.h>.
set(QRAPI_PUBLIC_HEADERS
    platform/export.h
    components/enumerations.h
    components/QuorinException.h
    components/QorImage.h
    detector/DevInfo.h
    detector/QuorinDetector.h
    detector/QuorinDetectorCL.h
    detector/QuorinDetectorGE.h
    detector/logging.h
    detector/maintenance.h)

# For tests that set up, disturb and count the simulated detector and its frame grabber: reached by their path in this
# tree, such as <qrapi/simulator/Rack.h>.
set(QRAPI_SIMULATION_HEADERS
    platform/export.h
    platform/threadSafety.h
    platform/Mutex.h
    platform/Clock.h
    platform/VirtualClock.h
    platform/FastClock.h
    platform/DataFolder.h
    simulator/Faults.h
    simulator/Ledger.h
    simulator/Profile.h
    simulator/SimulatedDetector.h
    simulator/Rack.h
    vendor/xclib/VirtualGrabber.h)

# The build tree has them at the same places below one folder, as links.
set(QRAPI_PUBLIC_INCLUDE ${CMAKE_BINARY_DIR}/include)
set(QRAPI_INSTALLED_HEADERS ${QRAPI_SIMULATION_HEADERS})
file(REMOVE_RECURSE ${QRAPI_PUBLIC_INCLUDE}/qrapi)
foreach(header IN LISTS QRAPI_PUBLIC_HEADERS)
    get_filename_component(name ${header} NAME)
    list(APPEND QRAPI_INSTALLED_HEADERS ${name})
    file(MAKE_DIRECTORY ${QRAPI_PUBLIC_INCLUDE}/qrapi)
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${header} ${QRAPI_PUBLIC_INCLUDE}/qrapi/${name} SYMBOLIC)
endforeach()
foreach(header IN LISTS QRAPI_SIMULATION_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    file(MAKE_DIRECTORY ${QRAPI_PUBLIC_INCLUDE}/qrapi/${folder})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${header} ${QRAPI_PUBLIC_INCLUDE}/qrapi/${header} SYMBOLIC)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrapi/${folder})
endforeach()
install(FILES ${QRAPI_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrapi)
