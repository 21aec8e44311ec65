#include "accessibility/AtspiProtocol.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "useragent/Accessibility.h"

namespace useragent::atspi {
namespace {

struct RoleName {
    Role role;
    std::string_view name;
};

// Sorted by role.
constexpr std::array kRoleNames{
    RoleName{2, "AXGroup"},         // alert
    RoleName{7, "AXCheckBox"},      // check box
    RoleName{8, "AXMenuItem"},      // check menu item
    RoleName{11, "AXPopUpButton"},  // combo box
    RoleName{15, "AXSlider"},       // dial
    RoleName{16, "AXWindow"},       // dialog
    RoleName{19, "AXWindow"},       // file chooser
    RoleName{20, "AXGroup"},        // filler
    RoleName{23, "AXWindow"},       // frame
    RoleName{26, "AXImage"},        // icon
    RoleName{27, "AXImage"},        // image
    RoleName{28, "AXWebArea"},      // internal frame: holds a document
    RoleName{29, "AXStaticText"},   // label
    RoleName{31, "AXList"},         // list
    RoleName{32, "AXGroup"},        // list item
    RoleName{33, "AXMenu"},         // menu
    RoleName{34, "AXMenuBar"},      // menu bar
    RoleName{35, "AXMenuItem"},     // menu item
    RoleName{37, "AXRadioButton"},  // page tab
    RoleName{38, "AXTabGroup"},     // page tab list
    RoleName{39, "AXGroup"},        // panel
    RoleName{41, "AXMenu"},         // pop-up menu
    RoleName{42, "AXProgressIndicator"},
    RoleName{43, "AXButton"},       // push button
    RoleName{44, "AXRadioButton"},  // radio button
    RoleName{45, "AXMenuItem"},     // radio menu item
    RoleName{48, "AXScrollBar"},    // scroll bar
    RoleName{49, "AXScrollArea"},   // scroll pane
    RoleName{50, "AXSplitter"},     // separator
    RoleName{51, "AXSlider"},       // slider
    RoleName{52, "AXIncrementor"},  // spin button
    RoleName{53, "AXSplitGroup"},   // split pane
    RoleName{55, "AXTable"},        // table
    RoleName{56, "AXCell"},         // table cell
    RoleName{61, "AXTextArea"},     // text
    RoleName{62, "AXCheckBox"},     // toggle button
    RoleName{63, "AXToolbar"},      // tool bar
    RoleName{65, "AXOutline"},      // tree
    RoleName{66, "AXOutline"},      // tree table
    RoleName{69, "AXWindow"},       // window
    RoleName{73, "AXGroup"},        // paragraph
    RoleName{75, "AXApplication"},  // application
    RoleName{79, "AXTextArea"},     // entry of several lines
    RoleName{82, "AXWebArea"},      // document frame
    RoleName{83, "AXHeading"},      // heading
    RoleName{85, "AXGroup"},        // section
    RoleName{87, "AXGroup"},        // form
    RoleName{88, "AXLink"},         // link
    RoleName{95, "AXWebArea"},      // document web
    RoleName{99, "AXGroup"},        // grouping
    RoleName{110, "AXGroup"},       // landmark
    RoleName{116, "AXStaticText"},  // static text
};

static_assert(std::is_sorted(kRoleNames.begin(), kRoleNames.end(),
                             [](const RoleName& left, const RoleName& right) {
                                 return left.role < right.role;
                             }));

bool IsTextField(Role role, States states) {
    // Also one that is read-only, as the address field of a pop-up window is.
    if (Has(states, State::singleLine)) {
        return MayBeTextField(role) && !Has(states, State::multiLine);
    }
    return role == kRoleComboBox && Has(states, State::editable);
}

}  // namespace

bool MayBeTextField(Role role) {
    // Some toolkits give their one-line entries the role of text.
    return role == kRoleComboBox || role == kRoleEntry || role == kRoleText;
}

std::string AXRoleName(Role role, States states) {
    if (IsTextField(role, states)) {
        return kTextFieldRole;
    }
    const auto* const found =
        std::lower_bound(kRoleNames.begin(), kRoleNames.end(), role,
                         [](const RoleName& entry, Role wanted) { return entry.role < wanted; });
    return found != kRoleNames.end() && found->role == role ? std::string(found->name) : "AXUnknown";
}

}  // namespace useragent::atspi
