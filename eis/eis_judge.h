// Judges: strategies that assess the battery from the impedance history.
// EisJudgeFatory::GetJudge makes a new judge for a strategy type name (the decimal text of a
// "Judge<t>" group's "type"); this build knows only the default judge, which every name gets
// and which draws no conclusion (it accepts the history as it is).
//
// Ownership: the caller owns the judge it gets. Threads: one judge per measurement.
#pragma once

#include <memory>
#include <string>

#include "core/soh_algo_para.h"
#include "eisdata.pb.h"

class EisJudge {
public:
    virtual ~EisJudge() = default;
    // Judges `hist` for processor type `type`; false when the judgement failed.
    virtual bool Judge(int type, const Eis::HistoryData& hist) = 0;
};

class EisDefaultJudge : public EisJudge {
public:
    bool Judge(int, const Eis::HistoryData&) override { return true; }
};

class EisJudgeFatory {
public:
    static std::unique_ptr<EisJudge> GetJudge(const std::string& type);
};
