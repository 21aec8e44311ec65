#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace cmn {

// Owns one reference to a CoreFoundation object.
class CFAutoPointer {
 public:
    CFAutoPointer() = default;
    // Takes the reference over, as the Create and Copy functions hand it out; nothing is retained.
    explicit CFAutoPointer(CFTypeRef reference) : reference_(reference) {}
    CFAutoPointer(const CFAutoPointer& other) : reference_(other.reference_) {
        if (reference_ != nullptr) {
            CFRetain(reference_);
        }
    }
    CFAutoPointer(CFAutoPointer&& other) noexcept : reference_(std::exchange(other.reference_, nullptr)) {}
    ~CFAutoPointer() {
        if (reference_ != nullptr) {
            CFRelease(reference_);
        }
        reference_ = nullptr;
    }

    CFAutoPointer& operator=(CFAutoPointer other) noexcept {
        std::swap(reference_, other.reference_);
        return *this;
    }
    CFAutoPointer& operator=(CFTypeRef reference) { return *this = CFAutoPointer(reference); }

    // Shares an object that somebody else owns.
    static CFAutoPointer Retained(CFTypeRef reference) {
        if (reference != nullptr) {
            CFRetain(reference);
        }
        return CFAutoPointer(reference);
    }

    CFTypeRef get() const { return reference_; }
    explicit operator bool() const { return reference_ != nullptr; }

    // The object when it is of that type, else null. Stays owned here.
    template <typename Ref>
    Ref as(CFTypeID type) const {
        return reference_ != nullptr && CFGetTypeID(reference_) == type ? static_cast<Ref>(reference_)
                                                                        : nullptr;
    }

    // For functions that hand out a reference through an argument; what was owned is released first.
    CFTypeRef* out() {
        *this = CFAutoPointer();
        return &reference_;
    }

 private:
    CFTypeRef reference_ = nullptr;
};

}  // namespace cmn
