#include "AtspiApplication.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <algorithm>
#include <set>
#include <utility>

#include "AtspiTypes.h"

namespace fake {
namespace {

constexpr std::uint32_t kFrame = 23;
constexpr std::uint32_t kToolBar = 63;
constexpr std::uint32_t kApplication = 75;
constexpr std::uint32_t kEntry = 79;

constexpr int kAny = 2;  // how the items of a condition are combined

QString Text(const std::string& text) {
    return QString::fromStdString(text);
}

QVariant States(std::uint64_t states) {
    return QVariant::fromValue(
        QList<uint>{static_cast<uint>(states & 0xFFFFFFFFU), static_cast<uint>(states >> 32U)});
}

QVariant Children(const std::string& ownName, const std::vector<std::string>& children) {
    AtspiReferences references;
    for (const std::string& child : children) {
        const std::size_t blank = child.find(' ');
        const bool isForeign = blank != std::string::npos;
        references.push_back({Text(isForeign ? child.substr(0, blank) : ownName),
                              QDBusObjectPath(Text(isForeign ? child.substr(blank + 1) : child))});
    }
    return QVariant::fromValue(references);
}

// The states and roles that a match rule asks for; the tests use none of its other conditions.
struct Rule {
    std::uint64_t states = 0;
    std::set<std::uint32_t> roles;  // none: they do not matter
    bool anyRole = false;           // else an object has to have all of them, and none ever does
};

Rule RuleOf(const QDBusMessage& call) {
    const auto argument = call.arguments().at(0).value<QDBusArgument>();
    QList<int> states;
    QList<int> roles;
    AtspiAttributes attributes;
    int combination = 0;
    argument.beginStructure();
    argument >> states >> combination >> attributes >> combination >> roles >> combination;
    argument.endStructure();
    Rule rule;
    rule.anyRole = combination == kAny;
    for (int i = 0; i < states.size() && i < 2; ++i) {
        rule.states |= std::uint64_t{static_cast<std::uint32_t>(states[i])}
                       << (32U * static_cast<unsigned>(i));
    }
    for (std::uint32_t role = 0; role < 32U * static_cast<std::uint32_t>(roles.size()); ++role) {
        if ((static_cast<std::uint32_t>(roles[static_cast<int>(role / 32)]) >> (role % 32) & 1U) != 0) {
            rule.roles.insert(role);
        }
    }
    return rule;
}

QVariant Attributes(const std::map<std::string, std::string>& attributes) {
    AtspiAttributes map;
    for (const auto& [key, value] : attributes) {
        map.insert(Text(key), Text(value));
    }
    return QVariant::fromValue(map);
}

QVariant Boxed(const QVariant& value) {
    return QVariant::fromValue(QDBusVariant(value));
}

}  // namespace

AtspiApplication::AtspiApplication(const std::string& busAddress) {
    RegisterAtspiTypes();
    change(kRoot, [](AtspiNode& root) {
        root.role = kApplication;
        root.name = "Fake";
    });
    peer_ =
        std::make_unique<RawPeer>(busAddress, [this](const QDBusMessage& call, QDBusConnection connection) {
            onCall(call, std::move(connection));
        });
}

void AtspiApplication::setSelects(bool selects) {
    const std::lock_guard lock(mutex_);
    selects_ = selects;
}

void AtspiApplication::setHeedsLimit(bool heeds) {
    const std::lock_guard lock(mutex_);
    heedsLimit_ = heeds;
}

void AtspiApplication::change(const std::string& path, const std::function<void(AtspiNode&)>& changes) {
    const std::lock_guard lock(mutex_);
    changes(nodes_[path]);
}

std::string AtspiApplication::add(const std::string& parent, AtspiNode node) {
    const std::lock_guard lock(mutex_);
    std::string path = "/org/a11y/atspi/accessible/" + std::to_string(++lastNumber_);
    nodes_[path] = std::move(node);
    nodes_[parent].children.push_back(path);
    return path;
}

AtspiApplication::Window AtspiApplication::addWindow(const std::string& title, const std::string& url) {
    AtspiNode frame;
    frame.role = kFrame;
    frame.name = title;
    AtspiNode toolBar;
    toolBar.role = kToolBar;
    AtspiNode field;
    field.role = kEntry;
    field.states = kField;
    field.name = "Address and search bar";
    field.text = url;
    Window window;
    window.frame = add(kRoot, frame);
    window.field = add(add(window.frame, toolBar), field);
    return window;
}

void AtspiApplication::overrideMethod(const std::string& member, Override handler) {
    const std::lock_guard lock(mutex_);
    overrides_[member] = std::move(handler);
}

void AtspiApplication::resetMethod(const std::string& member) {
    const std::lock_guard lock(mutex_);
    overrides_.erase(member);
}

void AtspiApplication::hold() {
    const std::lock_guard lock(mutex_);
    isHeld_ = true;
}

void AtspiApplication::release() {
    const std::lock_guard lock(mutex_);
    isHeld_ = false;
    for (const Held& held : std::exchange(held_, {})) {
        held.connection.send(answer(held.call));
    }
}

int AtspiApplication::callsOf(const std::string& member) const {
    const std::lock_guard lock(mutex_);
    const auto found = callCounts_.find(member);
    return found != callCounts_.end() ? found->second : 0;
}

int AtspiApplication::calls() const {
    const std::lock_guard lock(mutex_);
    int sum = 0;
    for (const auto& [member, count] : callCounts_) {
        sum += count;
    }
    return sum;
}

void AtspiApplication::edit(const std::string& path, const std::string& text) {
    // As one step, as in a real application: no call is answered between the edit and its signals.
    const std::lock_guard lock(mutex_);
    const std::string before = std::exchange(nodes_[path].text, text);
    emitTextChanged(path, "delete", before);
    emitTextChanged(path, "insert", text);
}

void AtspiApplication::emitTextChanged(const std::string& path, const std::string& detail,
                                       const std::string& part, int offset) {
    emitEvent(path, "org.a11y.atspi.Event.Object", "TextChanged", detail, part, offset);
}

void AtspiApplication::emitStateChanged(const std::string& path, const std::string& state, bool value) {
    emitEvent(path, "org.a11y.atspi.Event.Object", "StateChanged", state, "", value ? 1 : 0);
}

void AtspiApplication::activate(const std::string& path, const std::string& title) {
    const std::lock_guard lock(mutex_);
    for (const std::string& window : nodes_[kRoot].children) {
        nodes_[window].states &= ~kActive;
    }
    nodes_[path].states |= kActive;
    emitEvent(path, "org.a11y.atspi.Event.Window", "Activate", "", title, 0);
}

void AtspiApplication::minimise(const std::string& path, const std::string& title) {
    const std::lock_guard lock(mutex_);
    nodes_[path].states &= ~kActive;
    emitEvent(path, "org.a11y.atspi.Event.Window", "Minimize", "", title, 0);
}

void AtspiApplication::emitEvent(const std::string& path, const char* interface, const char* member,
                                 const std::string& detail, const std::string& data, int offset) {
    QDBusMessage signal =
        QDBusMessage::createSignal(Text(path), QString::fromLatin1(interface), QString::fromLatin1(member));
    const QString text = Text(data);
    signal.setArguments(
        {Text(detail), offset, static_cast<int>(text.toUcs4().size()), Boxed(text), QVariantMap()});
    peer_->send(signal);
}

void AtspiApplication::onCall(const QDBusMessage& call, QDBusConnection connection) {
    const std::lock_guard lock(mutex_);
    ++callCounts_[call.member().toStdString()];
    if (isHeld_) {
        held_.push_back({call, std::move(connection)});
        return;
    }
    const auto found = overrides_.find(call.member().toStdString());
    if (found == overrides_.end()) {
        connection.send(answer(call));
    } else if (const std::unique_ptr<QDBusMessage> reply = found->second(call)) {
        connection.send(*reply);
    }
}

QDBusMessage AtspiApplication::answer(const QDBusMessage& call) {
    const auto found = nodes_.find(call.path().toStdString());
    if (found == nodes_.end()) {
        return call.createErrorReply(QDBusError::UnknownObject, QStringLiteral("does not exist"));
    }
    const AtspiNode& node = found->second;
    const std::string member = call.member().toStdString();
    if (member == "GetRole") {
        return call.createReply(node.role);
    }
    if (member == "GetState") {
        return call.createReply(States(node.states));
    }
    if (member == "GetChildren") {
        return call.createReply(Children(peer_->uniqueName(), node.children));
    }
    if (member == "GetAttributes") {
        return call.createReply(Attributes(node.attributes));
    }
    if (member == "GetAttributeValue" && node.attributes.contains("DocURL")) {
        return call.createReply(Text(node.attributes.at("DocURL")));
    }
    if (member == "GetText") {
        return call.createReply(Text(node.text));
    }
    if (member == "Get") {
        return property(call, node);
    }
    if (member == "GetMatches" && selects_) {
        return matches(call, node);
    }
    return call.createErrorReply(QDBusError::UnknownMethod, QStringLiteral("not known"));
}

QDBusMessage AtspiApplication::matches(const QDBusMessage& call, const AtspiNode& node) const {
    if (call.signature() != QLatin1String("(aiia{ss}iaiiasib)uib")) {
        return call.createErrorReply(QDBusError::InvalidArgs, QStringLiteral("not a rule"));
    }
    const Rule rule = RuleOf(call);
    const auto limit = static_cast<std::size_t>(call.arguments().at(2).toInt());
    std::vector<std::string> found;
    std::vector<std::string> next(node.children.rbegin(), node.children.rend());
    std::set<std::string> seen;  // a tree may contain itself
    while (!next.empty()) {
        const std::string path = next.back();
        next.pop_back();
        const auto known = nodes_.find(path);
        if (known == nodes_.end() || (call.arguments().at(3).toBool() && !seen.insert(path).second)) {
            continue;
        }
        const AtspiNode& child = known->second;
        if ((child.states & rule.states) == rule.states &&
            (rule.roles.empty() || (rule.anyRole && rule.roles.contains(child.role))) &&
            (found.size() < limit || !heedsLimit_)) {
            found.push_back(path);
        }
        if (call.arguments().at(3).toBool()) {
            next.insert(next.end(), child.children.rbegin(), child.children.rend());
        }
    }
    return call.createReply(Children(peer_->uniqueName(), found));
}

QDBusMessage AtspiApplication::property(const QDBusMessage& call, const AtspiNode& node) const {
    const QString name = call.arguments().value(1).toString();
    if (name == QLatin1String("Name")) {
        return call.createReply(Boxed(Text(node.name)));
    }
    if (name == QLatin1String("AccessibleId")) {
        return call.createReply(Boxed(Text(node.identifier)));
    }
    if (name == QLatin1String("ChildCount")) {
        return call.createReply(Boxed(node.childCount.value_or(static_cast<int>(node.children.size()))));
    }
    const auto parent = std::find_if(nodes_.begin(), nodes_.end(), [&](const auto& other) {
        const auto& children = other.second.children;
        return std::find(children.begin(), children.end(), call.path().toStdString()) != children.end();
    });
    if (name == QLatin1String("Parent") && parent != nodes_.end()) {
        return call.createReply(Boxed(QVariant::fromValue(
            AtspiReference{Text(peer_->uniqueName()), QDBusObjectPath(Text(parent->first))})));
    }
    return call.createErrorReply(QDBusError::UnknownProperty, QStringLiteral("not known"));
}

}  // namespace fake
