#pragma once

#include <QTableView>
#include <memory>

#include "useragent/FileFiltersViewController.h"

namespace useragent {

// The classifiers of a file. Columns of numbers are as wide as their longest number, the names have the rest
// and are cut when they are longer. Asks for the height of one row and takes what it gets. Main thread.
class FilterTable : public QTableView {
    Q_OBJECT

 public:
    explicit FilterTable(QWidget* parent = nullptr);

    // Once.
    void showFilters(std::shared_ptr<const FileFiltersViewController> controller);

    int sizeHintForColumn(int column) const override;
    QSize minimumSizeHint() const override;
};

}  // namespace useragent
