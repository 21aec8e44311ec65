#include "windowlist/XcbOrderWatch.h"

namespace useragent {

std::shared_ptr<XcbOrderWatch> XcbOrderWatch::begin(std::unique_ptr<XcbConnection> connection,
                                                    std::shared_ptr<cmn::bus::Loop> loop, ScreenEvents told) {
    std::shared_ptr<XcbOrderWatch> self(
        new XcbOrderWatch(std::move(connection), std::move(loop), std::move(told)));
    self->connection_->listenTo({self->connection_->root()});
    // In the loop, where it is read from then on.
    self->loop_->post([self] {
        self->watch_ = self->loop_->watch(self->connection_->descriptor(), [weak = self->weak_from_this()] {
            if (const auto alive = weak.lock()) {
                alive->read();
            }
        });
    });
    return self;
}

XcbOrderWatch::~XcbOrderWatch() {
    stop();
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
