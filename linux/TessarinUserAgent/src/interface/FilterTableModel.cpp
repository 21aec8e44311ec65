#include "interface/FilterTableModel.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "interface/ToolTip.h"
#include "useragent/DisplayText.h"

namespace useragent {

namespace {

struct Column {
    const char* identifier;
    const char* header;
    bool isNumber;
};

const std::array<Column, 4> kColumns{{
    {kFilterNameKey, "Classifier", false},
    {kSensitiveTypeColumn, "Sensitive", false},
    {kCountColumn, "Count", true},
    {kCostColumn, "Risk (USD)", true},
}};

const Column& ColumnAt(int section) {
    return kColumns.at(static_cast<std::size_t>(section));
}

QVariant AlignmentOf(const Column& column) {
    return QVariant((column.isNumber ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
}

std::vector<QVariant> LongestNumbers(const FileFiltersViewController& controller) {
    std::vector<QVariant> longest;
    longest.reserve(std::size(kColumns));
    for (const Column& column : kColumns) {
        longest.push_back(column.isNumber ? QVariant(QString::fromStdString(
                                                OneLine(controller.longestText(column.identifier))))
                                          : QVariant());
    }
    return longest;
}

QVariant TextOf(const FilterCell& cell, int role) {
    if (const auto* text = std::get_if<std::string>(&cell)) {
        return QString::fromStdString(OneLine(*text));
    }
    // A check box has no text; a screen reader says what it shows.
    const QString state = std::get<DisabledCheckBox>(cell).on ? "sensitive" : "not sensitive";
    return role == Qt::DisplayRole ? QVariant() : QVariant(state);
}

}  // namespace

FilterTableModel::FilterTableModel(std::shared_ptr<const FileFiltersViewController> controller,
                                   QObject* parent)
    : QAbstractTableModel(parent),
      controller_(std::move(controller)),
      longestNumbers_(LongestNumbers(*controller_)) {}

int FilterTableModel::rowCount(const QModelIndex& parent) const {
    constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<int>::max());
    return parent.isValid() ? 0 : static_cast<int>(std::min(controller_->numberOfRows(), kMost));
}

int FilterTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(kColumns.size());
}

QVariant FilterTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount() || index.column() >= columnCount()) {
        return {};
    }
    const Column& column = ColumnAt(index.column());
    const auto cell = [&] {
        return controller_->objectValue(column.identifier, static_cast<std::size_t>(index.row()));
    };
    switch (role) {
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole:
            return TextOf(cell(), role);
        case Qt::ToolTipRole:
            return index.column() == kNameColumn ? QVariant(ToolTipOf(TextOf(cell(), role).toString()))
                                                 : QVariant();
        case Qt::CheckStateRole: {
            const FilterCell value = cell();
            const auto* box = std::get_if<DisabledCheckBox>(&value);
            return box != nullptr ? QVariant(box->on ? Qt::Checked : Qt::Unchecked) : QVariant();
        }
        case Qt::TextAlignmentRole:
            return AlignmentOf(column);
        default:
            return {};
    }
}

QVariant FilterTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section < 0 || section >= columnCount()) {
        return {};
    }
    const Column& column = ColumnAt(section);
    switch (role) {
        case Qt::DisplayRole:
            return QString(column.header);
        case Qt::TextAlignmentRole:
            return AlignmentOf(column);
        case kIdentifierRole:
            return QString(column.identifier);
        case kLongestNumberRole:
            return longestNumbers_.at(static_cast<std::size_t>(section));
        default:
            return {};
    }
}

Qt::ItemFlags FilterTableModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    const bool isCheckBox = ColumnAt(index.column()).identifier == std::string_view(kSensitiveTypeColumn);
    // Not enabled: it is there to be read.
    return isCheckBox ? Qt::ItemIsUserCheckable | Qt::ItemNeverHasChildren
                      : Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

}  // namespace useragent
