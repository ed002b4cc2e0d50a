// The strategy factories: one default strategy of each kind, whatever the type name.
#include "eis/eis_judge.h"
#include "eis/eis_unifier.h"

std::unique_ptr<EisUnifier> EisUnifierFatory::GetUnifier(const std::string& /*type*/) {
    return std::make_unique<EisDefaultUnifier>();
}

std::unique_ptr<EisJudge> EisJudgeFatory::GetJudge(const std::string& /*type*/) {
    return std::make_unique<EisDefaultJudge>();
}
