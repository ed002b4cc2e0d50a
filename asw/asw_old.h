// AswOld: the swell recorded by the charge monitor of earlier software, read once when the
// anti-swelling estimator starts without a data file of its own.
//
// The legacy log (AswNodes::kOldLog) is a 416-byte record; bytes 76..219 hold a 6 x 6 table
// of signed 32-bit seconds (host byte order) spent in the old voltage/temperature bins. The
// swell is the sum of coefficient x seconds / 86400 over the table (coefficients: swell per
// day in each bin).
//
// Stateless; called on the ASW monitor thread.
#pragma once

#include <cstddef>

class AswOld {
public:
    static constexpr size_t kFileSize = 416;
    static constexpr size_t kTableOffset = 76;
    static constexpr int kRows = 6;
    static constexpr int kColumns = 6;

    // The legacy swell; 0 when the log is missing, of the wrong size or unreadable (logged).
    static float GetAswell();
    // Deletes the legacy log (a missing log is not an error). 0, or -1.
    static int Remove();
};
