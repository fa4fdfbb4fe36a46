# `cmake --install`: the two programs with their completion and manual (component Runtime), and the library with its
# headers and a package `MeetingCore` for other projects (component Development). `cpack` makes a Debian package of
# each component.
include(CMakePackageConfigHelpers)

set(_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/MeetingCore)
configure_package_config_file(cmake/MeetingCoreConfig.cmake.in ${PROJECT_BINARY_DIR}/MeetingCoreConfig.cmake
                              INSTALL_DESTINATION ${_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MeetingCoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MeetingCoreConfig.cmake ${PROJECT_BINARY_DIR}/MeetingCoreConfigVersion.cmake
              cmake/FindLibStemmer.cmake cmake/FindLibUUID.cmake
        DESTINATION ${_package_dir} COMPONENT Development)
install(EXPORT MeetingCoreTargets NAMESPACE MeetingCore:: DESTINATION ${_package_dir} COMPONENT Development)

set(_terms ${PROJECT_SOURCE_DIR}/cmake/copyright)
install(FILES ${_terms} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmeetingcore-dev COMPONENT Development)

if(MEETING_BUILD_PROGRAMS)
    # Docs/Transcription.md is what `quillmoot transcribe` tells to read.
    install(FILES ${_terms} ${PROJECT_SOURCE_DIR}/Docs/Transcription.md
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quillmoot COMPONENT Runtime)

    # The notices that llama.cpp and CLI11 ask for where their code goes. An installed llama.cpp may have been built
    # in a cache folder, where its sources still lie.
    function(_install_notice name notice)
        if(EXISTS ${notice})
            install(FILES ${notice} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quillmoot RENAME LICENSE.${name}
                    COMPONENT Runtime)
        endif()
    endfunction()
    set(_llama_folders ${_llama_source} ${MEETING_LLAMA_CACHE_DIR}/src ${llama_DIR}/../../../../src)
    foreach(_folder ${_llama_folders})
        if(EXISTS ${_folder}/include/llama.h)
            _install_notice(llama.cpp ${_folder}/LICENSE)
            break()
        endif()
    endforeach()
    _install_notice(CLI11 /usr/share/doc/libcli11-dev/copyright)
endif()

if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_NAME quillmoot)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each description's first line is its package's own
set(CPACK_PACKAGE_CONTACT "MeetingCore developers <meetingcore@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Development)
if(MEETING_BUILD_PROGRAMS)
    list(PREPEND CPACK_COMPONENTS_ALL Runtime)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME quillmoot)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Meetings from audio files to summaries with evidence
quillmoot takes recorded meetings in, gives them transcript and speakers, has \
SummaryWorker summarise them with a language model on this machine, and gives them out as text, pages and subtitles. \
Needs a processor with AVX2; the model is not included.
.
Meetings von der Tondatei bis zur Zusammenfassung mit Belegen, ohne Netz. Alle Meldungen sind deutsch.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmeetingcore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libglib2.0-dev, libicu-dev, libsimdjson-dev, libsqlite3-dev, libssl-dev, libstemmer-dev, \
pkg-config, uuid-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Processing core of a meeting recorder, for development
The static library MeetingCore, its headers and its CMake package.")
include(CPack)
