#include "asw/asw_table.h"

#include "asw/extra_j_value.h"

namespace {

const Json::Value& NullValue() {
    static const Json::Value* null = new Json::Value;  // never destroyed: detached threads may
                                                       // still use it while the process exits
    return *null;
}

// The bin of v on an axis: the first k with not (edge[k] < v), else the extra last bin.
Json::ArrayIndex BinOf(const Json::Value& axis, const Json::Value& v) {
    ExtraJValue value(v);
    for (Json::ArrayIndex k = 0; k < axis.size(); ++k) {
        if (!(ExtraJValue(axis[k]) < value)) {
            return k;
        }
    }
    return axis.size();
}

// The cells of one row in column order, null where the row has none (as AswTable::Column
// gives them), walked with the row's iterator instead of a lookup per cell.
class RowCursor {
public:
    explicit RowCursor(const Json::Value& row)
        : array_(row.isArray()), it_(row.begin()), end_(row.end()) {}

    // The cell of `column`; columns must be asked for in increasing order from 0.
    const Json::Value& Cell(Json::ArrayIndex column) {
        if (array_ && it_ != end_ && it_.index() == column) {
            return *it_++;
        }
        return NullValue();
    }

private:
    const bool array_;
    Json::ValueConstIterator it_;
    const Json::ValueConstIterator end_;
};

}  // namespace

AswTable::AswTable(const Json::Value& x, const Json::Value& y, const Json::Value& table)
    : x_(x), y_(y), table_(table) {
    InitValueSpace();
}

AswTable::AswTable(const Json::Value& x, const Json::Value& y) : x_(x), y_(y) {
    InitValueSpace();
}

bool AswTable::HasAxes() const {
    return x_.isArray() && !x_.empty() && y_.isArray() && !y_.empty();
}

void AswTable::InitValueSpace() {
    if (!HasAxes() || !table_.isNull()) {
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
}

bool AswTable::IsLegal() const {
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
    return HasAxes() && other.HasAxes() && x_ == other.x_ && y_ == other.y_;
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

AswTable& AswTable::operator+=(const AswTable& other) {
    if (!IsLegal() || !other.IsLegal() || !(*this == other)) {
        return *this;
    }
    for (Json::ArrayIndex i = 0; i <= y_.size(); ++i) {
        for (Json::ArrayIndex j = 0; j <= x_.size(); ++j) {
            Json::Value& cell = table_[i][j];
            cell = ExtraJValue(cell) + ExtraJValue(other.table_[i][j]);
        }
    }
    return *this;
}

Json::Value AswTable::operator*(const AswTable& other) const {
    if (!(*this == other)) {
        return Json::Value();
    }
    // Cell(i, j) of both tables, row by row without a lookup per cell: this runs twice per pass.
    const Json::ArrayIndex ny = y_.size();
    const Json::ArrayIndex nx = x_.size();
    ExtraJValue::Sum sum(Json::Value(Json::Int(0)));
    for (Json::ArrayIndex i = 0; i <= ny; ++i) {
        RowCursor mine(Row(i));
        RowCursor theirs(other.Row(i));
        for (Json::ArrayIndex j = 0; j <= nx; ++j) {
            sum.AddProduct(mine.Cell(j), theirs.Cell(j));
        }
    }
    return sum.Value();
}

Json::Value& AswTable::operator()(const Json::Value& x, const Json::Value& y) {
    if (!IsLegal()) {
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
    return table_[BinOf(y_, y)][BinOf(x_, x)];
}

Json::Value AswTable::AccumulateX(const Json::Value& threshold) const {
    Json::Value sum(Json::Int(0));
    if (!table_.isArray() || !x_.isArray()) {
        return sum;
    }
    ExtraJValue t(threshold);
    Json::ArrayIndex nx = x_.size();
    for (Json::ArrayIndex i = 0; i < table_.size(); ++i) {
        for (Json::ArrayIndex j = 1; j <= nx; ++j) {
            if (j == nx || t < ExtraJValue(x_[j])) {
                sum = ExtraJValue(sum) + ExtraJValue(Cell(i, j));
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
    ExtraJValue t(threshold);
    Json::ArrayIndex ny = y_.size();
    for (Json::ArrayIndex i = 1; i <= ny; ++i) {
        if (i == ny || t < ExtraJValue(y_[i])) {
            for (Json::ArrayIndex j = 0; j <= x_.size(); ++j) {
                sum = ExtraJValue(sum) + ExtraJValue(Cell(i, j));
            }
        }
    }
    return sum;
}
