#include "asw/asw_table.h"

#include <algorithm>

#include "asw/extra_j_value.h"

namespace {

const Json::Value& NullValue() {
    static const Json::Value* null = new Json::Value;  // never destroyed: detached threads may
                                                       // still use it while the process exits
    return *null;
}

// The number of elements an array stores (size() counts up to the last index).
Json::ArrayIndex StoredCount(const Json::Value& array) {
    Json::ArrayIndex stored = 0;
    for (auto it = array.begin(); it != array.end(); ++it) {
        ++stored;
    }
    return stored;
}

}  // namespace

AswTable::Edge AswTable::Edge::Of(const Json::Value& v) {
    Edge e{&v, ExtraJValue::Number::Of(v)};
    if (e.number.kind == Json::intValue) {
        e.i = v.asLargestInt();
    } else if (e.number.kind == Json::uintValue) {
        e.u = v.asLargestUInt();
    }
    return e;
}

bool AswTable::EdgeLess(const Edge& a, const Edge& b) {
    const Json::ValueType ka = a.number.kind;
    const Json::ValueType kb = b.number.kind;
    if (ka == Json::nullValue || kb == Json::nullValue) {
        return *a.value < *b.value;
    }
    if (ka != kb) {
        return ExtraJValue::LessAcrossKinds(a.number, b.number);
    }
    switch (ka) {  // Json::Value's own order within one numeric kind
        case Json::intValue:
            return a.i < b.i;
        case Json::uintValue:
            return a.u < b.u;
        default:
            return a.number.value < b.number.value;
    }
}

bool AswTable::EdgeEqual(const Edge& a, const Edge& b) {
    const Json::ValueType ka = a.number.kind;
    const Json::ValueType kb = b.number.kind;
    if (ka == Json::nullValue || kb == Json::nullValue) {
        return *a.value == *b.value;
    }
    if (ka != kb) {
        return false;
    }
    switch (ka) {
        case Json::intValue:
            return a.i == b.i;
        case Json::uintValue:
            return a.u == b.u;
        default:
            return a.number.value == b.number.value;
    }
}

// The bin of v on an axis: the first k with not (edge[k] < v), else the extra last bin.
Json::ArrayIndex AswTable::BinOf(const std::vector<Edge>& edges, const Json::Value& v) {
    const Edge value = Edge::Of(v);
    for (size_t k = 0; k < edges.size(); ++k) {
        if (!EdgeLess(edges[k], value)) {
            return static_cast<Json::ArrayIndex>(k);
        }
    }
    return static_cast<Json::ArrayIndex>(edges.size());
}

// The axis' elements by index (null where an index is not stored); `dense` is cleared when
// some index below size() is not stored.
std::vector<AswTable::Edge> AswTable::EdgesOf(const Json::Value& axis, bool& dense) {
    std::vector<Edge> edges;
    if (!axis.isArray()) {
        return edges;
    }
    edges.reserve(axis.size());
    for (Json::ArrayIndex k = 0; k < axis.size(); ++k) {
        edges.push_back(Edge::Of(axis[k]));
    }
    dense = dense && StoredCount(axis) == axis.size();
    return edges;
}

AswTable::AswTable(const AswTable& other)
    : x_(other.x_), y_(other.y_), table_(other.table_), legal_(other.legal_) {
    InitEdges();
    InitCells();
}

AswTable& AswTable::operator=(const AswTable& other) {
    if (this == &other) {
        return *this;
    }
    x_ = other.x_;
    y_ = other.y_;
    table_ = other.table_;
    legal_ = other.legal_;
    InitEdges();
    numbers_.clear();
    numbersValid_ = false;
    staleCell_ = kNoCell;
    InitCells();
    return *this;
}

void AswTable::InitCells() {
    cells_.clear();
    if (!legal_ || StoredCount(table_) != table_.size()) {
        return;
    }
    for (const Json::Value& row : table_) {
        if (StoredCount(row) != row.size()) {
            return;
        }
    }
    cells_.reserve(static_cast<size_t>(table_.size()) * (x_.size() + 1));
    for (Json::ArrayIndex i = 0; i < table_.size(); ++i) {
        Json::Value& row = table_[i];
        for (Json::ArrayIndex j = 0; j <= x_.size(); ++j) {
            cells_.push_back(&row[j]);
        }
    }
}

AswTable::AswTable(const Json::Value& x, const Json::Value& y, const Json::Value& table)
    : x_(x), y_(y), table_(table) {
    InitValueSpace();
}

AswTable::AswTable(const Json::Value& x, const Json::Value& y) : x_(x), y_(y) {
    InitValueSpace();
}

bool AswTable::HasAxes() const {
    return hasAxes_;
}

void AswTable::InitEdges() {
    hasAxes_ = x_.isArray() && !x_.empty() && y_.isArray() && !y_.empty();
    denseAxes_ = true;
    xEdges_ = EdgesOf(x_, denseAxes_);
    yEdges_ = EdgesOf(y_, denseAxes_);
}

void AswTable::InitValueSpace() {
    InitEdges();
    if (!HasAxes() || !table_.isNull()) {
        legal_ = CheckLegal();
        InitCells();
        return;
    }
    Json::Value row(Json::arrayValue);
    for (Json::ArrayIndex j = 0; j <= x_.size(); ++j) {
        row.append(Json::Value(Json::Int(0)));
    }
    table_ = Json::Value(Json::arrayValue);
    for (Json::ArrayIndex i = 0; i <= y_.size(); ++i) {
        table_.append(row);
    }
    legal_ = CheckLegal();
    InitCells();
}

bool AswTable::CheckLegal() const {
    if (!HasAxes() || !table_.isArray() || table_.size() != y_.size() + 1) {
        return false;
    }
    for (const Json::Value& row : table_) {
        if (!row.isArray() || row.size() != x_.size() + 1) {
            return false;
        }
    }
    return true;
}

bool AswTable::operator==(const AswTable& other) const {
    return HasAxes() && other.HasAxes() && SameAxes(other);
}

bool AswTable::SameAxes(const AswTable& other) const {
    if (denseAxes_ && other.denseAxes_) {
        return std::equal(xEdges_.begin(), xEdges_.end(), other.xEdges_.begin(),
                          other.xEdges_.end(), EdgeEqual) &&
               std::equal(yEdges_.begin(), yEdges_.end(), other.yEdges_.begin(),
                          other.yEdges_.end(), EdgeEqual);
    }
    return x_ == other.x_ && y_ == other.y_;
}

const Json::Value& AswTable::Row(Json::ArrayIndex row) const {
    if (!table_.isArray() || row >= table_.size()) {
        return NullValue();
    }
    return table_[row];
}

const Json::Value& AswTable::Column(const Json::Value& row, Json::ArrayIndex column) {
    if (!row.isArray() || column >= row.size()) {
        return NullValue();
    }
    return row[column];
}

const Json::Value& AswTable::Cell(Json::ArrayIndex row, Json::ArrayIndex column) const {
    return Column(Row(row), column);
}

const std::vector<ExtraJValue::Number>& AswTable::Numbers() const {
    // Products need axes, so the edges are the whole X axis.
    const Json::ArrayIndex columns = static_cast<Json::ArrayIndex>(xEdges_.size()) + 1;
    if (!numbersValid_) {
        numbers_.clear();
        numbers_.reserve(static_cast<size_t>(y_.size() + 1) * columns);
        for (Json::ArrayIndex i = 0; i <= y_.size(); ++i) {
            const Json::Value& row = Row(i);
            for (Json::ArrayIndex j = 0; j < columns; ++j) {
                numbers_.push_back(ExtraJValue::Number::Of(Column(row, j)));
            }
        }
        numbersValid_ = true;
    } else if (staleCell_ != kNoCell) {
        const auto row = static_cast<Json::ArrayIndex>(staleCell_ / columns);
        const auto column = static_cast<Json::ArrayIndex>(staleCell_ % columns);
        numbers_[staleCell_] =
            ExtraJValue::Number::Of(cells_.empty() ? Cell(row, column) : *cells_[staleCell_]);
    }
    staleCell_ = kNoCell;
    return numbers_;
}

AswTable& AswTable::operator+=(const AswTable& other) {
    if (!IsLegal() || !other.IsLegal() || !(*this == other)) {
        return *this;
    }
    ForgetNumbers();
    for (Json::ArrayIndex i = 0; i <= y_.size(); ++i) {
        for (Json::ArrayIndex j = 0; j <= x_.size(); ++j) {
            Json::Value& cell = table_[i][j];
            cell = ExtraJValue::Add(cell, other.table_[i][j]);
        }
    }
    return *this;
}

Json::Value AswTable::operator*(const AswTable& other) const {
    if (!(*this == other)) {
        return Json::Value();
    }
    return ProductSum(other).Value();
}

ExtraJValue::Number AswTable::Product(const AswTable& other) const {
    if (!(*this == other)) {
        return ExtraJValue::Number{Json::nullValue, 0.0};
    }
    return ProductSum(other).Result();
}

ExtraJValue::Sum AswTable::ProductSum(const AswTable& other) const {
    // Cell(i, j) of both tables in row order (equal axes: equal shapes). This runs twice per
    // pass, so it works on the numbers kept beside the JSON cells.
    const std::vector<ExtraJValue::Number>& mine = Numbers();
    const std::vector<ExtraJValue::Number>& theirs = other.Numbers();
    ExtraJValue::Sum sum(ExtraJValue::Number{Json::intValue, 0.0});  // Number::Of(Json::Int(0))
    sum.AddProducts(mine.data(), theirs.data(), mine.size());
    return sum;
}

Json::Value& AswTable::operator()(const Json::Value& x, const Json::Value& y) {
    if (!IsLegal()) {
        ForgetNumbers();
        if (!table_.isArray()) {
            table_ = Json::Value(Json::arrayValue);
        }
        if (!table_[0].isArray()) {
            table_[0] = Json::Value(Json::arrayValue);
        }
        Json::Value& cell = table_[0][0];
        cell = Json::Value(Json::Int(0));
        return cell;
    }
    const Json::ArrayIndex row = BinOf(yEdges_, y);
    const Json::ArrayIndex column = BinOf(xEdges_, x);
    const size_t cell = static_cast<size_t>(row) * (xEdges_.size() + 1) + column;
    if (staleCell_ != kNoCell && staleCell_ != cell) {
        ForgetNumbers();  // only one handed-out cell is tracked
    }
    staleCell_ = cell;
    return cells_.empty() ? table_[row][column] : *cells_[cell];
}

Json::Value AswTable::AccumulateX(const Json::Value& threshold) const {
    Json::Value sum(Json::Int(0));
    if (!table_.isArray() || !x_.isArray()) {
        return sum;
    }
    const Edge t = Edge::Of(threshold);
    Json::ArrayIndex nx = x_.size();
    for (Json::ArrayIndex i = 0; i < table_.size(); ++i) {
        for (Json::ArrayIndex j = 1; j <= nx; ++j) {
            if (j == nx || EdgeLess(t, xEdges_[j])) {
                sum = ExtraJValue::Add(sum, Cell(i, j));
            }
        }
    }
    return sum;
}

Json::Value AswTable::AccumulateY(const Json::Value& threshold) const {
    Json::Value sum(Json::Int(0));
    if (!table_.isArray() || !y_.isArray() || !x_.isArray()) {
        return sum;
    }
    const Edge t = Edge::Of(threshold);
    Json::ArrayIndex ny = y_.size();
    for (Json::ArrayIndex i = 1; i <= ny; ++i) {
        if (i == ny || EdgeLess(t, yEdges_[i])) {
            for (Json::ArrayIndex j = 0; j <= x_.size(); ++j) {
                sum = ExtraJValue::Add(sum, Cell(i, j));
            }
        }
    }
    return sum;
}
