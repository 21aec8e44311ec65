#pragma once

#include <memory>
#include <utility>

namespace cmn {

// A callback that passes on to `action(object, arguments...)` while the object is alive and does nothing
// afterwards.
template <typename Object, typename Action>
auto WhileAlive(std::weak_ptr<Object> object, Action action) {
    return [object = std::move(object), action = std::move(action)](auto&&... arguments) {
        if (const auto alive = object.lock()) {
            action(*alive, std::forward<decltype(arguments)>(arguments)...);
        }
    };
}

}  // namespace cmn
