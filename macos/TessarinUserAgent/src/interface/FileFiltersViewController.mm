#import "interface/FileFiltersViewController.h"

#include <exception>
#include <string>
#include <utility>
#include <variant>

#include "common/log.h"
#import "common_mac/FoundationBridges.h"
#import "interface/FilterRecords.h"
#include "useragent/DisplayText.h"

namespace {

constexpr CGFloat kCheckBoxHeight = 20;
constexpr CGFloat kTextInset = 2;

void SetText(NSTextField* label, const std::string& text) {
    label.stringValue = cmn::ToNSString(text);
}

// A text that may be too long for its place, and is whole in its tooltip.
void SetLongText(NSTextField* label, const std::string& text) {
    SetText(label, text);
    label.toolTip = label.stringValue;
}

// The button as a cell's only content.
NSTableCellView* CellWithButton(NSButton* button) {
    NSTableCellView* const cell = [[NSTableCellView alloc] initWithFrame:button.frame];
    [cell addSubview:button];
    return cell;
}

bool HoldsNumbers(NSTableColumn* column) {
    const std::string identifier = cmn::ToStdString(column.identifier);
    return identifier == useragent::kCountColumn || identifier == useragent::kCostColumn;
}

NSTableCellView* CellWithText(NSTableView* tableView, NSTableColumn* column, id owner) {
    id const reused = [tableView makeViewWithIdentifier:column.identifier owner:owner];
    if ([reused isKindOfClass:[NSTableCellView class]]) {
        return reused;
    }
    const NSRect frame = NSMakeRect(0, 0, column.width, kCheckBoxHeight);
    NSTableCellView* const cell = [[NSTableCellView alloc] initWithFrame:frame];
    NSTextField* const field = [NSTextField labelWithString:@""];
    field.frame = NSInsetRect(frame, kTextInset, 0);
    field.autoresizingMask = NSViewWidthSizable;
    [cell addSubview:field];
    // Names are cut where they are too long; columns of numbers are wide enough.
    field.lineBreakMode = NSLineBreakByTruncatingTail;
    field.alignment = HoldsNumbers(column) ? NSTextAlignmentRight : NSTextAlignmentNatural;
    cell.textField = field;
    cell.identifier = column.identifier;
    return cell;
}

}  // namespace

@implementation FileFiltersViewController {
    std::unique_ptr<useragent::FileFiltersViewController> _content;
    // By row. The table asks for a cell's view and for its value, which is the same button.
    NSMutableDictionary<NSNumber*, NSButton*>* _checkBoxes;
}

- (void)setContent:(std::unique_ptr<useragent::FileFiltersViewController>)content {
    _content = std::move(content);
}

- (void)viewDidLoad {
    [super viewDidLoad];
    if (_content) {
        const auto texts = _content->viewDidLoad(cmn::ToStdString(self.encryptionInfo.stringValue));
        SetLongText(self.fileNameLabel, texts.fileNameLabel);
        SetText(self.fileStateLabel, texts.fileStateLabel);
        SetLongText(self.serverIDLabel, texts.serverIDLabel);
        SetLongText(self.totalRiskLabel, texts.totalRiskLabel);
        SetLongText(self.totalSensetiveRiskLabel, texts.totalSensetiveRiskLabel);
        SetText(self.encryptionStatusLabel, texts.encryptionStatusLabel);
        SetText(self.encryptionPredictLabel, texts.encryptionPredictLabel);
        SetText(self.encryptionInfo, texts.encryptionInfo);
        [self fitColumnsOfNumbers];
    }
    [self.tableView reloadData];
}

// No number is ever cut: what is left of it would be read as another amount.
- (void)fitColumnsOfNumbers {
    for (NSTableColumn* column in self.tableView.tableColumns) {
        if (!HoldsNumbers(column)) {
            continue;
        }
        const std::string longest = _content->longestText(cmn::ToStdString(column.identifier));
        NSTextField* const field = [NSTextField labelWithString:cmn::ToNSString(longest)];
        const CGFloat needed = field.intrinsicContentSize.width + 2 * kTextInset;
        if (needed > column.minWidth) {
            column.minWidth = needed;
        }
        if (needed > column.width) {
            column.width = needed;
        }
    }
}

- (NSInteger)numberOfRowsInTableView:(NSTableView*)__unused tableView {
    return _content ? static_cast<NSInteger>(_content->numberOfRows()) : 0;
}

- (nullable id)tableView:(NSTableView*)tableView
    objectValueForTableColumn:(nullable NSTableColumn*)column
                          row:(NSInteger)row {
    if (!_content || column == nil || row < 0) {
        return nil;
    }
    try {
        const auto value =
            _content->objectValue(cmn::ToStdString(column.identifier), static_cast<std::size_t>(row));
        if (const auto* box = std::get_if<useragent::DisabledCheckBox>(&value)) {
            return [self checkBoxFor:*box ofTableView:tableView column:column row:row];
        }
        return cmn::ToNSString(std::get<std::string>(value));
    } catch (const std::exception& error) {
        TLOG_ERROR("A cell of the properties window has no value: {}", error.what());
        return nil;
    }
}

- (NSButton*)checkBoxFor:(const useragent::DisabledCheckBox&)box
             ofTableView:(NSTableView*)tableView
                  column:(NSTableColumn*)column
                     row:(NSInteger)row {
    NSButton* button = _checkBoxes[@(row)];
    if (button == nil) {
        id const reused = [tableView makeViewWithIdentifier:column.identifier owner:self];
        button = [reused isKindOfClass:[NSButton class]] ? reused : nil;
    }
    if (button == nil) {
        button = [[NSButton alloc] initWithFrame:NSMakeRect(0, 0, column.width, kCheckBoxHeight)];
        [button setButtonType:NSButtonTypeSwitch];
        button.title = @"";
        button.identifier = column.identifier;
    }
    if (_checkBoxes == nil) {
        _checkBoxes = [NSMutableDictionary dictionary];
    }
    _checkBoxes[@(row)] = button;
    button.enabled = NO;
    button.state = box.on ? NSControlStateValueOn : NSControlStateValueOff;
    return button;
}

- (nullable NSView*)tableView:(NSTableView*)tableView
           viewForTableColumn:(nullable NSTableColumn*)column
                          row:(NSInteger)row {
    if (column == nil) {
        return nil;
    }
    id const value = [self tableView:tableView objectValueForTableColumn:column row:row];
    if ([value isKindOfClass:[NSButton class]]) {
        return CellWithButton(value);
    }
    NSTableCellView* const cell = CellWithText(tableView, column, self);
    NSString* const whole = [value isKindOfClass:[NSString class]] ? value : nil;
    NSString* const text = cmn::ToNSString(useragent::OneLine(cmn::ToStdString(whole)));
    cell.textField.stringValue = text;
    cell.toolTip = whole == nil || HoldsNumbers(column) ? nil : text;
    return cell;
}

- (double)getFilterCost:(NSDictionary*)filter {
    return useragent::FileFiltersViewController::getFilterCost(useragent::ToFilterRecord(filter));
}

@end
