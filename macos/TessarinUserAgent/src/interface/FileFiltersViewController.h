#pragma once

#import <AppKit/AppKit.h>

#include <memory>

#include "useragent/FileFiltersViewController.h"

NS_ASSUME_NONNULL_BEGIN

// The content of a properties window, as the storyboard makes it. The portable controller decides what it
// shows. Main thread.
@interface FileFiltersViewController : NSViewController <NSTableViewDataSource, NSTableViewDelegate>

// What the opener knows of the file. The next three, and `setContent:`, before the view is loaded.
@property(nonatomic, strong, nullable) NSArray<NSDictionary*>* filtersArray;
@property(nonatomic, strong, nullable) NSString* fileName;
@property(nonatomic) BOOL isEncrypted;

@property(nonatomic, weak, nullable) IBOutlet NSTableView* tableView;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* fileNameLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* fileStateLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* serverIDLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* totalRiskLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* totalSensetiveRiskLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* encryptionStatusLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* encryptionPredictLabel;
@property(nonatomic, weak, nullable) IBOutlet NSTextField* encryptionInfo;

// Decides what the window shows of it; once.
- (void)setContent:(std::unique_ptr<useragent::FileFiltersViewController>)content;

// Value at risk of one record in US dollars.
- (double)getFilterCost:(NSDictionary*)filter;

@end

NS_ASSUME_NONNULL_END
