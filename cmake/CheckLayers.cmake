# cmake -D SOURCES=<folder of MeetingCore> -P CheckLayers.cmake
#
# Fails where a layer of the library includes a header of a layer above it. Docs/Architecture.md tells what each
# layer is for.
cmake_minimum_required(VERSION 3.25)

set(layers Platform Recording Transcript Summary Library Presentation)

set(found 0)
foreach(layer IN LISTS layers)
    list(APPEND below ${layer})
    file(GLOB files ${SOURCES}/${layer}/*.h ${SOURCES}/${layer}/*.cpp)
    foreach(file IN LISTS files)
        file(STRINGS ${file} includes REGEX "^#include \"MeetingCore/[A-Za-z]+/")
        foreach(include IN LISTS includes)
            math(EXPR found "${found} + 1")
            string(REGEX REPLACE "^#include \"MeetingCore/([A-Za-z]+)/.*" "\\1" included "${include}")
            if(NOT included IN_LIST below)
                message(SEND_ERROR "${file}: ${include} belongs to a layer above ${layer}")
            endif()
        endforeach()
    endforeach()
endforeach()
if(found EQUAL 0)
    message(FATAL_ERROR "No sources found in ${SOURCES}")
endif()
