#include "MeetingCore/Library/AudioInputSelection.h"

namespace meetingcore {

AudioInputSelection::AudioInputSelection(std::int32_t applicationPID,
                                         const std::optional<std::string>& microphoneID)
    : microphoneEnabled(microphoneID != disabledID), meetingEnabled(applicationPID != disabledApplicationPID) {}

AudioInputSelection::AudioInputSelection(const MeetingSession& session)
    : microphoneEnabled(session.microphoneID != disabledID),
      meetingEnabled(session.applicationBundleID != disabledID) {}

std::vector<AudioSource> AudioInputSelection::sources() const {
    std::vector<AudioSource> enabled;
    if (microphoneEnabled) enabled.push_back(AudioSource::microphone);
    if (meetingEnabled) enabled.push_back(AudioSource::meeting);
    return enabled;
}

}  // namespace meetingcore
