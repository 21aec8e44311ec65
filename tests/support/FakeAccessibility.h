#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "useragent/Accessibility.h"

namespace fake {

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXStringRef;
using useragent::AXValue;

// A string that can be told to have no direct pointer or to refuse conversion.
class String : public useragent::AXString {
 public:
    enum class Storage { direct, convertible, inconvertible };

    explicit String(std::string utf8, Storage storage = Storage::direct);

    const char* directUTF8() const override;
    std::size_t maximumUTF8Size() const override;  // three bytes for each UTF-16 unit
    bool copyUTF8(char* buffer, std::size_t size) const override;

 private:
    std::string utf8_;
    Storage storage_;
};

AXValue Text(const std::string& utf8, String::Storage storage = String::Storage::direct);

// A node of a tree the test builds. Attributes may change while the tree is read. Thread-safe.
class Element : public useragent::AXElement {
 public:
    explicit Element(std::int32_t pid) : pid_(pid) {}

    Element& set(const std::string& attribute, AXValue value);
    Element& set(const std::string& attribute, const std::string& text) { return set(attribute, Text(text)); }
    Element& fail(const std::string& attribute, AXError error);
    Element& children(std::vector<AXValue> children);

    AXError read(const std::string& attribute, AXValue& value) const;
    std::int32_t pid() const { return pid_; }

 private:
    struct Attribute {
        AXError error = AXError::success;
        AXValue value;
    };
    const std::int32_t pid_;
    mutable std::mutex mutex_;
    std::map<std::string, Attribute> attributes_;
};
using ElementPtr = std::shared_ptr<Element>;

// The accessibility interface of a desktop that exists only in a test. Thread-safe. Destroying it checks that
// every observer is gone, and that none was left on the main run loop when it went.
class Accessibility : public useragent::Accessibility {
 public:
    ~Accessibility() override;

    // An application with one main window and the given text field in it.
    struct Browser {
        ElementPtr application, window, field;
    };
    Browser addBrowser(std::int32_t pid, const std::string& url);
    void setApplication(std::int32_t pid, ElementPtr application);

    // Calls every observer of that element and notification that is on the main run loop; returns how many.
    int notify(const ElementPtr& element, const std::string& notification) {
        return notify(element, notification, element);
    }
    // The same, but the callbacks are told of another element.
    int notify(const ElementPtr& element, const std::string& notification, const AXElementRef& delivered);

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override;
    AXElementRef createApplication(std::int32_t pid) override;
    AXError getPid(const AXElementRef& element, std::int32_t& pid) override;
    AXError createObserver(std::int32_t pid, useragent::AXObserverCallback callback,
                           std::unique_ptr<useragent::AXObserver>& observer) override;
    bool isProcessTrusted() override { return trusted; }
    bool isProcessTrustedWithPrompt() override;
    void prepare(const std::vector<useragent::WindowInfo>& browsers) override;
    std::chrono::nanoseconds searchDeadline() const override { return std::chrono::seconds(1); }

    int observerCount() const;
    int observersCreated() const;
    std::vector<std::vector<std::int32_t>> preparedPids() const;

    std::atomic<bool> trusted{true};
    std::atomic<int> prompts{0};
    std::atomic<AXError> createObserverError{AXError::success};
    std::atomic<AXError> addNotificationError{AXError::success};
    std::atomic<AXError> getPidError{AXError::success};
    // Called before each read, outside the fake's lock; may take time or block.
    std::function<void(const std::string& attribute)> onRead;
    std::function<void()> onPrepare;  // the same before each preparation

 private:
    class Observer;
    friend class Observer;

    mutable std::mutex mutex_;
    std::map<std::int32_t, ElementPtr> applications_;
    std::vector<Observer*> observers_;
    int observersCreated_ = 0;
    std::vector<std::vector<std::int32_t>> prepared_;
};

}  // namespace fake
