#pragma once

#include <QAbstractTableModel>
#include <memory>

#include "useragent/FileFiltersViewController.h"

namespace useragent {

// The rows of a controller, asked anew at each look, as its records never change.
class FilterTableModel : public QAbstractTableModel {
    Q_OBJECT

 public:
    // The identifier of a column in the controller.
    static constexpr int kIdentifierRole = Qt::UserRole;

    FilterTableModel(std::shared_ptr<const FileFiltersViewController> controller, QObject* parent);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

 private:
    const std::shared_ptr<const FileFiltersViewController> controller_;
};

}  // namespace useragent
