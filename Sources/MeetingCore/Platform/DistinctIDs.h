#pragma once

#include <bit>
#include <cstdint>
#include <vector>

#include "MeetingCore/Platform/UUID.h"

namespace meetingcore {

/// Whether no two of the records have the same `id`.
template <class Records>
bool haveDistinctIDs(const Records& records) {
    // A table, at most half full, of where the records stand. For the hundred thousand segments of a long
    // transcript it fits the cache, where sorting their ids took a third as long as parsing them.
    std::vector<std::uint32_t> places(std::bit_ceil(2 * records.size() + 2));
    const auto mask = places.size() - 1;
    const auto unusedBits =
        std::countl_zero(mask);  // the hash is a product: its upper bits depend on all others
    for (std::size_t i = 0; i < records.size(); ++i) {
        const auto& id = records[i].id;
        auto at = std::hash<UUID>()(id) >> unusedBits;
        for (; places[at] != 0; at = (at + 1) & mask) {
            if (records[places[at] - 1].id == id) return false;
        }
        places[at] = static_cast<std::uint32_t>(i + 1);
    }
    return true;
}

}  // namespace meetingcore
