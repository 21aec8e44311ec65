#include "PeerChannel.h"

#include <utility>

#include "common/log.h"

namespace cmn {

PeerChannel::PeerChannel(Parts parts, std::string uniqueName, XPCPeer peer)
    : BusChannel(parts.queue), parts_(std::move(parts)), uniqueName_(std::move(uniqueName)), peer_(peer) {}

void PeerChannel::resume() {
    publishExportedObject();
    resumed_ = true;
}

void PeerChannel::end(const std::string& why, std::shared_ptr<void> connection) {
    if (!ended_.exchange(true)) {
        TLOG_DEBUG("The connection with {} has ended: {}", uniqueName_, why);
        tellInvalidation(std::move(connection));
    }
}

void PeerChannel::call(ServiceRequest request) {
    if (ended_) {
        fail(request, {bus::error::kDisconnected, "The connection has ended"});
    } else {
        send(*parts_.bus, uniqueName_, std::move(request), parts_.replyDeadline);
    }
}

bus::Result<ExportedObjects::Found> PeerChannel::find(const bus::Message& message) const {
    if (!accepted_ || !resumed_) {
        return bus::Error{bus::error::kAccessDenied, "The connection was not accepted"};
    }
    return objects().find(message);
}

bool PeerChannel::accepts(const bus::Question& question) {
    // What was told is heard to the end. What was asked is not worth an answer that nobody waits for; nor is
    // a file decrypted for somebody who left before it began.
    return !ended_ || !question.message().wantsReply();
}

}  // namespace cmn
