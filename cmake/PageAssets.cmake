# Makes a source file of the exported page's style sheet and script, so that they can be written, formatted and
# tested as what they are.
function(meeting_page_assets target folder)
    set(files page.css search.js page.js PageAssets.cpp.in)
    list(TRANSFORM files PREPEND ${folder}/)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${files})
    file(READ ${folder}/page.css PAGE_STYLE)
    file(READ ${folder}/search.js search)
    file(READ ${folder}/page.js page)
    set(PAGE_SCRIPT "${search}\n${page}")
    configure_file(${folder}/PageAssets.cpp.in ${CMAKE_CURRENT_BINARY_DIR}/PageAssets.cpp @ONLY)
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/PageAssets.cpp)
endfunction()
