// ModelNodes: the simulated phone as the kernel's sysfs nodes, for the fake kernel.
//
// Nodes: every regular file under a device tree's `sys` directory is a node with that file's
// content. The nodes the model drives are served from the model whenever they exist in the
// tree (a node the tree lacks is not added, so a scenario can leave one out):
//
//   class/power_supply/Battery/capacity            shown SOC, %                     "62\n"
//                              current_now         uA, + charging                   "-420000\n"
//                              voltage_now         terminal voltage, uV             "3967000\n"
//                              temp                0.1 degC                         "265\n"
//                              cycle_count         whole equivalent full cycles     "143\n"
//                              charge_full, capacity_fcc   present capacity, uAh    "4650000\n"
//                              charge_full_design  uAh                              "4500000\n"
//                              status   "Charging", "Discharging", "Full", "Not charging" + "\n"
//                              brand               battery_name + "\n" (when set)
//   class/vn_power/power_event/connect_state       "1\n" plugged, "0\n" not
//   class/vn_power/charger/charge_data/chargerType charger_type_code, "5\n" when unplugged
//                              charge_done_status  "1\n" at charge done, else "0\n"
//                              charge_term_volt_setting  effective termination, mV "4450\n"
//   class/vn_power/charger/direct_charger{,_sc}/adaptor_detect  "0\n" while a direct adapter
//                                                  is plugged, else "1\n"
//   class/vn_power/bq_bci/poll_charge_start_event  number of charge starts; event per start
//   devices/platform/vorlan_batt_soh/basp/basp_data     32-byte aging record; event per record
//                                      basp/basp_ichg_max  charge_current_max_ma, 4 raw bytes
//                                      basp/basp_herald_data  88 bytes: the tree's text
//                                                  fields, design mAh, cycles, present mAh
//                                      eis/acr_info  24-byte ACR record; event per measurement
//                                      eis/dcr_info  20-byte DCR record; event per measurement
//                                      asw/asw_time_speed  "1"
//   devices/virtual/vn_power/coul/coul_data/battery_brand_name  battery_name + "\n" (when set)
// Driven nodes are read-only (a write answers -EACCES).
//
// Nodes the daemon writes, parsed and applied (a malformed line or a value out of range
// answers -EINVAL and changes nothing; an accepted write also becomes the node's content):
//   class/vn_power/interface/vterm_dec    "quen TYPE N", N in [-1, 1000] mV, per charger type
//                                         ("all": every type); the adapter's type applies
//   class/vn_power/interface/ichg_limit   "quen TYPE N", N mA (<= 0 lifts), TYPE checked only
//   class/vn_power/interface/ichg_ratio   "quen TYPE N", N % (<= 0 lifts), TYPE checked only
//   class/vn_power/soc_control/control    "quen ENABLE LOW HIGH"
//   class/vn_power/soc_control/strategy   "quen TYPE" (kept for the trace)
//   devices/platform/vorlan_batt_soh/basp/basp_coul_vdec  decimal in [-1, 1000] (kept)
//                                    iscd/iscd_status      decimal level; >= 1 stops charging
//                                    basp/basp_policy      16-byte policy: level and ndcVdec
//                                                          (mV, at most 1000) are applied
//                                    quen_dmd_report       "asw N" records scene event N;
//                                                          other text is kept as content
// Every other node keeps what is written to it.
//
// Time: every Read, Write, Tick and Sample first advances the model to the clock's time.
// Events() only reports counts.
//
// Ownership: owns the model. The clock and the listener are the caller's; the clock must not
// call into this object.
// Threads: any thread. One mutex guards the model and every node; the clock is called with it
// held. The event sink (see node_source.h) and the write listener are called after the mutex
// is released, on the thread whose call advanced the model or wrote, so they may call back in.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/fakefs/node_source.h"
#include "sim/model/node_codec.h"
#include "sim/model/phone_model.h"

namespace sim {

// The state of the model and of what the daemon asked, for the runner's trace.
struct ModelSample {
    CellState cell;          // time, SOC, voltages, current, temperature, capacity, ...
    bool socWindow = false;  // SOC control enabled
    int socLowPct = 0;
    int socHighPct = 100;
    int statusLevel = 0;         // iscd_status
    int socStrategy = -1;        // last "quen TYPE" on the strategy node, -1 before any
    int coulVdecMv = -1;         // last basp_coul_vdec, -1 before any (not used by the gauge)
    uint32_t baspLevel = 0;      // from the last policy record
    uint32_t baspNdcVdecMv = 0;  // from the last policy record
    uint32_t aswScene = 0;       // last "asw N" written to quen_dmd_report, 0 before any
    uint64_t chargeStarts = 0;
    uint64_t agingRecords = 0;
    uint64_t impedanceMeasurements = 0;
};

class ModelNodes : public NodeSource {
public:
    using Clock = std::function<double()>;  // simulated epoch seconds
    // Simulated time of the write, node path (as in List()), bytes written, result (0 or
    // -errno).
    using WriteListener =
        std::function<void(double t, const std::string& path, const std::string& data, int result)>;

    // Loads every regular file under `sysDir` as a node. Null, with `error` set, when the
    // directory cannot be read or holds no file.
    static std::unique_ptr<ModelNodes> Create(PhoneModel model, const std::string& sysDir,
                                              Clock clock, std::string& error);

    std::vector<std::string> List() override;
    int Read(const std::string& path, std::string& out) override;
    void ReadMany(const std::vector<std::string>& paths, std::vector<std::string>& out,
                  std::vector<int>& rc) override;
    int Write(const std::string& path, const std::string& data) override;
    uint64_t Events(const std::string& path) override;

    // Advances the model to the clock's time and raises the events that fell due.
    void Tick();
    // The nodes whose content the model drives (changes without a write), and the nodes that
    // raise events, as paths of List().
    std::vector<std::string> DrivenPaths();
    std::vector<std::string> EventPaths();
    ModelSample Sample();
    void SetWriteListener(WriteListener listener);

private:
    enum class Kind {
        kPlain,
        kDriven,
        kVtermDec,
        kIchgLimit,
        kIchgRatio,
        kSocControl,
        kSocStrategy,
        kCoulVdec,
        kIscdStatus,
        kPolicy,
        kDmdReport,
    };
    struct Node {
        Kind kind = Kind::kPlain;
        int out = -1;         // what a driven node shows (an output of the model)
        std::string content;  // plain and written nodes: the bytes; driven: the tree's
        uint64_t events = 0;
    };

    ModelNodes(PhoneModel model, Clock clock);

    // The rest run with mutex_ held.
    void Classify();
    void AdvanceLocked(std::vector<std::string>& raised);
    void Bump(const std::string& path, uint64_t count, std::vector<std::string>& raised);
    std::string Render(const Node& node, const CellState& state) const;
    int Apply(Kind kind, const std::string& data);
    void PushLimits();

    PhoneModel model_;
    Clock clock_;
    std::mutex mutex_;
    std::map<std::string, Node> nodes_;  // fixed set after Create
    WriteListener listener_;

    // What the daemon asked.
    std::map<std::string, int32_t> vtermDec_;  // by charger type, mV
    int32_t ichgLimit_ = -1;
    int32_t ichgRatio_ = -1;
    int32_t socEnable_ = 0;
    int32_t socLow_ = 0;
    int32_t socHigh_ = 100;
    int32_t socStrategy_ = -1;
    int32_t coulVdec_ = -1;
    int32_t iscdStatus_ = 0;
    kernel::AgingPolicy policy_{};
    uint32_t aswScene_ = 0;

    // Model event counts already turned into node events.
    uint64_t seenChargeStarts_ = 0;
    uint64_t seenAgingRecords_ = 0;
    uint64_t seenImpedance_ = 0;
};

}  // namespace sim
