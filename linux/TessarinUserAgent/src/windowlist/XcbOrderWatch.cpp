#include "windowlist/XcbOrderWatch.h"

namespace useragent {

std::shared_ptr<XcbOrderWatch> XcbOrderWatch::begin(std::unique_ptr<XcbConnection> connection,
                                                    std::shared_ptr<cmn::bus::Loop> loop, ScreenEvents told) {
    std::shared_ptr<XcbOrderWatch> self(
        new XcbOrderWatch(std::move(connection), std::move(loop), std::move(told)));
    // In the loop, where it is read from then on.
    self->loop_->post([self] {
        self->watch_ = self->loop_->watch(self->connection_->descriptor(), [weak = self->weak_from_this()] {
            if (const auto alive = weak.lock()) {
                alive->read();
            }
        });
    });
    self->listenTo({self->connection_->root()});
    return self;
}

XcbOrderWatch::~XcbOrderWatch() {
    stop();
}

// Sending may read what was told meanwhile: then the descriptor has nothing left that wakes the loop.
void XcbOrderWatch::listenTo(const std::vector<xcb_window_t>& windows) {
    connection_->listenTo(windows);
    loop_->post([weak = weak_from_this()] {
        if (const auto alive = weak.lock()) {
            alive->read();
        }
    });
}

void XcbOrderWatch::read() {
    const auto changes = connection_->changes();
    if (!changes) {
        stop();
        return;
    }
    if (changes->ofOrder) {
        told_.changed();
    }
    if (changes->ofTitles) {
        told_.retitled();
    }
}

void XcbOrderWatch::stop() {
    if (watch_ != 0) {
        loop_->unwatch(std::exchange(watch_, 0), connection_->descriptor());
    }
}

}  // namespace useragent
