set(prefix ${SCRATCH}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}\nended with ${result}:\n${output}")
    endif()
endfunction()

# Nothing that an earlier run installed may help this one.
file(REMOVE_RECURSE ${SCRATCH})
run(${CMAKE_COMMAND} --install ${BUILT} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/Consumer -B ${SCRATCH}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS}
    -DWANTED_VERSION=${VERSION} -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
run(${CMAKE_COMMAND} --build ${SCRATCH}/build)
run(${SCRATCH}/build/Consumer)

# The two programs are there with what belongs to them; programs made for the tests are not.
file(GLOB programs RELATIVE ${prefix}/bin ${prefix}/bin/*)
if(NOT programs STREQUAL "SummaryWorker;quillmoot")
    message(FATAL_ERROR "Installed programs: ${programs}")
endif()
foreach(file bash-completion/completions/quillmoot zsh/site-functions/_quillmoot
             fish/vendor_completions.d/quillmoot.fish man/man1/quillmoot.1 man/man1/SummaryWorker.1
             doc/quillmoot/copyright doc/libmeetingcore-dev/copyright)
    file(SIZE ${prefix}/share/${file} size)
    if(size LESS 1000)
        message(FATAL_ERROR "${file} has ${size} bytes")
    endif()
endforeach()
