#pragma once

#include <cstdint>
#include <string_view>

namespace meetingcore::RuntimeProfile {

/// The one supported runtime: models run on the CPU, and none while a recording is in progress.
inline constexpr bool isIntel = true;
inline constexpr std::string_view name = "Intel · CPU";
inline constexpr std::int32_t speechGPU = -1;
inline constexpr std::int32_t summaryGPULayers = 0;
inline constexpr bool inferenceDuringCapture = false;

}  // namespace meetingcore::RuntimeProfile
