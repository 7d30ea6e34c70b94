# Sources of our libzeq2, relative to this folder. ZEQ2_INTERFACE_HEADERS are the
# headers of the interface the device's library offers too; the others (the property
# file format) belong to our build only.
set(ZEQ2_INTERFACE_HEADERS
    zeq/persistentobject.h
    zeq/persistentproperties.h
    zeq/system.h)
set(ZEQ2_SOURCES
    ${ZEQ2_INTERFACE_HEADERS}
    zeq/persistentobject.cpp
    zeq/persistentproperties.cpp
    zeq/propertyset.h
    zeq/propertyformat.h zeq/propertyformat.cpp
    zeq/system.cpp)
list(TRANSFORM ZEQ2_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
list(TRANSFORM ZEQ2_INTERFACE_HEADERS PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
