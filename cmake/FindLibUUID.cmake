# Finds libuuid (util-linux) and defines LibUUID::LibUUID. On macOS the functions are part of the system
# library, so the header alone is enough there.
find_path(LibUUID_INCLUDE_DIR uuid/uuid.h)
mark_as_advanced(LibUUID_INCLUDE_DIR)
set(_libuuid_required LibUUID_INCLUDE_DIR)
if(NOT APPLE)
    find_library(LibUUID_LIBRARY uuid)
    mark_as_advanced(LibUUID_LIBRARY)
    list(APPEND _libuuid_required LibUUID_LIBRARY)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibUUID REQUIRED_VARS ${_libuuid_required})

if(LibUUID_FOUND AND NOT TARGET LibUUID::LibUUID)
    if(APPLE)
        add_library(LibUUID::LibUUID INTERFACE IMPORTED)
    else()
        add_library(LibUUID::LibUUID UNKNOWN IMPORTED)
        set_target_properties(LibUUID::LibUUID PROPERTIES IMPORTED_LOCATION ${LibUUID_LIBRARY})
    endif()
    set_target_properties(LibUUID::LibUUID PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${LibUUID_INCLUDE_DIR})
endif()
unset(_libuuid_required)
