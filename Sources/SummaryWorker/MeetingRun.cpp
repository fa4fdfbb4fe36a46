#include "SummaryWorker/MeetingRun.h"

#include "MeetingCore/Summary/SummaryArtifact.h"

namespace meetingcore {

std::string MeetingRun::currentFingerprint() const {
    return SummaryArtifact::fingerprint(TranscriptStorage::load(session, root, database, files));
}

}  // namespace meetingcore
