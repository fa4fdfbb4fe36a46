# Our own targets link MeetingWarnings privately; what we build on keeps its own rules.
add_library(MeetingWarnings INTERFACE)
target_compile_options(MeetingWarnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
# At -O3 g++ 12 takes the `+` of a literal and a string for an overlapping copy, wrongly (its bug 105651).
target_compile_options(MeetingWarnings INTERFACE
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
