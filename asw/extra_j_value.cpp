#include "asw/extra_j_value.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr double kEpsilon = 1e-6;

using Number = ExtraJValue::Number;

Number FromJson(const Json::Value& v) {
    return ExtraJValue::IsNumeric(v) ? Number{v.type(), v.asDouble()} : Number{Json::nullValue, 0};
}

Json::Value ToJson(const Number& n) {
    switch (n.kind) {
        case Json::intValue:
            return Json::Value(static_cast<Json::Int64>(n.value));
        case Json::uintValue:
            return Json::Value(static_cast<Json::UInt64>(n.value));
        case Json::realValue:
            return Json::Value(n.value);
        default:
            return Json::Value();
    }
}

// True when the value has no fractional part (modf would give 0): every double of magnitude
// 2^52 or more and both infinities; never NaN. Below 2^52 the value fits an int64 exactly.
bool IsIntegral(const Number& n) {
    if (n.kind == Json::intValue || n.kind == Json::uintValue) {
        return true;
    }
    constexpr double kAllIntegral = 4503599627370496.0;  // 2^52
    const double v = n.value;
    if (!(std::fabs(v) < kAllIntegral)) {
        return !std::isnan(v);
    }
    return static_cast<double>(static_cast<int64_t>(v)) == v;
}

// Integer result of an integral calculation (see the header).
Number ToInteger(double r) {
    if (r > 0) {
        constexpr double kMax = std::numeric_limits<Json::UInt>::max();
        return {Json::uintValue,
                r >= kMax ? kMax : static_cast<double>(static_cast<Json::UInt>(r))};
    }
    constexpr double kMin = std::numeric_limits<Json::Int>::min();
    if (std::isnan(r)) {
        return {Json::intValue, 0};
    }
    return {Json::intValue, r <= kMin ? kMin : static_cast<double>(static_cast<Json::Int>(r))};
}

// Calculate on plain numbers (see the header).
template <typename F>
Number CalculateNumbers(const Number& a, const Number& b, F func) {
    if (a.kind == Json::nullValue || b.kind == Json::nullValue) {
        return {Json::nullValue, 0};
    }
    double r = func(a.value, b.value);
    if (IsIntegral(a) && IsIntegral(b)) {
        return ToInteger(r);
    }
    return {Json::realValue, r};
}

template <typename F>
Json::Value CalculateValues(const Json::Value& a, const Json::Value& b, F func) {
    return ToJson(CalculateNumbers(FromJson(a), FromJson(b), func));
}

double Plus(double a, double b) {
    return a + b;
}

double Times(double a, double b) {
    return a * b;
}

double Minus(double a, double b) {
    return a - b;
}

}  // namespace

ExtraJValue::Number ExtraJValue::AddNumbers(const Number& a, const Number& b) {
    return CalculateNumbers(a, b, Plus);
}

Json::Value ExtraJValue::ToValue(const Number& n) {
    return ToJson(n);
}

ExtraJValue::Number ExtraJValue::Number::Of(const Json::Value& v) {
    return FromJson(v);
}

ExtraJValue::Sum::Sum(const Json::Value& start) {
    const Number n = FromJson(start);
    kind_ = n.kind;
    value_ = n.value;
}

void ExtraJValue::Sum::AddProduct(const Number& a, const Number& b) {
    const Number product = CalculateNumbers(a, b, Times);
    const Number sum = CalculateNumbers(Number{kind_, value_}, product, Plus);
    kind_ = sum.kind;
    value_ = sum.value;
}

void ExtraJValue::Sum::AddProducts(const Number* a, const Number* b, size_t n) {
    Number sum{kind_, value_};
    for (size_t k = 0; k < n; ++k) {
        sum = CalculateNumbers(sum, CalculateNumbers(a[k], b[k], Times), Plus);
    }
    kind_ = sum.kind;
    value_ = sum.value;
}

Json::Value ExtraJValue::Sum::Value() const {
    return ToJson(Number{kind_, value_});
}

bool ExtraJValue::IsNumeric(const Json::Value& v) {
    Json::ValueType t = v.type();
    return t == Json::intValue || t == Json::uintValue || t == Json::realValue;
}

Json::Value ExtraJValue::Calculate(const ExtraJValue& other,
                                   const std::function<double(double, double)>& func) const {
    return CalculateValues(value_, other.value_, func);
}

Json::Value ExtraJValue::Add(const Json::Value& a, const Json::Value& b) {
    return CalculateValues(a, b, Plus);
}

Json::Value ExtraJValue::Multiply(const Json::Value& a, const Json::Value& b) {
    return CalculateValues(a, b, Times);
}

Json::Value ExtraJValue::operator+(const ExtraJValue& other) const {
    return Add(value_, other.value_);
}

Json::Value ExtraJValue::operator-(const ExtraJValue& other) const {
    return Calculate(other, [](double a, double b) { return a - b; });
}

Json::Value ExtraJValue::operator*(const ExtraJValue& other) const {
    return Multiply(value_, other.value_);
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
    return Less(value_, other.value_);
}

bool ExtraJValue::Less(const Json::Value& a, const Json::Value& b) {
    if (a.type() == b.type() || !IsNumeric(a) || !IsNumeric(b)) {
        return a < b;
    }
    return LessAcrossKinds(FromJson(a), FromJson(b));
}

bool ExtraJValue::LessAcrossKinds(const Number& a, const Number& b) {
    const Number d = CalculateNumbers(a, b, Minus);
    if (d.kind == Json::realValue) {
        return d.value < 0;
    }
    return d.kind == Json::intValue && static_cast<Json::Int64>(d.value) < 0;
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
