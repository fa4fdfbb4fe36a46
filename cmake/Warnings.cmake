# Our own targets link MeetingWarnings privately; what we build on keeps its own rules.
add_library(MeetingWarnings INTERFACE)
target_compile_options(MeetingWarnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
