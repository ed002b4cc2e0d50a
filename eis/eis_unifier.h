// Unifiers: strategies that merge a new raw impedance datum into the history's unified data
// sets. EisUnifierFatory::GetUnifier makes a new unifier for a strategy type name (the decimal
// text of a "Unifier<t>" group's "type"); this build knows only the default unifier, which
// every name gets and which refuses all data, so that the history is never changed by a
// strategy that does not exist yet.
//
// Ownership: the caller owns the unifier it gets. Threads: one unifier per measurement.
#pragma once

#include <memory>
#include <string>

#include "core/soh_algo_para.h"
#include "eisdata.pb.h"

class EisUnifier {
public:
    virtual ~EisUnifier() = default;
    // Takes the strategy's settings from group `group` of `paras`; false when unusable.
    virtual bool InitPara(const SohAlgoPara& paras, const std::string& group) = 0;
    // Merges `datum` into `hist`; false when the datum was not taken.
    virtual bool UnifyAndAdd(const Eis::RawDatum& datum, Eis::HistoryData& hist) = 0;
};

class EisDefaultUnifier : public EisUnifier {
public:
    bool InitPara(const SohAlgoPara&, const std::string&) override { return true; }
    bool UnifyAndAdd(const Eis::RawDatum&, Eis::HistoryData&) override { return false; }
};

class EisUnifierFatory {
public:
    static std::unique_ptr<EisUnifier> GetUnifier(const std::string& type);
};
