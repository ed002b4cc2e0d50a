#include "daemon/soh_declare.h"

#include "asw/asw_estimator.h"
#include "basp/basp_estimator.h"
#include "cfsd/cfsd_estimator.h"
#include "core/soh_estimator.h"
#include "cvt/cvt_estimator.h"
#include "eis/eis_estimator.h"
#include "iscd/iscd_estimator.h"
#include "protectors/dc_cur_limitator.h"
#include "protectors/dc_volt_limitator.h"
#include "protectors/non_dc_cur_limitator.h"
#include "protectors/non_dc_vol_limitator.h"
#include "protectors/soc_limitator.h"
#include "protectors/status_limitator.h"
#include "protectors/stop_limitator.h"
#include "service/app_estimator.h"

// Each factory builds its object under its own fixed name, whatever it is asked with.
void DeclearEstimators() {
    SOHObjectPool<SOHEstimator>& pool = EstimatorPool();
    pool.Register("CFSD", [](const char*) -> SOHEstimator* { return new CfsdEstimator("CFSD"); });
    pool.Register("EIS", [](const char*) -> SOHEstimator* { return new EISEstimator("EIS"); });
    pool.Register("ASW", [](const char*) -> SOHEstimator* { return new AswEstimator("ASW"); });
    pool.Register("BASP", [](const char*) -> SOHEstimator* { return new BaspEstimator("BASP"); });
    pool.Register("ISCD", [](const char*) -> SOHEstimator* { return new IscdEstimator("ISCD"); });
    pool.Register("CVT", [](const char*) -> SOHEstimator* { return new CvtEstimator("CVT"); });
    pool.Register("APP", [](const char*) -> SOHEstimator* { return new AppEstimator("APP"); });
}

// The registered name is the key configurations use; note "STOP_CHARGE" builds a
// StopLimitator and "NonDcVoltLimitator" the class NonDcVolLimitator.
void DeclearProtectors() {
    SOHObjectPool<SOHProtector>& pool = ProtectorPool();
    pool.Register("STOP_CHARGE",
                  [](const char* n) -> SOHProtector* { return new StopLimitator(n); });
    pool.Register("DcVoltLimitator",
                  [](const char* n) -> SOHProtector* { return new DcVoltLimitator(n); });
    pool.Register("NonDcVoltLimitator",
                  [](const char* n) -> SOHProtector* { return new NonDcVolLimitator(n); });
    pool.Register("DcCurLimitator",
                  [](const char* n) -> SOHProtector* { return new DcCurLimitator(n); });
    pool.Register("NonDcCurLimitator",
                  [](const char* n) -> SOHProtector* { return new NonDcCurLimitator(n); });
    pool.Register("SocLimitator",
                  [](const char* n) -> SOHProtector* { return new SocLimitator(n); });
    pool.Register("StatusLimitator",
                  [](const char* n) -> SOHProtector* { return new StatusLimitator(n); });
}
