// The weekly swell value shared between estimators: the "Aswell" of the anti-swelling
// estimator's week, published by its thread and read by the aging policy's thread. A
// sequentially consistent atomic double; 0 until the first week has closed.
#pragma once

#include <atomic>

inline std::atomic<double>& WeekSwell() {
    static std::atomic<double> value{0.0};
    return value;
}
