#include "support/FakeAccessibility.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace fake {

String::String(std::string utf8, Storage storage) : utf8_(std::move(utf8)), storage_(storage) {}

const char* String::directUTF8() const {
    return storage_ == Storage::direct ? utf8_.c_str() : nullptr;
}

std::size_t String::maximumUTF8Size() const {
    std::size_t units = 0;
    for (const char byte : utf8_) {
        const auto value = static_cast<unsigned char>(byte);
        if ((value & 0xC0u) != 0x80u) {
            units += value >= 0xF0u ? 2 : 1;
        }
    }
    return units * 3;
}

bool String::copyUTF8(char* buffer, std::size_t size) const {
    if (storage_ == Storage::inconvertible || utf8_.size() + 1 > size) {
        return false;
    }
    std::memcpy(buffer, utf8_.c_str(), utf8_.size() + 1);
    return true;
}

AXValue Text(const std::string& utf8, String::Storage storage) {
    return AXStringRef(std::make_shared<String>(utf8, storage));
}

Element& Element::set(const std::string& attribute, AXValue value) {
    const std::lock_guard lock(mutex_);
    attributes_[attribute] = {AXError::success, std::move(value)};
    return *this;
}

Element& Element::fail(const std::string& attribute, AXError error) {
    const std::lock_guard lock(mutex_);
    attributes_[attribute] = {error, {}};
    return *this;
}

Element& Element::children(std::vector<AXValue> children) {
    return set(useragent::kChildrenAttribute, AXValue(std::move(children)));
}

AXError Element::read(const std::string& attribute, AXValue& value) const {
    const std::lock_guard lock(mutex_);
    const auto found = attributes_.find(attribute);
    if (found == attributes_.end()) {
        return AXError::attributeUnsupported;
    }
    if (found->second.error == AXError::success) {
        value = found->second.value;
    }
    return found->second.error;
}

class Accessibility::Observer : public useragent::AXObserver {
 public:
    Observer(Accessibility& owner, useragent::AXObserverCallback callback)
        : owner_(owner), callback_(std::move(callback)) {
        const std::lock_guard lock(owner_.mutex_);
        owner_.observers_.push_back(this);
        ++owner_.observersCreated_;
    }
    ~Observer() override {
        const std::lock_guard lock(owner_.mutex_);
        std::erase(owner_.observers_, this);
        EXPECT_FALSE(onMainRunLoop_) << "an observer was released while still on the main run loop";
    }

    AXError addNotification(const AXElementRef& element, const std::string& notification) override {
        const std::lock_guard lock(owner_.mutex_);
        element_ = element;
        notification_ = notification;
        return owner_.addNotificationError;
    }
    void addToMainRunLoop() override {
        const std::lock_guard lock(owner_.mutex_);
        EXPECT_TRUE(element_) << "an observer without a notification was put on the main run loop";
        EXPECT_FALSE(onMainRunLoop_);
        onMainRunLoop_ = true;
    }
    void removeFromMainRunLoop() override {
        const std::lock_guard lock(owner_.mutex_);
        onMainRunLoop_ = false;
    }

 private:
    friend class Accessibility;
    Accessibility& owner_;
    useragent::AXObserverCallback callback_;
    AXElementRef element_;
    std::string notification_;
    bool onMainRunLoop_ = false;
};

Accessibility::~Accessibility() {
    EXPECT_TRUE(observers_.empty()) << "observers outlived the watcher";
}

Accessibility::Browser Accessibility::addBrowser(std::int32_t pid, const std::string& url) {
    Browser browser{std::make_shared<Element>(pid), std::make_shared<Element>(pid),
                    std::make_shared<Element>(pid)};
    browser.field->set("AXRole", "AXTextField")
        .set("AXDescription", "Address and search bar")
        .set("AXValue", url)
        .children({});
    browser.window->set("AXRole", "AXWindow").children({AXElementRef(browser.field)});
    browser.application->set("AXMainWindow", AXValue(AXElementRef(browser.window)));
    setApplication(pid, browser.application);
    return browser;
}

void Accessibility::setApplication(std::int32_t pid, ElementPtr application) {
    const std::lock_guard lock(mutex_);
    applications_[pid] = std::move(application);
}

int Accessibility::notify(const ElementPtr& element, const std::string& notification,
                          const AXElementRef& delivered) {
    std::vector<useragent::AXObserverCallback> callbacks;
    {
        const std::lock_guard lock(mutex_);
        for (const Observer* observer : observers_) {
            if (observer->onMainRunLoop_ && observer->element_ == element &&
                observer->notification_ == notification) {
                callbacks.push_back(observer->callback_);
            }
        }
    }
    for (const auto& callback : callbacks) {
        callback(delivered, notification);
    }
    return static_cast<int>(callbacks.size());
}

AXError Accessibility::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                          AXValue& value) {
    if (onRead) {
        onRead(attribute);
    }
    const auto own = std::dynamic_pointer_cast<const Element>(element);
    return own ? own->read(attribute, value) : AXError::invalidUIElement;
}

AXElementRef Accessibility::createApplication(std::int32_t pid) {
    const std::lock_guard lock(mutex_);
    const auto found = applications_.find(pid);
    return found == applications_.end() ? std::make_shared<Element>(pid) : found->second;
}

AXError Accessibility::getPid(const AXElementRef& element, std::int32_t& pid) {
    const auto own = std::dynamic_pointer_cast<const Element>(element);
    if (!own) {
        return AXError::invalidUIElement;
    }
    pid = own->pid();
    return getPidError;
}

AXError Accessibility::createObserver(std::int32_t, useragent::AXObserverCallback callback,
                                      std::unique_ptr<useragent::AXObserver>& observer) {
    const AXError error = createObserverError;
    if (error == AXError::success) {
        observer = std::make_unique<Observer>(*this, std::move(callback));
    }
    return error;
}

bool Accessibility::isProcessTrustedWithPrompt() {
    ++prompts;
    return trusted;
}

void Accessibility::prepare(const std::vector<useragent::WindowInfo>& browsers) {
    if (onPrepare) {
        onPrepare();
    }
    const std::lock_guard lock(mutex_);
    prepared_.emplace_back();
    for (const useragent::WindowInfo& browser : browsers) {
        prepared_.back().push_back(browser.ownerPid);
    }
}

int Accessibility::observerCount() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(observers_.size());
}

int Accessibility::observersCreated() const {
    const std::lock_guard lock(mutex_);
    return observersCreated_;
}

std::vector<std::vector<std::int32_t>> Accessibility::preparedPids() const {
    const std::lock_guard lock(mutex_);
    return prepared_;
}

}  // namespace fake
