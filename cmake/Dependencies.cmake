find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(simdjson REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(LibStemmer REQUIRED)
find_package(LibUUID REQUIRED)
find_package(Threads REQUIRED)

find_package(PkgConfig REQUIRED)

# For the desktop's trash; without it, moving something there is refused.
pkg_check_modules(GIO QUIET IMPORTED_TARGET gio-2.0)

# Of the program `quillmoot`: its command line, and reading audio files.
if(MEETING_BUILD_PROGRAMS)
    find_package(CLI11 REQUIRED)
    pkg_check_modules(SndFile REQUIRED IMPORTED_TARGET sndfile)
    pkg_check_modules(SampleRate REQUIRED IMPORTED_TARGET samplerate)
endif()

if(MEETING_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(MEETING_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()
