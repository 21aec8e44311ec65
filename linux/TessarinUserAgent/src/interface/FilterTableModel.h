#pragma once

#include <QAbstractTableModel>
#include <memory>
#include <vector>

#include "useragent/FileFiltersViewController.h"

namespace useragent {

// The rows of a controller, asked anew at each look, as its records never change.
class FilterTableModel : public QAbstractTableModel {
    Q_OBJECT

 public:
    // A header's role: the identifier of the column in the controller.
    static constexpr int kIdentifierRole = Qt::UserRole;
    // A header's role: the longest text of a column of numbers; other columns have none.
    static constexpr int kLongestNumberRole = Qt::UserRole + 1;

    static constexpr int kNameColumn = 0;
    static constexpr int kCheckBoxColumn = 1;

    FilterTableModel(std::shared_ptr<const FileFiltersViewController> controller, QObject* parent);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

 private:
    const std::shared_ptr<const FileFiltersViewController> controller_;
    const std::vector<QVariant> longestNumbers_;  // by column; null for other columns
};

}  // namespace useragent
