// AswBattery's days and week: the closed days and the week read at start, the day close and
// the week built from the last seven closed days.
#include "asw/asw_battery.h"
#include "asw/asw_policy_factory.h"
#include "core/soh_log.h"
#include "core/soh_week_swell.h"

// The closed days are stored on the configured axes (a day of other axes restarts its table),
// so that what is saved back is never misread. With eight or more elements the week is the
// first seven merged as they are: it is neither updated nor published before a day closes.
void AswBattery::LoadDays(const Json::Value& days, const Json::Value& x, const Json::Value& y) {
    closedDays_ = Json::Value(Json::arrayValue);
    week_.reset();
    today_.reset();
    if (!days.isArray()) {
        SOH_LOGE("asw day data object type is not array\n");
    } else if (!days.empty()) {
        const Json::ArrayIndex last = days.size() - 1;
        const bool weekAtStart = last >= kWeekDays;
        for (Json::ArrayIndex i = 0; i < last; ++i) {
            if (!days[i].isObject()) {
                SOH_LOGE("asw day data object item type is not object\n");
                continue;
            }
            std::unique_ptr<AswDataObject> day = LoadObject(days[i], x, y);
            if (day == nullptr) {
                continue;
            }
            closedDays_.append(Serialize(*day));
            if (!weekAtStart || i >= kWeekDays) {
                continue;
            }
            if (week_ == nullptr) {
                week_ = std::move(day);
            } else {
                *week_ += *day;
            }
        }
        if (days[last].isObject()) {
            today_ = LoadObject(days[last], x, y);
        }
    }
    if (today_ == nullptr) {
        SOH_LOGE("asw day data object create failed\n");
        today_ = NewDay();  // the history and the closed days are kept
    }
}

std::unique_ptr<AswDataObject> AswBattery::NewDay() const {
    auto day = AswPolicyFactory::CreateDataInstance("Day", swellTable_->X(), swellTable_->Y());
    if (day != nullptr) {
        day->SetSupportSim(simSupport_);
    }
    return day;
}

// More than seven closed days (only a file written elsewhere holds them) are cut to the newest
// six before today joins, so that the week is always the last seven days.
void AswBattery::OverDay() {
    while (closedDays_.size() >= kWeekDays) {
        Json::Value dropped;
        closedDays_.removeIndex(0, &dropped);
    }
    closedDays_.append(Serialize(*today_));
    if (closedDays_.size() >= kWeekDays) {
        BuildWeek();
    }
    std::unique_ptr<AswDataObject> day = NewDay();
    if (day == nullptr) {
        SOH_LOGE("asw current day data object create failed in overy day\n");
    } else {
        UpdateObj(*day, ReadSample());
        today_ = std::move(day);
    }
    SaveDataToFile();
    lastSave_ = Asw::Now();
}

void AswBattery::BuildWeek() {
    const Json::Value& x = swellTable_->X();
    const Json::Value& y = swellTable_->Y();
    week_ = LoadObject(closedDays_[0], x, y);
    for (Json::ArrayIndex i = 1; week_ != nullptr && i < kWeekDays; ++i) {
        auto day = LoadObject(closedDays_[i], x, y);
        if (day != nullptr) {
            *week_ += *day;
        }
    }
    if (week_ == nullptr) {
        return;
    }
    UpdateObj(*week_, ReadSample());
    Json::Value swell = (*week_)["Aswell"];
    WeekSwell().store(swell.isNumeric() ? swell.asDouble() : 0.0, std::memory_order_seq_cst);
}
