#include "windowlist/XcbConnection.h"

#include <poll.h>
#include <xcb/res.h>
#include <xcb/xcbext.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace useragent {
namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(XcbConnection::Atom::count)> kAtomNames{
    "_NET_ACTIVE_WINDOW", "_NET_CLIENT_LIST_STACKING", "_NET_CURRENT_DESKTOP", "_NET_WM_DESKTOP",
    "_NET_WM_STATE",      "_NET_WM_STATE_HIDDEN",      "_NET_WM_NAME",         "UTF8_STRING"};

// The properties whose change is one of the order.
constexpr std::array kOrderAtoms{XcbConnection::Atom::activeWindow, XcbConnection::Atom::clientListStacking,
                                 XcbConnection::Atom::currentDesktop, XcbConnection::Atom::wmDesktop,
                                 XcbConnection::Atom::wmState};

// In units of 32 bits; longer properties are cut off.
constexpr std::uint32_t kLongestProperty = 16384;

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using ConnectionHandle = std::unique_ptr<xcb_connection_t, Disconnect>;

template <typename Reply>
const Reply* As(const std::shared_ptr<void>& reply) {
    return static_cast<const Reply*>(reply.get());
}

}  // namespace

// Connecting has no time limit of its own, so it happens on a thread that is left behind when it takes too
// long.
struct XcbConnection::Connector::Attempt {
    std::mutex mutex;  // guards what follows
    std::condition_variable finished;
    bool isFinished = false;
    ConnectionHandle connection;
    int screen = 0;

    // Null when no thread can be had.
    static std::shared_ptr<Attempt> start(const std::string& display);
};

std::shared_ptr<XcbConnection::Connector::Attempt> XcbConnection::Connector::Attempt::start(
    const std::string& display) {
    auto attempt = std::make_shared<Attempt>();
    try {
        std::thread([attempt, display] {
            int number = 0;
            ConnectionHandle made(xcb_connect(display.c_str(), &number));
            const std::lock_guard lock(attempt->mutex);
            attempt->isFinished = true;
            attempt->connection = std::move(made);
            attempt->screen = number;
            attempt->finished.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return nullptr;
    }
    return attempt;
}

XcbConnection::Connector::Connector(std::string display) : display_(std::move(display)) {}

bool XcbConnection::Connector::awaitServer(Deadline deadline) {
    if (!attempt_ && !(attempt_ = Attempt::start(display_))) {
        return false;
    }
    std::unique_lock lock(attempt_->mutex);
    return attempt_->finished.wait_until(lock, deadline, [this] { return attempt_->isFinished; });
}

std::unique_ptr<XcbConnection> XcbConnection::Connector::connect(Deadline deadline) {
    if (!awaitServer(deadline)) {
        return nullptr;
    }
    const std::shared_ptr<Attempt> attempt = std::move(attempt_);
    ConnectionHandle connection = std::move(attempt->connection);
    int screen = attempt->screen;
    if (xcb_connection_has_error(connection.get()) != 0) {
        return nullptr;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
    for (; screen > 0 && screens.rem > 1; --screen) {
        xcb_screen_next(&screens);
    }
    if (screens.rem == 0) {
        return nullptr;
    }
    std::unique_ptr<XcbConnection> made(new XcbConnection(connection.release(), screens.data->root));
    return made->learnWhetherProcessesAreTold(deadline) ? std::move(made) : nullptr;
}

XcbConnection::~XcbConnection() {
    xcb_disconnect(connection_);
}

bool XcbConnection::internAtoms(Deadline deadline) {
    std::vector<unsigned> sequences;
    sequences.reserve(kAtomNames.size());
    for (const std::string_view name : kAtomNames) {
        sequences.push_back(
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()).sequence);
    }
    const auto replies = waitForReplies(sequences, deadline);
    if (!replies || std::find(replies->begin(), replies->end(), nullptr) != replies->end()) {
        return false;
    }
    std::transform(replies->begin(), replies->end(), atoms_.begin(), [](const std::shared_ptr<void>& reply) {
        return As<xcb_intern_atom_reply_t>(reply)->atom;
    });
    return true;
}

// The library waits without a deadline for what it asks about an extension by itself. So that is asked for
// first: it has arrived when a later question is answered.
bool XcbConnection::learnWhetherProcessesAreTold(Deadline deadline) {
    xcb_prefetch_extension_data(connection_, &xcb_res_id);
    if (!internAtoms(deadline)) {
        return false;
    }
    const xcb_query_extension_reply_t* const extension = xcb_get_extension_data(connection_, &xcb_res_id);
    if (extension == nullptr || extension->present == 0) {
        return true;
    }
    constexpr std::uint8_t kMajor = 1;
    constexpr std::uint8_t kMinor = 2;  // the first that knows processes
    std::shared_ptr<void> reply;
    if (!waitForReply(xcb_res_query_version(connection_, kMajor, kMinor).sequence, deadline, reply)) {
        return false;
    }
    if (reply) {
        const auto* const version = As<xcb_res_query_version_reply_t>(reply);
        tellsProcesses_ = version->server_major > kMajor ||
                          (version->server_major == kMajor && version->server_minor >= kMinor);
    }
    return true;
}

std::optional<std::vector<std::int32_t>> XcbConnection::askProcesses(const std::vector<xcb_window_t>& windows,
                                                                     Deadline deadline) {
    std::vector<unsigned> sequences;
    sequences.reserve(windows.size());
    for (const xcb_window_t window : windows) {
        const xcb_res_client_id_spec_t wanted{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        sequences.push_back(xcb_res_query_client_ids(connection_, 1, &wanted).sequence);
    }
    const auto replies = waitForReplies(sequences, deadline);
    if (!replies) {
        return std::nullopt;
    }
    std::vector<std::int32_t> processes;
    for (const std::shared_ptr<void>& reply : *replies) {
        std::int32_t& process = processes.emplace_back(0);
        const auto* const got = As<xcb_res_query_client_ids_reply_t>(reply);
        if (got != nullptr && got->num_ids > 0) {
            const auto* const id = xcb_res_query_client_ids_ids_iterator(got).data;
            process = xcb_res_client_id_value_value_length(id) > 0
                          ? static_cast<std::int32_t>(*xcb_res_client_id_value_value(id))
                          : 0;
        }
    }
    return processes;
}

std::optional<std::set<xcb_window_t>> XcbConnection::askViewable(const std::vector<xcb_window_t>& windows,
                                                                 Deadline deadline) {
    std::vector<unsigned> sequences;
    sequences.reserve(windows.size());
    for (const xcb_window_t window : windows) {
        sequences.push_back(xcb_get_window_attributes(connection_, window).sequence);
    }
    const auto replies = waitForReplies(sequences, deadline);
    if (!replies) {
        return std::nullopt;
    }
    std::set<xcb_window_t> viewable;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const auto* const got = As<xcb_get_window_attributes_reply_t>((*replies)[i]);
        if (got != nullptr && got->map_state == XCB_MAP_STATE_VIEWABLE) {
            viewable.insert(windows[i]);
        }
    }
    return viewable;
}

std::optional<std::vector<XcbConnection::Property>> XcbConnection::ask(const std::vector<Question>& questions,
                                                                       Deadline deadline) {
    std::vector<unsigned> sequences;
    sequences.reserve(questions.size());
    for (const Question& question : questions) {
        sequences.push_back(xcb_get_property(connection_, 0, question.window, question.property,
                                             question.type, 0, kLongestProperty)
                                .sequence);
    }
    const auto replies = waitForReplies(sequences, deadline);
    if (!replies) {
        return std::nullopt;
    }
    std::vector<Property> properties;
    for (const std::shared_ptr<void>& reply : *replies) {
        Property& property = properties.emplace_back();
        property.isGone = reply == nullptr;
        if (reply) {
            const auto* const got = As<xcb_get_property_reply_t>(reply);
            const auto* const first = static_cast<const std::uint8_t*>(xcb_get_property_value(got));
            property.format = got->format;
            property.bytes.assign(first, first + xcb_get_property_value_length(got));
        }
    }
    return properties;
}

void XcbConnection::listenTo(const std::vector<xcb_window_t>& windows) {
    constexpr std::uint32_t kEvents = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    for (const xcb_window_t window : windows) {
        xcb_change_window_attributes(connection_, window, XCB_CW_EVENT_MASK, &kEvents);
    }
    xcb_flush(connection_);
}

int XcbConnection::descriptor() const {
    return xcb_get_file_descriptor(connection_);
}

std::optional<XcbConnection::Changes> XcbConnection::changes() {
    Changes changes;
    while (xcb_generic_event_t* const event = xcb_poll_for_event(connection_)) {
        if (event->response_type == XCB_PROPERTY_NOTIFY) {
            const xcb_atom_t changed = reinterpret_cast<const xcb_property_notify_event_t*>(event)->atom;
            changes.ofOrder |= std::any_of(kOrderAtoms.begin(), kOrderAtoms.end(),
                                           [&](Atom order) { return changed == atom(order); });
            changes.ofTitles |= changed == atom(Atom::wmName) || changed == XCB_ATOM_WM_NAME;
        }
        // Window managers say which desktop is the current one before they take its windows away.
        changes.ofOrder |= event->response_type == XCB_MAP_NOTIFY || event->response_type == XCB_UNMAP_NOTIFY;
        std::free(event);
    }
    return xcb_connection_has_error(connection_) == 0 ? std::optional(changes) : std::nullopt;
}

bool XcbConnection::hasHeard() {
    bool heard = false;
    while (xcb_generic_event_t* const event = xcb_poll_for_queued_event(connection_)) {
        heard = true;
        std::free(event);
    }
    return heard;
}

bool XcbConnection::waitForReply(unsigned sequence, Deadline deadline, std::shared_ptr<void>& reply) {
    xcb_flush(connection_);
    for (;;) {
        void* got = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (xcb_poll_for_reply(connection_, sequence, &got, &error) != 0) {
            std::free(error);
            reply = std::shared_ptr<void>(got, &std::free);
            return xcb_connection_has_error(connection_) == 0;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0 || xcb_connection_has_error(connection_) != 0) {
            return false;
        }
        pollfd descriptor{xcb_get_file_descriptor(connection_), POLLIN, 0};
        poll(&descriptor, 1, static_cast<int>(left));
    }
}

std::optional<std::vector<std::shared_ptr<void>>> XcbConnection::waitForReplies(
    const std::vector<unsigned>& sequences, Deadline deadline) {
    std::vector<std::shared_ptr<void>> replies(sequences.size());
    for (std::size_t i = 0; i < sequences.size(); ++i) {
        if (!waitForReply(sequences[i], deadline, replies[i])) {
            return std::nullopt;
        }
    }
    return replies;
}

std::vector<std::uint32_t> XcbConnection::Property::items() const {
    std::vector<std::uint32_t> numbers(format == 32 ? bytes.size() / sizeof(std::uint32_t) : 0);
    if (!numbers.empty()) {
        std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(std::uint32_t));
    }
    return numbers;
}

std::optional<std::uint32_t> XcbConnection::Property::firstItem() const {
    const std::vector<std::uint32_t> all = items();
    return all.empty() ? std::nullopt : std::optional(all.front());
}

}  // namespace useragent
