#include "asw/asw_old.h"

#include <errno.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "asw/asw_common.h"
#include "core/soh_file.h"
#include "core/soh_log.h"

namespace {

// Swell per day spent in each bin of the legacy table.
constexpr double kCoefficients[AswOld::kRows][AswOld::kColumns] = {
    {0.00058, 0.0017, 0.00485, 0.00844, 0.01001, 0.01029},
    {0.00141, 0.00299, 0.00854, 0.01487, 0.01762, 0.01811},
    {0.00248, 0.00526, 0.01502, 0.02616, 0.03102, 0.03187},
    {0.00436, 0.00925, 0.02643, 0.04603, 0.05457, 0.05608},
    {0.00768, 0.01627, 0.04649, 0.08096, 0.09599, 0.09865},
    {0.0135, 0.03509, 0.08176, 0.14237, 0.1688, 0.17348},
};

}  // namespace

float AswOld::GetAswell() {
    if (!SohFile::Exists(AswNodes::kOldLog)) {
        return 0.0f;
    }
    struct stat st {};
    if (SohFile::Stat(AswNodes::kOldLog, st) != 0) {
        SOH_LOGE("asw read old data file failed\n");
        return 0.0f;
    }
    if (static_cast<size_t>(st.st_size) != kFileSize) {
        SOH_LOGE("asw old file size %d is error\n", static_cast<int>(st.st_size));
        return 0.0f;
    }
    std::string raw;
    if (!SohFile::ReadAll(AswNodes::kOldLog, raw, kFileSize)) {
        SOH_LOGE("read file %s failed\n", AswNodes::kOldLog);
        return 0.0f;
    }
    if (raw.size() != kFileSize) {
        SOH_LOGE("asw read old data file failed\n");
        return 0.0f;
    }
    int32_t seconds[kRows][kColumns];
    memcpy(seconds, raw.data() + kTableOffset, sizeof(seconds));
    double swell = 0.0;
    for (int r = 0; r < kRows; ++r) {
        for (int k = 0; k < kColumns; ++k) {
            swell += kCoefficients[r][k] * seconds[r][k] / 86400.0;
        }
    }
    return static_cast<float>(swell);
}

int AswOld::Remove() {
    if (SohFile::Remove(AswNodes::kOldLog) != 0 && errno != ENOENT) {
        return -1;
    }
    return 0;
}
