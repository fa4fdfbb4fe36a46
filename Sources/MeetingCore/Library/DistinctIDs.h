#pragma once

#include <algorithm>
#include <vector>

#include "MeetingCore/Platform/UUID.h"

namespace meetingcore {

/// Whether no two of the records have the same `id`.
template <class Records>
bool haveDistinctIDs(const Records& records) {
    std::vector<UUID> ids;
    ids.reserve(records.size());
    for (const auto& record : records) ids.push_back(record.id);
    std::sort(ids.begin(), ids.end());
    return std::adjacent_find(ids.begin(), ids.end()) == ids.end();
}

}  // namespace meetingcore
