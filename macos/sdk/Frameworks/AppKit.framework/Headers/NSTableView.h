#pragma once

#include <AppKit/NSControl.h>
#include <AppKit/NSTableColumn.h>

@protocol NSTableViewDataSource;
@protocol NSTableViewDelegate;

NS_ASSUME_NONNULL_BEGIN

@interface NSTableView : NSControl
@property(nullable, weak) id<NSTableViewDataSource> dataSource;
@property(nullable, weak) id<NSTableViewDelegate> delegate;
@property(readonly, copy) NSArray<NSTableColumn*>* tableColumns;
@property(readonly) NSInteger numberOfRows;
- (void)reloadData;
// A view of this identifier from the interface file, or one that is free again.
- (nullable __kindof NSView*)makeViewWithIdentifier:(NSUserInterfaceItemIdentifier)identifier
                                              owner:(nullable id)owner;
@end

@protocol NSTableViewDataSource <NSObject>
@optional
- (NSInteger)numberOfRowsInTableView:(NSTableView*)tableView;
- (nullable id)tableView:(NSTableView*)tableView
    objectValueForTableColumn:(nullable NSTableColumn*)tableColumn
                          row:(NSInteger)row;
@end

@protocol NSTableViewDelegate <NSObject>
@optional
- (nullable NSView*)tableView:(NSTableView*)tableView
           viewForTableColumn:(nullable NSTableColumn*)tableColumn
                          row:(NSInteger)row;
@end

NS_ASSUME_NONNULL_END
