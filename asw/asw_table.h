// AswTable: a two-axis table of the anti-swelling estimator, used both for the configured
// swell rates (swell per day spent in a bin) and for the seconds spent in each bin.
//
//   X axis ("Vbat"): nx bin edges of battery voltage, mV, ascending
//   Y axis ("Temp"): ny bin edges of battery temperature, whole degC, ascending
//   table ("Table" in configuration, "SwellTimes" in the data file): ny + 1 rows of nx + 1
//       numbers; row = temperature bin, column = voltage bin
//
// Bin k of an axis holds edge[k-1] < v <= edge[k] (closed on the right); bin 0 holds
// v <= edge[0] and the extra bin n holds v > edge[n-1]. Edge order is not checked. Values
// are compared and added with ExtraJValue, so counters of any JSON number kind mix.
//
// A table is legal when both axes are non-empty arrays, the table has exactly ny + 1 rows
// and every row is an array of exactly nx + 1 elements. Nothing here throws on a malformed
// table: cell access on an illegal table resets cell [0][0] to 0 and returns it.
//
// A product reads the cells of both tables as numbers kept beside the JSON table: built at the
// first product, refreshed for the one cell operator() handed out since, rebuilt after any
// other change. A product therefore costs a pass over plain numbers, not over JSON values.
// The axes never change after construction: their edges are also kept as a plain vector, so
// that bin searches and axis comparisons do not walk the JSON arrays.
//
// No shared state; one thread per object.
#pragma once

#include <json/json.h>

#include <vector>

#include "asw/extra_j_value.h"

class AswTable {
public:
    // Copies the axes and the table; a null table on array axes becomes all zeros.
    AswTable(const Json::Value& x, const Json::Value& y, const Json::Value& table);
    AswTable(const Json::Value& x, const Json::Value& y);
    // A copy has the same axes and cells; its numbers are built afresh at its first product.
    AswTable(const AswTable& other);
    AswTable& operator=(const AswTable& other);
    virtual ~AswTable() = default;

    bool IsLegal() const { return legal_; }
    // Same non-empty array axes; the cells are not compared.
    bool operator==(const AswTable& other) const;
    // Adds the other table cell by cell when both are legal with equal axes; else no change.
    AswTable& operator+=(const AswTable& other);
    // Sum over all cells of cell * other cell (signed 0 for no cells); null unless the axes
    // are equal.
    Json::Value operator*(const AswTable& other) const;
    // The same product as a plain number (kind nullValue where operator* gives null).
    ExtraJValue::Number Product(const AswTable& other) const;
    // The cell of the bin holding (x, y). The reference is for changing the cell at once: it
    // must not be kept past the next call on this table.
    Json::Value& operator()(const Json::Value& x, const Json::Value& y);
    // Sum of the cells of every row in columns j = 1..nx with j == nx or t < X[j]
    // (column 0 is never counted).
    Json::Value AccumulateX(const Json::Value& threshold) const;
    // Sum of all cells of rows i = 1..ny with i == ny or t < Y[i] (row 0 is never counted).
    Json::Value AccumulateY(const Json::Value& threshold) const;

    const Json::Value& X() const { return x_; }
    const Json::Value& Y() const { return y_; }
    const Json::Value& Table() const { return table_; }

private:
    // An axis element (or a value looked up on an axis) with what comparisons read from it,
    // taken once: its number (kind nullValue when not numeric) and, for the integer kinds, its
    // exact integer. `value` points into the axis (or at the caller's value): edges are made
    // afresh whenever the axes are copied.
    struct Edge {
        const Json::Value* value;
        ExtraJValue::Number number;
        Json::LargestInt i = 0;
        Json::LargestUInt u = 0;
        static Edge Of(const Json::Value& v);
    };
    // ExtraJValue::Less and Json::Value's == on edges.
    static bool EdgeLess(const Edge& a, const Edge& b);
    static bool EdgeEqual(const Edge& a, const Edge& b);
    static Json::ArrayIndex BinOf(const std::vector<Edge>& edges, const Json::Value& v);
    static std::vector<Edge> EdgesOf(const Json::Value& axis, bool& dense);

    void InitValueSpace();
    void InitEdges();
    void InitCells();
    bool HasAxes() const;
    bool SameAxes(const AswTable& other) const;
    // Sum of cell * other cell over all cells in row order; the axes must be equal.
    ExtraJValue::Sum ProductSum(const AswTable& other) const;
    // Legality is decided when the table is made: no later change can alter it, since writes
    // go to cells of a legal table (row lengths stay) or, on an illegal one, to cell [0][0],
    // which cannot give it the required rows.
    bool CheckLegal() const;
    // Cell [row][column], or null when it does not exist; Row and Column are its two steps.
    const Json::Value& Cell(Json::ArrayIndex row, Json::ArrayIndex column) const;
    const Json::Value& Row(Json::ArrayIndex row) const;
    static const Json::Value& Column(const Json::Value& row, Json::ArrayIndex column);
    // Cell(i, j) of every i <= ny, j <= nx as numbers, row by row; only with axes.
    const std::vector<ExtraJValue::Number>& Numbers() const;
    // Drops the numbers after a change that can touch any cell.
    void ForgetNumbers() { numbersValid_ = false; }

    Json::Value x_;
    Json::Value y_;
    Json::Value table_;
    bool legal_ = false;
    bool hasAxes_ = false;
    // x_[k] and y_[k] for every k < size(); denseAxes_ when every index of both arrays is
    // stored (always so for parsed arrays), the case in which comparing the edges equals
    // comparing the JSON arrays.
    std::vector<Edge> xEdges_;
    std::vector<Edge> yEdges_;
    bool denseAxes_ = false;
    // The cells of a legal table whose rows store every index, row by row, as addresses of
    // table_'s elements; empty otherwise (cells are then looked up in the JSON arrays). The
    // structure of such a table never changes, so the addresses hold until table_ is
    // replaced, which only the constructors and the assignment do; they rebuild them.
    std::vector<Json::Value*> cells_;
    mutable std::vector<ExtraJValue::Number> numbers_;
    mutable bool numbersValid_ = false;
    // The cell operator() handed out since numbers_ was built (row * (nx + 1) + column), or
    // kNoCell; it is read again before the numbers are used.
    static constexpr size_t kNoCell = static_cast<size_t>(-1);
    mutable size_t staleCell_ = kNoCell;
};
