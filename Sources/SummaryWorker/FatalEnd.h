#pragma once

namespace meetingcore {

/// While it lives, the "failed" line comes out also where the process ends without an exception: at a failed
/// assertion of llama.cpp, when a mapped file loses its content (SIGBUS), and when a library calls `exit`
/// because the system gives it no threads. The exit status is 1 then. One object at a time.
class FatalEnd {
public:
    FatalEnd();
    ~FatalEnd();
    FatalEnd(const FatalEnd&) = delete;
    FatalEnd& operator=(const FatalEnd&) = delete;
};

}  // namespace meetingcore
