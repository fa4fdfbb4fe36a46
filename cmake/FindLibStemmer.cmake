# Finds Snowball's libstemmer and defines LibStemmer::LibStemmer.
find_path(LibStemmer_INCLUDE_DIR libstemmer.h)
find_library(LibStemmer_LIBRARY stemmer)
mark_as_advanced(LibStemmer_INCLUDE_DIR LibStemmer_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibStemmer REQUIRED_VARS LibStemmer_LIBRARY LibStemmer_INCLUDE_DIR)

if(LibStemmer_FOUND AND NOT TARGET LibStemmer::LibStemmer)
    add_library(LibStemmer::LibStemmer UNKNOWN IMPORTED)
    set_target_properties(LibStemmer::LibStemmer PROPERTIES
        IMPORTED_LOCATION ${LibStemmer_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${LibStemmer_INCLUDE_DIR})
endif()
