// Trees as no browser should have them, with cycles, missing roles and texts that cannot be converted: the
// search ends, and what it finds is a text field outside of all web pages. The mirror of a text is as a model
// that counts code points says.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Check.h"
#include "accessibility/MainWindow.h"
#include "accessibility/TextMirror.h"
#include "useragent/FindURLElement.h"
#include "useragent/SearchReader.h"

namespace {

using namespace useragent;

constexpr std::chrono::milliseconds kBudget{200};  // of a search, at one for each read

class Text final : public AXString {
 public:
    Text(std::string text, bool isDirect, bool isConvertible)
        : text_(std::move(text)), isDirect_(isDirect), isConvertible_(isConvertible) {}

    const char* directUTF8() const override { return isDirect_ ? text_.c_str() : nullptr; }
    std::size_t maximumUTF8Size() const override { return text_.size(); }
    bool copyUTF8(char* buffer, std::size_t size) const override {
        if (!isConvertible_ || size <= text_.size()) {
            return false;
        }
        std::copy_n(text_.c_str(), text_.size() + 1, buffer);
        return true;
    }

 private:
    const std::string text_;
    const bool isDirect_;
    const bool isConvertible_;
};

struct Node final : AXElement {
    std::map<std::string, AXValue> attributes;
    std::string role;
};
using Nodes = std::deque<std::shared_ptr<Node>>;

class Tree final : public AccessibilityReader {
 public:
    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override {
        ++reads;
        const auto& node = static_cast<const Node&>(*element);
        const auto found = node.attributes.find(attribute);
        if (found == node.attributes.end()) {
            return AXError::attributeUnsupported;
        }
        value = found->second;
        return AXError::success;
    }

    int reads = 0;
};

AXValue TextFrom(FuzzedDataProvider& input, std::string text) {
    const int kind = input.ConsumeIntegralInRange(0, 7);
    return std::make_shared<Text>(std::move(text), kind != 0, kind > 1);
}

Nodes TreeFrom(FuzzedDataProvider& input) {
    constexpr const char* kRoles[] = {kTextFieldRole, kWebAreaRole, "AXGroup", ""};
    constexpr const char* kTexts[] = {"Address and search bar", "WEB_BROWSER_ADDRESS_AND_SEARCH_FIELD",
                                      "urlbar-input"};
    constexpr const char* kTextAttributes[] = {kDescriptionAttribute, kIdentifierAttribute,
                                               kDOMIdentifierAttribute, kPlaceholderValueAttribute};
    Nodes nodes;
    const int count = input.ConsumeIntegralInRange(1, 40);
    for (int i = 0; i < count; ++i) {
        nodes.push_back(std::make_shared<Node>());
    }
    for (const auto& node : nodes) {
        node->role = input.PickValueInArray(kRoles);
        if (!node->role.empty()) {
            node->attributes[kRoleAttribute] = std::make_shared<Text>(node->role, input.ConsumeBool(), true);
        }
        for (const char* attribute : kTextAttributes) {
            const int kind = input.ConsumeIntegralInRange(0, 7);
            if (kind == 0) {
                node->attributes[attribute] = TextFrom(input, input.PickValueInArray(kTexts));
            } else if (kind == 1) {
                node->attributes[attribute] = TextFrom(input, input.ConsumeRandomLengthString(20));
            } else if (kind == 2) {
                node->attributes[attribute] = AXElementRef(node);
            }
        }
        std::vector<AXValue> children;
        const int childCount = input.ConsumeIntegralInRange(0, 6);
        for (int i = 0; i < childCount; ++i) {
            const std::size_t child = input.ConsumeIntegralInRange<std::size_t>(0, nodes.size());
            children.emplace_back(child < nodes.size() ? AXElementRef(nodes[child]) : nullptr);
        }
        node->attributes[kChildrenAttribute] = std::move(children);
    }
    return nodes;
}

// Whether the search may find the node: on a way from the root that leads through no web page.
bool IsReachable(const Nodes& nodes, const AXElementRef& sought) {
    std::vector<const AXElement*> seen;
    std::vector<const Node*> open{nodes.front().get()};
    while (!open.empty()) {
        const Node* node = open.back();
        open.pop_back();
        for (const AXValue& child : std::get<std::vector<AXValue>>(node->attributes.at(kChildrenAttribute))) {
            const auto& element = std::get<AXElementRef>(child);
            if (!element || std::find(seen.begin(), seen.end(), element.get()) != seen.end()) {
                continue;
            }
            seen.push_back(element.get());
            if (element == sought) {
                return true;
            }
            const auto* next = static_cast<const Node*>(element.get());
            if (next->role != kWebAreaRole) {
                open.push_back(next);
            }
        }
    }
    return false;
}

void CheckSearch(FuzzedDataProvider& input) {
    const Nodes nodes = TreeFrom(input);
    Tree tree;
    const auto now = [&] {
        return std::chrono::steady_clock::time_point(std::chrono::milliseconds(tree.reads));
    };
    SearchReader reader(tree, now, kBudget);
    const AXElementRef found = FindURLElement(reader, nodes.front(), 0);
    Check(tree.reads <= kBudget.count());
    Check(!found || (static_cast<const Node&>(*found).role == kTextFieldRole && IsReachable(nodes, found)));
    for (const auto& node : nodes) {
        node->attributes.clear();  // they may hold each other
    }
}

bool BeginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
}

// The pieces of the text that the mirror counts as one: a byte and those that go on with a character.
std::vector<std::string> CharactersOf(const std::string& text) {
    std::vector<std::string> characters;
    for (const char byte : text) {
        if (characters.empty() || BeginsCharacter(byte)) {
            characters.emplace_back();
        }
        characters.back() += byte;
    }
    return characters;
}

std::optional<std::string> Changed(const std::optional<std::string>& before, const TextChange& change) {
    if (!before || CharactersOf(change.text).size() != change.length) {
        return std::nullopt;
    }
    const auto characters = CharactersOf(*before);
    if (change.offset > characters.size()) {
        return std::nullopt;
    }
    std::string head;
    for (std::size_t i = 0; i < change.offset; ++i) {
        head += characters[i];
    }
    const std::string tail = before->substr(head.size());
    if (change.kind == TextChange::Kind::inserted) {
        return head + change.text + tail;
    }
    return tail.starts_with(change.text) ? std::optional(head + tail.substr(change.text.size()))
                                         : std::nullopt;
}

void CheckMirror(FuzzedDataProvider& input) {
    TextMirror mirror;
    std::optional<std::string> expected;
    while (input.remaining_bytes() > 0) {
        if (input.ConsumeIntegralInRange(0, 7) == 0) {
            expected = input.ConsumeRandomLengthString(30);
            mirror.set(*expected);
        }
        TextChange change;
        change.kind = input.ConsumeBool() ? TextChange::Kind::inserted : TextChange::Kind::deleted;
        change.offset = input.ConsumeIntegralInRange<std::size_t>(0, 40);
        change.text = input.ConsumeRandomLengthString(10);
        change.length = input.ConsumeIntegralInRange(0, 3) == 0 ? input.ConsumeIntegral<std::size_t>()
                                                                : CharactersOf(change.text).size();
        expected = Changed(expected, change);
        mirror.apply(change);
        Check(mirror.text() == expected);
    }
}

void CheckMainWindow(FuzzedDataProvider& input) {
    std::vector<TopLevel> windows(input.ConsumeIntegralInRange<std::size_t>(0, 5));
    for (TopLevel& window : windows) {
        window.path = input.ConsumeRandomLengthString(4);
        window.role = input.ConsumeBool() ? atspi::kRoleFrame : input.ConsumeIntegral<atspi::Role>();
        window.states = input.ConsumeIntegral<atspi::States>();
        window.title = input.ConsumeRandomLengthString(4);
    }
    const std::string front = input.ConsumeRandomLengthString(4);
    const auto chosen =
        ChooseMainWindow(windows, {input.ConsumeRandomLengthString(4)}, front, input.ConsumeBool());
    Check(chosen.has_value() == std::any_of(windows.begin(), windows.end(), IsCandidate));
    Check(!chosen || IsCandidate(windows.at(*chosen)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange(0, 2)) {
        case 0:
            CheckSearch(input);
            break;
        case 1:
            CheckMirror(input);
            break;
        default:
            CheckMainWindow(input);
    }
    return 0;
}
