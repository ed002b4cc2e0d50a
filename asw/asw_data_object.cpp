#include "asw/asw_data_object.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "asw/extra_j_value.h"
#include "core/soh_log.h"

namespace {

Json::Value MakeUInt(uint64_t v) {
    return Json::Value(
        static_cast<Json::UInt>(std::min<uint64_t>(v, std::numeric_limits<Json::UInt>::max())));
}

int ReadCycleCount() {
    return Asw::ReadDeviceStrToT<int>(AswNodes::kBatteryCycleCount);
}

unsigned NowSeconds(Asw::TimePoint now) {
    int64_t s = Asw::ToSeconds(now);
    return s < 0 ? 0u : static_cast<unsigned>(std::min<int64_t>(s, UINT32_MAX));
}

}  // namespace

AswDataObject::AswDataObject(AswTable&& table, Json::Value&& data)
    : timeTable_(table), data_(Json::objectValue), lastUpdate_(Asw::Now()) {
    if (data.isObject()) {
        data_.swap(data);
    }
    CreateFuncMaps();
}

AswDataObject::AswDataObject(const AswDataObject& other)
    : timeTable_(other.timeTable_), data_(other.GetData()), lastUpdate_(Asw::Now()) {
    CreateFuncMaps();
}

Json::Value& AswDataObject::Counter(CounterSlot slot) const {
    static constexpr const char* kNames[kCounterSlots] = {
        "Tend", "CycEnd", "Tstat", "Tsim_in", "Tusb_in", "Taction", "Tusb_out"};
    const size_t i = static_cast<size_t>(slot);
    if (counters_[i] == nullptr) {
        // Flush, a const member, writes the counters back: what the object stands for does
        // not change, only where the newest counters are kept.
        counters_[i] = &const_cast<Json::Value&>(data_)[kNames[i]];
    }
    return *counters_[i];
}

AswDataObject::PendingCounter& AswDataObject::Pending(CounterSlot slot) {
    PendingCounter& p = pending_[static_cast<size_t>(slot)];
    if (!p.loaded) {
        const Json::Value& v = Counter(slot);
        p.number = ExtraJValue::Number::Of(v);
        p.null = v.isNull();
        p.loaded = true;
        p.dirty = false;
    }
    return p;
}

void AswDataObject::SetPending(CounterSlot slot, const ExtraJValue::Number& value) {
    PendingCounter& p = pending_[static_cast<size_t>(slot)];
    p.number = value;
    p.null = value.kind == Json::nullValue;
    p.loaded = true;
    p.dirty = true;
}

void AswDataObject::Flush() const {
    for (size_t i = 0; i < kCounterSlots; ++i) {
        PendingCounter& p = pending_[i];
        if (p.dirty) {
            Counter(static_cast<CounterSlot>(i)) = ExtraJValue::ToValue(p.number);
        }
        p = PendingCounter{};
    }
}

const Json::Value& AswDataObject::GetData() const {
    Flush();
    return data_;
}

bool AswDataObject::GetPeriodSeconds(int64_t& start, int64_t& end) const {
    if (tstart_ == nullptr) {
        static constexpr char kKey[] = "Tstart";  // never a pending counter
        tstart_ = data_.find(kKey, kKey + sizeof(kKey) - 1);
    }
    if (tstart_ == nullptr || !tstart_->isInt64()) {
        return false;
    }
    start = tstart_->asInt64();
    const PendingCounter& p = pending_[static_cast<size_t>(CounterSlot::kTend)];
    if (p.dirty && (p.number.kind == Json::uintValue || p.number.kind == Json::intValue)) {
        // An integer counter is a 32-bit integer held exactly: an int64 as it stands.
        end = static_cast<int64_t>(p.number.value);
        return true;
    }
    const Json::Value& tend =
        p.dirty ? ExtraJValue::ToValue(p.number) : data_.get("Tend", Json::Value());
    if (!tend.isInt64()) {
        return false;
    }
    end = tend.asInt64();
    return true;
}

void AswDataObject::CreateFuncMaps() {
    funcs_.clear();
    funcs_["Psim_in"] = [this] { return PsimIn(); };
    funcs_["Pusb_in"] = [this] { return PusbIn(); };
    funcs_["Pvbat_ov"] = [this] { return PvbatOv(); };
    funcs_["Ptbat_ot"] = [this] { return PtbatOt(); };
    funcs_["Aswell"] = [this] { return Aswell(); };
    funcs_["CycCurrent"] = [this] { return CycleCount(); };
}

void AswDataObject::Prepare() {
    Prepare(ReadCycleCount());
}

void AswDataObject::Prepare(int cyc) {
    Flush();
    Json::Value t = MakeUInt(NowSeconds(Asw::Now()));
    if (data_["Tstart"].isNull()) {
        data_["Tstart"] = t;
        data_["CycStart"] = Json::Value(Json::Int(cyc));
        data_["Tusb_out"] = Json::Value(Json::Int(0));
        data_["Tstat"] = Json::Value(Json::Int(0));
    } else if (!data_["Tend"].isNull() && ExtraJValue(data_["Tend"]) < ExtraJValue(t)) {
        // The daemon was not running: that time is credited as time without charger.
        Json::Value gap = ExtraJValue(t) - ExtraJValue(data_["Tend"]);
        for (const char* key : {"Tusb_out", "Tstat"}) {
            Json::Value& v = data_[key];
            v = v.isNull() ? gap : ExtraJValue(v) + ExtraJValue(gap);
        }
    }
    data_["Tend"] = t;
    data_["CycEnd"] = Json::Value(Json::Int(cyc));
}

void AswDataObject::Update(unsigned vbatMv, unsigned tempC, bool usbIn, bool simIn, bool action,
                           const AswTable& swellTable) {
    Update(vbatMv, tempC, usbIn, simIn, action, ReadCycleCount(), swellTable);
}

void AswDataObject::Update(unsigned vbatMv, unsigned tempC, bool usbIn, bool simIn, bool action,
                           int cycles, const AswTable& swellTable) {
    if (firstUpdate_) {
        firstUpdate_ = false;
        Prepare(cycles);
        UpdateRealSwellValue(swellTable);
        return;
    }
    unsigned clockSpeed = 1;
    Asw::TimePoint now = Asw::Now(clockSpeed);
    uint64_t speed = clockSpeed;
    uint64_t dt = speed * kStepSeconds;
    if (now >= lastUpdate_) {
        int64_t e = std::chrono::duration_cast<std::chrono::seconds>(now - lastUpdate_).count();
        if (static_cast<uint64_t>(e) < speed * kGapSeconds) {
            dt = static_cast<uint64_t>(e);
        }
    }
    unsigned step = static_cast<unsigned>(std::min<uint64_t>(dt, UINT32_MAX));
    lastUpdate_ = now;
    // The values MakeUInt and Json::Int would store, as numbers.
    SetPending(CounterSlot::kTend, {Json::uintValue, static_cast<double>(NowSeconds(now))});
    SetPending(CounterSlot::kCycEnd, {Json::intValue, static_cast<double>(cycles)});

    const ExtraJValue::Number stepNumber{Json::uintValue, static_cast<double>(step)};
    UpdateTValue(CounterSlot::kTstat, true, stepNumber);
    UpdateTValue(CounterSlot::kTsimIn, simIn, stepNumber);
    UpdateTValue(CounterSlot::kTusbIn, usbIn, stepNumber);
    UpdateTValue(CounterSlot::kTaction, action, stepNumber);
    UpdateTusbOut(usbIn, stepNumber);
    UpdateTtable(MakeUInt(step), vbatMv, tempC);
    UpdateRealSwellValue(swellTable);
}

// A null counter starts at 0; a counter that is neither null nor a number stays as it is
// unless added to, which makes it null.
void AswDataObject::UpdateTValue(CounterSlot slot, bool flag, const ExtraJValue::Number& dt) {
    const PendingCounter& p = Pending(slot);
    if (p.null) {
        SetPending(slot, {Json::intValue, 0.0});
    }
    if (flag) {
        SetPending(slot, ExtraJValue::AddNumbers(p.number, dt));
    }
}

void AswDataObject::UpdateTusbOut(bool usbIn, const ExtraJValue::Number& dt) {
    if (usbIn) {
        SetPending(CounterSlot::kTusbOut, {Json::intValue, 0.0});
    }
    UpdateTValue(CounterSlot::kTusbOut, !usbIn, dt);
}

void AswDataObject::UpdateTtable(const Json::Value& dt, unsigned vbatMv, unsigned tempC) {
    Json::Value& cell = timeTable_(MakeUInt(vbatMv), MakeUInt(tempC));
    cell = ExtraJValue::Add(cell, dt);
}

// swell_ is the product in swell-days divided by the seconds of a day: p / 86400 in doubles,
// as ExtraJValue's division gives it for a numeric p (the divisor is never near 0).
void AswDataObject::UpdateRealSwellValue(const AswTable& swellTable) {
    const ExtraJValue::Number p = swellTable.Product(timeTable_);
    if (p.kind == Json::nullValue) {
        swell_ = 0.0;
        return;
    }
    swell_ = p.value / static_cast<double>(kSecondsPerDay);
}

AswDataObject& AswDataObject::operator+=(const AswDataObject& other) {
    Flush();
    other.Flush();
    timeTable_ += other.timeTable_;
    for (const std::string& key : data_.getMemberNames()) {
        if (!other.data_.isMember(key)) {
            continue;
        }
        Json::Value& mine = data_[key];
        const Json::Value& theirs = other.data_[key];
        if (key == "Tstart" || key == "CycStart") {
            if (ExtraJValue(theirs) < ExtraJValue(mine)) {
                mine = theirs;
            }
        } else if (key == "Tend" || key == "CycEnd") {
            if (ExtraJValue(mine) < ExtraJValue(theirs)) {
                mine = theirs;
            }
        } else if (key == "Sim") {
            if (!(ExtraJValue(mine) == ExtraJValue(theirs))) {
                SOH_LOGE("asw %s value abnormal changed\n", key.c_str());
            }
        } else {
            mine = ExtraJValue(mine) + ExtraJValue(theirs);
        }
    }
    for (const std::string& key : other.data_.getMemberNames()) {
        if (!data_.isMember(key)) {
            data_[key] = other.data_[key];
        }
    }
    return *this;
}

Json::Value AswDataObject::operator[](const std::string& name) const {
    Flush();
    auto it = funcs_.find(name);
    if (it != funcs_.end()) {
        return it->second();
    }
    return data_.get(name, Json::Value());
}

unsigned AswDataObject::GetStatSeconds() const {
    Flush();
    const Json::Value& t = data_["Tstat"];
    if (t.isUInt64()) {
        return static_cast<unsigned>(
            std::min<Json::LargestUInt>(t.asLargestUInt(), std::numeric_limits<unsigned>::max()));
    }
    return 0;
}

void AswDataObject::SetSupportSim(unsigned sim) {
    data_["Sim"] = Json::Value(Json::UInt(sim));
}

void AswDataObject::SetOldAswell(double swell) {
    data_["OldAswell"] = Json::Value(swell);
}

void AswDataObject::SetThreshold(unsigned vbatMv, unsigned tempC) {
    vbatThreshold_ = vbatMv;
    tbatThreshold_ = tempC;
}

Json::Value AswDataObject::Time2PScale(const Json::Value& v) const {
    Flush();
    const Json::Value& stat = data_["Tstat"];
    if (v.isNull() || !stat.isUInt64() || stat.asLargestUInt() == 0) {
        return Json::Value();
    }
    Json::Value ratio = ExtraJValue(v) / ExtraJValue(stat);
    return ExtraJValue(ratio) * ExtraJValue(Json::Value(Json::UInt(100)));
}

Json::Value AswDataObject::PsimIn() const {
    Flush();
    return Time2PScale(data_.get("Tsim_in", Json::Value()));
}

Json::Value AswDataObject::PusbIn() const {
    Flush();
    return Time2PScale(data_.get("Tusb_in", Json::Value()));
}

Json::Value AswDataObject::PvbatOv() const {
    return Time2PScale(timeTable_.AccumulateX(Json::Value(Json::UInt(vbatThreshold_))));
}

Json::Value AswDataObject::PtbatOt() const {
    return Time2PScale(timeTable_.AccumulateY(Json::Value(Json::UInt(tbatThreshold_))));
}

Json::Value AswDataObject::Aswell() const {
    double swell = swell_;
    const Json::Value& old = data_["OldAswell"];
    if (ExtraJValue::IsNumeric(old)) {
        swell += old.asDouble();
    }
    double add = 0.0;
    if (Asw::GetStubValue(Asw::kAswellAddKey, add)) {
        swell += add;
    }
    return Json::Value(swell);
}

Json::Value AswDataObject::CycleCount() const {
    return Json::Value(Json::Int(ReadCycleCount()));
}
