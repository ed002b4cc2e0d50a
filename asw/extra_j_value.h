// ExtraJValue: arithmetic and comparison over JSON numbers whose kind (signed integer,
// unsigned integer, real) may differ, as the anti-swelling counters and tables mix them.
//
// A value is numeric when its JSON type is a signed integer, an unsigned integer or a real.
// - Calculate(b, f): null when either operand is not numeric. Otherwise r = f(a, b) in
//   doubles; when both operands are integral (integer kinds, or reals without a fraction)
//   the result is an integer: r > 0 gives an unsigned r truncated and saturated at
//   4294967295, r <= 0 a signed r truncated toward zero (saturated at -2147483648).
//   Otherwise the result is the real r.
// - +, -, * are Calculate with the obvious function; / is null for a non-numeric operand,
//   signed 0 when |b| < 1e-6, else the real a / b (even for integer operands).
// - < and ==: jsoncpp's own comparison when both have the same JSON type or either is not
//   numeric; otherwise decided by the sign of a - b (equal: |a - b| < 1e-6 for reals).
//
// Holds a copy of its value; operations never change the operands. No shared state.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <functional>

class ExtraJValue {
public:
    explicit ExtraJValue(const Json::Value& value) : value_(value) {}
    virtual ~ExtraJValue() = default;

    Json::Value operator+(const ExtraJValue& other) const;
    Json::Value operator-(const ExtraJValue& other) const;
    Json::Value operator*(const ExtraJValue& other) const;
    Json::Value operator/(const ExtraJValue& other) const;
    bool operator<(const ExtraJValue& other) const;
    bool operator==(const ExtraJValue& other) const;

    Json::Value Calculate(const ExtraJValue& other,
                          const std::function<double(double, double)>& func) const;

    const Json::Value& Value() const { return value_; }
    // True for the signed, unsigned and real JSON types.
    static bool IsNumeric(const Json::Value& v);
    // ExtraJValue(a) + ExtraJValue(b) and ExtraJValue(a) * ExtraJValue(b), without copying the
    // operands (for loops over whole tables).
    static Json::Value Add(const Json::Value& a, const Json::Value& b);
    static Json::Value Multiply(const Json::Value& a, const Json::Value& b);
    // ExtraJValue(a) < ExtraJValue(b), without copying the operands (for searches on axes).
    static bool Less(const Json::Value& a, const Json::Value& b);

    // A JSON value reduced to what the rules look at: its kind (nullValue for anything that
    // is not numeric) and its value as asDouble() gives it. Lets a caller read a table once
    // and compute with it many times.
    struct Number {
        Json::ValueType kind;
        double value;
        static Number Of(const Json::Value& v);
    };
    // The < rule for two numeric operands of different kinds, given as Numbers: the sign of
    // a - b.
    static bool LessAcrossKinds(const Number& a, const Number& b);
    // Number::Of(ExtraJValue(a) + ExtraJValue(b)) for operands given as Numbers; null when
    // either is (an operand that is not numeric).
    static Number AddNumbers(const Number& a, const Number& b);
    // The JSON value a Number stands for (null for kind nullValue); Number::Of gives it back
    // for every result of these rules.
    static Json::Value ToValue(const Number& n);

    // A running sum of products: each step is sum = sum + a * b with the rules above, the sum
    // kept as a plain number between steps (the inner loop of a table product).
    class Sum {
    public:
        explicit Sum(const Json::Value& start);
        explicit Sum(const Number& start) : kind_(start.kind), value_(start.value) {}
        void AddProduct(const Number& a, const Number& b);
        // AddProduct(a[k], b[k]) for k = 0 .. n - 1, in that order.
        void AddProducts(const Number* a, const Number* b, size_t n);
        Json::Value Value() const;
        // The sum as a plain number: Number::Of(Value()) without building the JSON value.
        Number Result() const { return Number{kind_, value_}; }

    private:
        Json::ValueType kind_;  // nullValue once an operand was not numeric
        double value_;
    };

private:
    Json::Value value_;
};
