#include "interface/FilterTable.h"

#include <QFontMetrics>
#include <QHeaderView>
#include <QScrollBar>
#include <algorithm>
#include <utility>

#include "interface/CheckBoxDelegate.h"
#include "interface/FilterTableModel.h"

namespace useragent {

namespace {

constexpr int kRowMargin = 6;

// With each digit as wide as the widest: of numbers of one length another may be wider than the first.
QString WithWidestDigits(QString number, const QFontMetricsF& font) {
    const QString digits = QStringLiteral("0123456789");
    const QChar widest = *std::max_element(digits.begin(), digits.end(), [&font](QChar one, QChar other) {
        return font.horizontalAdvance(one) < font.horizontalAdvance(other);
    });
    std::replace_if(
        number.begin(), number.end(), [&digits](QChar each) { return digits.contains(each); }, widest);
    return number;
}

}  // namespace

FilterTable::FilterTable(QWidget* parent) : QTableView(parent) {
    setItemDelegateForColumn(FilterTableModel::kCheckBoxColumn, new CheckBoxDelegate(this));
    QHeaderView& rows = *verticalHeader();
    rows.setSectionResizeMode(QHeaderView::Fixed);
    rows.setDefaultSectionSize(fontMetrics().height() + kRowMargin);
    // Its own height changes what is asked for.
    connect(horizontalScrollBar(), &QScrollBar::rangeChanged, this, [this] { updateGeometry(); });
}

void FilterTable::showFilters(std::shared_ptr<const FileFiltersViewController> controller) {
    setModel(new FilterTableModel(std::move(controller), this));
    QHeaderView& header = *horizontalHeader();
    header.setSectionResizeMode(QHeaderView::ResizeToContents);
    header.setSectionResizeMode(FilterTableModel::kNameColumn, QHeaderView::Stretch);
}

int FilterTable::sizeHintForColumn(int column) const {
    const QVariant longest =
        model()->headerData(column, Qt::Horizontal, FilterTableModel::kLongestNumberRole);
    if (!longest.isValid()) {
        return QTableView::sizeHintForColumn(column);
    }
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    option.features |= QStyleOptionViewItem::HasDisplay;
    option.text = WithWidestDigits(longest.toString(), QFontMetricsF(option.font));
    const QSize cell = style()->sizeFromContents(QStyle::CT_ItemViewItem, &option, QSize(), this);
    return cell.width() + (showGrid() ? 1 : 0);
}

QSize FilterTable::minimumSizeHint() const {
    const bool hasRows = model() != nullptr && model()->rowCount() > 0;
    const QScrollBar& bar = *horizontalScrollBar();
    const int height = horizontalHeader()->sizeHint().height() +
                       (hasRows ? verticalHeader()->defaultSectionSize() : 0) +
                       (bar.minimum() < bar.maximum() ? bar.sizeHint().height() : 0) + 2 * frameWidth();
    return {QTableView::minimumSizeHint().width(), height};
}

}  // namespace useragent
