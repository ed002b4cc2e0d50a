#include "asw/extra_j_value.h"

#include <cmath>
#include <limits>

namespace {

constexpr double kEpsilon = 1e-6;

bool IsIntegral(const Json::Value& v) {
    if (v.type() == Json::intValue || v.type() == Json::uintValue) {
        return true;
    }
    double whole = 0.0;
    return std::modf(v.asDouble(), &whole) == 0.0;
}

// Integer result of an integral calculation (see the header).
Json::Value ToInteger(double r) {
    if (r > 0) {
        constexpr double kMax = std::numeric_limits<Json::UInt>::max();
        return Json::Value(r >= kMax ? std::numeric_limits<Json::UInt>::max()
                                     : static_cast<Json::UInt>(r));
    }
    constexpr double kMin = std::numeric_limits<Json::Int>::min();
    if (std::isnan(r)) {
        return Json::Value(Json::Int(0));
    }
    return Json::Value(r <= kMin ? std::numeric_limits<Json::Int>::min()
                                 : static_cast<Json::Int>(r));
}

}  // namespace

bool ExtraJValue::IsNumeric(const Json::Value& v) {
    Json::ValueType t = v.type();
    return t == Json::intValue || t == Json::uintValue || t == Json::realValue;
}

Json::Value ExtraJValue::Calculate(const ExtraJValue& other,
                                   const std::function<double(double, double)>& func) const {
    const Json::Value& a = value_;
    const Json::Value& b = other.value_;
    if (!IsNumeric(a) || !IsNumeric(b)) {
        return Json::Value();
    }
    double r = func(a.asDouble(), b.asDouble());
    if (IsIntegral(a) && IsIntegral(b)) {
        return ToInteger(r);
    }
    return Json::Value(r);
}

Json::Value ExtraJValue::operator+(const ExtraJValue& other) const {
    return Calculate(other, [](double a, double b) { return a + b; });
}

Json::Value ExtraJValue::operator-(const ExtraJValue& other) const {
    return Calculate(other, [](double a, double b) { return a - b; });
}

Json::Value ExtraJValue::operator*(const ExtraJValue& other) const {
    return Calculate(other, [](double a, double b) { return a * b; });
}

Json::Value ExtraJValue::operator/(const ExtraJValue& other) const {
    if (!IsNumeric(value_) || !IsNumeric(other.value_)) {
        return Json::Value();
    }
    double b = other.value_.asDouble();
    if (std::fabs(b) < kEpsilon) {
        return Json::Value(Json::Int(0));
    }
    return Json::Value(value_.asDouble() / b);
}

bool ExtraJValue::operator<(const ExtraJValue& other) const {
    if (value_.type() == other.value_.type() || !IsNumeric(value_) || !IsNumeric(other.value_)) {
        return value_ < other.value_;
    }
    Json::Value d = *this - other;
    if (d.type() == Json::realValue) {
        return d.asDouble() < 0;
    }
    return d.type() == Json::intValue && d.asInt64() < 0;
}

bool ExtraJValue::operator==(const ExtraJValue& other) const {
    if (value_.type() == other.value_.type() || !IsNumeric(value_) || !IsNumeric(other.value_)) {
        return value_ == other.value_;
    }
    Json::Value d = *this - other;
    switch (d.type()) {
        case Json::realValue:
            return std::fabs(d.asDouble()) < kEpsilon;
        case Json::uintValue:
            return d.asUInt64() == 0;
        case Json::intValue:
            return d.asInt64() == 0;
        default:
            return false;
    }
}
