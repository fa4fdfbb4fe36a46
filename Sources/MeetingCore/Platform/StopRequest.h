#pragma once

#include <atomic>

namespace meetingcore {

/// Asks running work to end early. Any thread or signal handler may set it; it is never taken back. The work
/// looks at it many times a second.
class StopRequest {
public:
    StopRequest() = default;
    ~StopRequest() = default;
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    /// A request for a part of some work: also set as soon as that of the whole is, which must outlive it.
    static StopRequest within(const StopRequest& whole) { return StopRequest(&whole); }

    void request() noexcept { requested_ = true; }

    bool requested() const noexcept { return requested_ || (whole_ != nullptr && whole_->requested()); }

private:
    explicit StopRequest(const StopRequest* whole) : whole_(whole) {}

    static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may set it");

    std::atomic<bool> requested_ = false;
    const StopRequest* whole_ = nullptr;
};

}  // namespace meetingcore
