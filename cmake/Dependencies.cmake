find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(simdjson REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(LibUUID REQUIRED)
find_package(Threads REQUIRED)

# For the desktop's trash; without it, moving something there is refused.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
    pkg_check_modules(GIO QUIET IMPORTED_TARGET gio-2.0)
endif()

if(MEETING_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(MEETING_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()
