# Everything that the preset tsan has to build and run.
add_custom_target(ThreadTests)

# meeting_add_tests(<Name> [LABELS l…] [TIMEOUT seconds] [LIBRARIES lib…] [PROGRAMS program…])
#
# Makes the test program <Name> of Tests/<Name>.cpp and registers each of its tests with ctest. A test that
# starts one of our programs names it with PROGRAMS: it is then built first, and its path is the string
# literal MEETING_<Program>_PATH. The label `threads` puts a program under the thread sanitizer as well.
function(meeting_add_tests name)
    if(NOT MEETING_BUILD_TESTS)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "LABELS;LIBRARIES;PROGRAMS")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "${name}: unknown arguments ${arg_UNPARSED_ARGUMENTS}")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 60)
    endif()
    math(EXPR timeout "${arg_TIMEOUT} * ${MEETING_TEST_TIMEOUT_SCALE}")

    add_executable(${name} ${name}.cpp)
    target_compile_definitions(${name} PRIVATE
        MEETING_QWEN2_VOCABULARY="${MEETING_QWEN2_VOCABULARY}"
        MEETING_SOURCE_FOLDER="${PROJECT_SOURCE_DIR}")
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=(address|thread)")
        # Its own memory and its own writes must not fail.
        target_compile_definitions(${name} PRIVATE MEETING_SANITIZED)
    endif()
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/Tests)
    target_link_libraries(${name} PRIVATE
        ${arg_LIBRARIES} MeetingCore::MeetingCore simdjson::simdjson MeetingWarnings GTest::gmock GTest::gtest_main)
    foreach(program IN LISTS arg_PROGRAMS)
        target_compile_definitions(${name} PRIVATE MEETING_${program}_PATH="$<TARGET_FILE:${program}>")
        add_dependencies(${name} ${program})
    endforeach()
    if("threads" IN_LIST arg_LABELS)
        add_dependencies(ThreadTests ${name})
    endif()

    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${timeout})
    # The discovery cannot pass on a list, so a second file gives the labels to the tests that the first found.
    set(labels_file ${CMAKE_CURRENT_BINARY_DIR}/${name}_labels.cmake)
    file(CONFIGURE OUTPUT ${labels_file} @ONLY CONTENT [[
if(@name@_TESTS)
    set_tests_properties(${@name@_TESTS} PROPERTIES LABELS "@arg_LABELS@")
endif()
]])
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${labels_file})
endfunction()
