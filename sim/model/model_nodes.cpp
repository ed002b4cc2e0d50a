// The simulated phone's sysfs nodes (see model_nodes.h).
#include "sim/model/model_nodes.h"

#include <errno.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "asw/asw_common.h"
#include "basp/basp_nodes.h"
#include "core/soh_enviroment.h"
#include "cvt/cvt_nodes.h"
#include "protectors/limit_nodes.h"

namespace sim {

namespace {

// The node path of a device path ("/sys/class/..." -> "class/...").
std::string NodePath(const char* devicePath) {
    const std::string p(devicePath);
    return p.compare(0, 5, "/sys/") == 0 ? p.substr(5) : p;
}

// Nodes without a constant in the daemon (it does not read them).
const char kBatteryStatus[] = "/sys/class/power_supply/Battery/status";
const char kBatteryChargeFull[] = "/sys/class/power_supply/Battery/charge_full";
// The sample device's impedance nodes (the daemon takes them from its configuration).
const char kAcrInfo[] = "/sys/devices/platform/vorlan_batt_soh/eis/acr_info";
const char kDcrInfo[] = "/sys/devices/platform/vorlan_batt_soh/eis/dcr_info";

enum class Out {
    kCapacity,
    kCurrent,
    kVoltage,
    kTemp,
    kCycles,
    kFcc,
    kDesign,
    kStatus,
    kBrand,
    kConnect,
    kChargerType,
    kChargeDone,
    kTermVolt,
    kDirectDetect,
    kChargeStart,
    kAgingData,
    kIChgMax,
    kHerald,
    kAcr,
    kDcr,
    kTimeSpeed,
};

const std::map<std::string, Out>& Outputs() {
    static const std::map<std::string, Out> outputs = {
        {NodePath(CvtNodes::kBatteryCapacity), Out::kCapacity},
        {NodePath(CvtNodes::kBatteryCurrentNow), Out::kCurrent},
        {NodePath(CvtNodes::kBatteryVoltageNow), Out::kVoltage},
        {NodePath(CvtNodes::kBatteryTemp), Out::kTemp},
        {NodePath(CvtNodes::kBatteryCycleCount), Out::kCycles},
        {NodePath(CvtNodes::kBatteryFcc), Out::kFcc},
        {NodePath(kBatteryChargeFull), Out::kFcc},
        {NodePath(CvtNodes::kBatteryFccDesign), Out::kDesign},
        {NodePath(kBatteryStatus), Out::kStatus},
        {NodePath(CvtNodes::kBatteryBrand), Out::kBrand},
        {NodePath(kBatteryBrandNode), Out::kBrand},
        {NodePath(CvtNodes::kChargerStatus), Out::kConnect},
        {NodePath(CvtNodes::kChargerType), Out::kChargerType},
        {NodePath(CvtNodes::kChargeDone), Out::kChargeDone},
        {NodePath(BaspNodes::kChargeTermVolt), Out::kTermVolt},
        {NodePath(CvtNodes::kDirectChargerDetect), Out::kDirectDetect},
        {NodePath(CvtNodes::kDirectChargerScDetect), Out::kDirectDetect},
        {NodePath(CvtNodes::kChargeStartEvent), Out::kChargeStart},
        {NodePath(BaspNodes::kAgingData), Out::kAgingData},
        {NodePath(BaspNodes::kIChgMax), Out::kIChgMax},
        {NodePath(BaspNodes::kHeraldData), Out::kHerald},
        {NodePath(kAcrInfo), Out::kAcr},
        {NodePath(kDcrInfo), Out::kDcr},
        {NodePath(AswNodes::kTimeSpeed), Out::kTimeSpeed},
    };
    return outputs;
}

std::string Line(int64_t value) {
    return std::to_string(value) + "\n";
}

int64_t Micro(double value) {
    return std::llround(value * 1e6);
}

bool ReadFile(const std::filesystem::path& file, std::string& out) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return false;
    }
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

}  // namespace

std::unique_ptr<ModelNodes> ModelNodes::Create(PhoneModel model, const std::string& sysDir,
                                               Clock clock, std::string& error) {
    namespace fs = std::filesystem;
    std::unique_ptr<ModelNodes> nodes(new ModelNodes(std::move(model), std::move(clock)));
    std::error_code ec;
    fs::recursive_directory_iterator it(sysDir, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (!it->is_regular_file(ec)) {
            continue;
        }
        const std::string rel = it->path().lexically_relative(sysDir).generic_string();
        std::string content;
        if (!ReadFile(it->path(), content)) {
            error = "cannot read node file " + it->path().string();
            return nullptr;
        }
        nodes->nodes_[rel].content = std::move(content);
    }
    if (ec) {
        error = "cannot read the device tree " + sysDir + ": " + ec.message();
        return nullptr;
    }
    if (nodes->nodes_.empty()) {
        error = "the device tree " + sysDir + " holds no node";
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(nodes->mutex_);
    nodes->Classify();
    return nodes;
}

ModelNodes::ModelNodes(PhoneModel model, Clock clock)
    : model_(std::move(model)), clock_(std::move(clock)) {}

void ModelNodes::Classify() {
    const std::map<std::string, Kind> written = {
        {NodePath(LimitNodes::kVtermDec), Kind::kVtermDec},
        {NodePath(LimitNodes::kIchgLimit), Kind::kIchgLimit},
        {NodePath(LimitNodes::kIchgRatio), Kind::kIchgRatio},
        {NodePath(LimitNodes::kSocControl), Kind::kSocControl},
        {NodePath(LimitNodes::kSocStrategy), Kind::kSocStrategy},
        {NodePath(LimitNodes::kBaspCoulVdec), Kind::kCoulVdec},
        {NodePath(LimitNodes::kIscdStatus), Kind::kIscdStatus},
        {NodePath(BaspNodes::kPolicy), Kind::kPolicy},
        {NodePath(AswNodes::kDmdReport), Kind::kDmdReport},
    };
    const bool named = !model_.Params().battery_name.empty();
    for (auto& [path, node] : nodes_) {
        auto w = written.find(path);
        auto o = Outputs().find(path);
        if (w != written.end()) {
            node.kind = w->second;
            // A tree may start with limits in force; content the kernel would refuse is kept
            // but not applied.
            if (!node.content.empty()) {
                Apply(node.kind, node.content);
            }
        } else if (o != Outputs().end() && (o->second != Out::kBrand || named)) {
            node.kind = Kind::kDriven;
            node.out = static_cast<int>(o->second);
        }
    }
    PushLimits();
    seenChargeStarts_ = model_.ChargeStarts();
    seenAgingRecords_ = model_.AgingRecords();
    seenImpedance_ = model_.ImpedanceMeasurements();
}

std::vector<std::string> ModelNodes::List() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> paths;
    paths.reserve(nodes_.size());
    for (const auto& entry : nodes_) {
        paths.push_back(entry.first);
    }
    return paths;
}

int ModelNodes::Read(const std::string& path, std::string& out) {
    std::vector<std::string> raised;
    int result = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        AdvanceLocked(raised);
        auto it = nodes_.find(path);
        if (it == nodes_.end()) {
            result = -ENOENT;
        } else {
            out = it->second.kind == Kind::kDriven ? Render(it->second, model_.State())
                                                   : it->second.content;
        }
    }
    for (const std::string& p : raised) {
        Raise(p);
    }
    return result;
}

void ModelNodes::ReadMany(const std::vector<std::string>& paths, std::vector<std::string>& out,
                          std::vector<int>& rc) {
    std::vector<std::string> raised;
    out.resize(paths.size());
    rc.assign(paths.size(), 0);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        AdvanceLocked(raised);
        const CellState state = model_.State();
        for (size_t i = 0; i < paths.size(); ++i) {
            auto it = nodes_.find(paths[i]);
            if (it == nodes_.end()) {
                rc[i] = -ENOENT;
            } else {
                out[i] = it->second.kind == Kind::kDriven ? Render(it->second, state)
                                                          : it->second.content;
            }
        }
    }
    for (const std::string& p : raised) {
        Raise(p);
    }
}

int ModelNodes::Write(const std::string& path, const std::string& data) {
    std::vector<std::string> raised;
    int result = 0;
    double t = 0.0;
    WriteListener listener;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        AdvanceLocked(raised);
        t = model_.Now();
        auto it = nodes_.find(path);
        if (it == nodes_.end()) {
            result = -ENOENT;
        } else if (it->second.kind == Kind::kDriven) {
            result = -EACCES;
        } else {
            result = Apply(it->second.kind, data);
            if (result == 0) {
                it->second.content = data;
                PushLimits();
                AdvanceLocked(raised);  // a changed limit may start a charge
            }
        }
        listener = listener_;
    }
    for (const std::string& p : raised) {
        Raise(p);
    }
    if (listener) {
        listener(t, path, data, result);
    }
    return result;
}

uint64_t ModelNodes::Events(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = nodes_.find(path);
    return it == nodes_.end() ? 0 : it->second.events;
}

std::vector<std::string> ModelNodes::DrivenPaths() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> paths;
    for (const auto& entry : nodes_) {
        if (entry.second.kind == Kind::kDriven) {
            paths.push_back(entry.first);
        }
    }
    return paths;
}

std::vector<std::string> ModelNodes::EventPaths() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> paths;
    for (const std::string& p :
         {NodePath(CvtNodes::kChargeStartEvent), NodePath(BaspNodes::kAgingData),
          NodePath(kAcrInfo), NodePath(kDcrInfo)}) {
        if (nodes_.count(p) != 0) {
            paths.push_back(p);
        }
    }
    return paths;
}

void ModelNodes::Tick() {
    std::vector<std::string> raised;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        AdvanceLocked(raised);
    }
    for (const std::string& p : raised) {
        Raise(p);
    }
}

ModelSample ModelNodes::Sample() {
    std::vector<std::string> raised;
    ModelSample s;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        AdvanceLocked(raised);
        s.cell = model_.State();
        const ChargerLimits& l = model_.Limits();
        s.socWindow = l.socWindow;
        s.socLowPct = l.socLowPct;
        s.socHighPct = l.socHighPct;
        s.statusLevel = l.statusLevel;
        s.socStrategy = socStrategy_;
        s.coulVdecMv = coulVdec_;
        s.baspLevel = policy_.level;
        s.baspNdcVdecMv = policy_.ndcVdec;
        s.aswScene = aswScene_;
        s.chargeStarts = model_.ChargeStarts();
        s.agingRecords = model_.AgingRecords();
        s.impedanceMeasurements = model_.ImpedanceMeasurements();
    }
    for (const std::string& p : raised) {
        Raise(p);
    }
    return s;
}

void ModelNodes::SetWriteListener(WriteListener listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    listener_ = std::move(listener);
}

void ModelNodes::AdvanceLocked(std::vector<std::string>& raised) {
    model_.AdvanceTo(clock_());
    const uint64_t starts = model_.ChargeStarts() - seenChargeStarts_;
    const uint64_t records = model_.AgingRecords() - seenAgingRecords_;
    const uint64_t measured = model_.ImpedanceMeasurements() - seenImpedance_;
    if (starts + records + measured == 0) {
        return;  // the common case: no path strings to build
    }
    Bump(NodePath(CvtNodes::kChargeStartEvent), starts, raised);
    Bump(NodePath(BaspNodes::kAgingData), records, raised);
    Bump(NodePath(kAcrInfo), measured, raised);
    Bump(NodePath(kDcrInfo), measured, raised);
    seenChargeStarts_ += starts;
    seenAgingRecords_ += records;
    seenImpedance_ += measured;
}

void ModelNodes::Bump(const std::string& path, uint64_t count, std::vector<std::string>& raised) {
    if (count == 0) {
        return;
    }
    auto it = nodes_.find(path);
    if (it != nodes_.end()) {
        it->second.events += count;
        raised.push_back(path);
    }
}

std::string ModelNodes::Render(const Node& node, const CellState& s) const {
    const ModelParams& p = model_.Params();
    switch (static_cast<Out>(node.out)) {
        case Out::kCapacity:
            return Line(model_.ShownSocPercent());
        case Out::kCurrent:
            return Line(Micro(s.currentA));
        case Out::kVoltage:
            return Line(Micro(s.voltageV));
        case Out::kTemp:
            return Line(std::lround(s.tempC * 10.0));
        case Out::kCycles:
            return Line(static_cast<int64_t>(s.cycles));
        case Out::kFcc:
            return Line(std::llround(s.fccMah * 1000.0));
        case Out::kDesign:
            return Line(std::llround(p.design_capacity_mah * 1000.0));
        case Out::kStatus:
            if (!s.plugged) {
                return "Discharging\n";
            }
            return s.charging ? "Charging\n" : s.chargeDone ? "Full\n" : "Not charging\n";
        case Out::kBrand:
            return p.battery_name + "\n";
        case Out::kConnect:
            return s.plugged ? "1\n" : "0\n";
        case Out::kChargerType:
            return Line(s.plugged ? p.charger_type_code : 5);
        case Out::kChargeDone:
            return s.plugged && s.chargeDone ? "1\n" : "0\n";
        case Out::kTermVolt:
            return Line(s.vtermMv);
        case Out::kDirectDetect:
            return s.plugged && p.IsDirectAdapter() ? "0\n" : "1\n";
        case Out::kChargeStart:
            return Line(static_cast<int64_t>(model_.ChargeStarts()));
        case Out::kAgingData:
            return kernel::ToBytes(model_.LastAgingRecord());
        case Out::kIChgMax: {
            const uint32_t ma = static_cast<uint32_t>(std::lround(p.charge_current_max_ma));
            return kernel::ToBytes(ma);
        }
        case Out::kHerald: {
            kernel::HeraldData h{};
            kernel::FromBytes(node.content, h);  // the tree's text fields, when it has them
            h.batCap = model_.LastAgingRecord().designFcc;
            h.batCycle = static_cast<uint32_t>(s.cycles);
            h.qmax = static_cast<uint32_t>(std::lround(s.fccMah));
            return kernel::ToBytes(h);
        }
        case Out::kAcr: {
            const ImpedanceMeasurement& m = model_.LastImpedance();
            kernel::AcrInfo a{};
            if (model_.ImpedanceMeasurements() > 0) {
                a = {m.acrUohm,
                     m.cycleCount,
                     static_cast<uint32_t>(m.tempC),
                     static_cast<uint32_t>(m.tempC + 2),
                     static_cast<uint32_t>(m.tempC),
                     m.voltMv};
            }
            return kernel::ToBytes(a);
        }
        case Out::kDcr: {
            const ImpedanceMeasurement& m = model_.LastImpedance();
            kernel::DcrInfo d{};
            if (model_.ImpedanceMeasurements() > 0) {
                d = {m.r0Uohm, m.dcrUohm, m.cycleCount, static_cast<uint32_t>(m.tempC), m.voltMv};
            }
            return kernel::ToBytes(d);
        }
        case Out::kTimeSpeed:
            return "1";
    }
    return node.content;
}

int ModelNodes::Apply(Kind kind, const std::string& data) {
    std::string type;
    int32_t value = 0;
    switch (kind) {
        case Kind::kPlain:
        case Kind::kDriven:
            return 0;
        case Kind::kVtermDec:
            if (!kernel::ParseTypedLine(data, -1, 1000, type, value)) {
                return -EINVAL;
            }
            if (type == "all") {
                for (const char* t : {"dcp", "fcp", "pd", "wl", "lvc", "sc", "wl_sc"}) {
                    vtermDec_[t] = value;
                }
            } else {
                vtermDec_[type] = value;
            }
            return 0;
        case Kind::kIchgLimit:
        case Kind::kIchgRatio:
            if (!kernel::ParseTypedLine(data, -1, INT32_MAX, type, value)) {
                return -EINVAL;
            }
            (kind == Kind::kIchgLimit ? ichgLimit_ : ichgRatio_) = value;
            return 0;
        case Kind::kSocControl: {
            int32_t enable = 0;
            int32_t low = 0;
            int32_t high = 0;
            if (!kernel::ParseSocControl(data, enable, low, high)) {
                return -EINVAL;
            }
            socEnable_ = enable;
            socLow_ = low;
            socHigh_ = high;
            return 0;
        }
        case Kind::kSocStrategy:
            return kernel::ParseSocStrategy(data, socStrategy_) ? 0 : -EINVAL;
        case Kind::kCoulVdec:
            return kernel::ParseDecimal(data, -1, 1000, coulVdec_) ? 0 : -EINVAL;
        case Kind::kIscdStatus:
            return kernel::ParseDecimal(data, INT32_MIN, INT32_MAX, iscdStatus_) ? 0 : -EINVAL;
        case Kind::kPolicy: {
            kernel::AgingPolicy policy{};
            if (!kernel::FromBytes(data, policy) || policy.ndcVdec > 1000) {
                return -EINVAL;
            }
            policy_ = policy;
            return 0;
        }
        case Kind::kDmdReport: {
            uint32_t scene = 0;
            bool malformed = false;
            if (kernel::ParseAswReport(data, scene, malformed)) {
                aswScene_ = scene;
            }
            return malformed ? -EINVAL : 0;
        }
    }
    return -EINVAL;
}

void ModelNodes::PushLimits() {
    ChargerLimits l;
    auto v = vtermDec_.find(model_.Params().adapter);
    l.vtermDecMv = v != vtermDec_.end() ? v->second : 0;
    l.policyVdecMv = static_cast<int>(policy_.ndcVdec);
    l.buckLimitMa = ichgLimit_;
    l.directRatioPct = ichgRatio_;
    l.socWindow = socEnable_ != 0;
    l.socLowPct = socLow_;
    l.socHighPct = socHigh_;
    l.statusLevel = iscdStatus_;
    model_.SetLimits(l);
}

}  // namespace sim
