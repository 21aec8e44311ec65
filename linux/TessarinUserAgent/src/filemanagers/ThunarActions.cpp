#include "filemanagers/ThunarActions.h"

#include <QString>
#include <QXmlStreamReader>
#include <boost/algorithm/string/trim.hpp>
#include <optional>
#include <vector>

#include "common/make_error.h"
#include "common/utf8.h"

namespace useragent::thunar {
namespace {

constexpr std::string_view kMakerMark = "<!-- Tessarin made this file. -->";

// A part of the text, in bytes.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

struct List {
    Range root;                    // the opening tag
    bool rootIsEmptyTag = false;   // <actions/>
    std::size_t lastChildEnd = 0;  // where a further action goes
    std::vector<Range> ours;       // whole elements
};

void CheckWellFormed(std::string_view text) {
    // Thunar reads nothing but UTF-8, whatever the file declares.
    if (!cmn::IsValidUtf8(text)) {
        throw cmn::make_error(" is not UTF-8 text, which Thunar cannot read, and was left alone.");
    }
    QXmlStreamReader reader(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    bool isList = false;
    for (bool first = true; !reader.atEnd();) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::DTD) {
            throw cmn::make_error(" has a document type, which Thunar's lists have not, and was left alone.");
        }
        if (token == QXmlStreamReader::StartElement && first) {
            isList = reader.name() == QLatin1String("actions");
            first = false;
        }
    }
    if (reader.hasError()) {
        throw cmn::make_error(" is damaged (line ", reader.lineNumber(), ": ",
                              reader.errorString().toStdString(), ") and was left alone.");
    }
    if (!isList) {
        throw cmn::make_error(" is not a list of Thunar's actions and was left alone.");
    }
}

struct Tag {
    Range range;
    std::string_view name;
    enum class Kind { opening, closing, empty } kind = Kind::opening;
};

// The next tag from `position` on, in well-formed text without a document type.
std::optional<Tag> NextTag(std::string_view text, std::size_t position) {
    const auto skip = [&](std::string_view opening, std::string_view closing) {
        if (!text.substr(position).starts_with(opening)) {
            return false;
        }
        position = text.find(closing, position + opening.size()) + closing.size();
        return true;
    };
    while ((position = text.find('<', position)) != std::string_view::npos) {
        if (skip("<!--", "-->") || skip("<![CDATA[", "]]>") || skip("<?", "?>")) {
            continue;
        }
        Tag tag;
        tag.range.begin = position;
        char quote = '\0';
        for (++position; quote != '\0' || text[position] != '>'; ++position) {
            if (quote == '\0' && (text[position] == '"' || text[position] == '\'')) {
                quote = text[position];
            } else if (text[position] == quote) {
                quote = '\0';
            }
        }
        tag.range.end = position + 1;
        std::string_view inner = text.substr(tag.range.begin + 1, position - tag.range.begin - 1);
        if (inner.starts_with('/')) {
            tag.kind = Tag::Kind::closing;
            inner.remove_prefix(1);
        } else if (inner.ends_with('/')) {
            tag.kind = Tag::Kind::empty;
            inner.remove_suffix(1);
        }
        tag.name = inner.substr(0, inner.find_first_of(" \t\r\n"));
        return tag;
    }
    return std::nullopt;
}

List Read(std::string_view text) {
    CheckWellFormed(text);
    constexpr std::size_t kActionDepth = 2;
    List list;
    std::size_t depth = 0;
    Range child;
    std::size_t idBegin = 0;
    bool isOurs = false;
    for (auto tag = NextTag(text, 0); tag; tag = NextTag(text, tag->range.end)) {
        if (tag->kind != Tag::Kind::closing) {
            ++depth;
            if (depth == 1) {
                list.root = tag->range;
                list.rootIsEmptyTag = tag->kind == Tag::Kind::empty;
                list.lastChildEnd = tag->range.end;
            } else if (depth == kActionDepth) {
                child = tag->range;
                isOurs = false;
            }
            idBegin = tag->range.end;
        }
        if (tag->kind == Tag::Kind::opening) {
            continue;
        }
        if (tag->kind == Tag::Kind::closing && depth == kActionDepth + 1 && tag->name == "unique-id") {
            const std::string_view id = text.substr(idBegin, tag->range.begin - idBegin);
            isOurs = isOurs || boost::algorithm::trim_copy(std::string(id)) == kUniqueId;
        }
        if (depth == kActionDepth) {
            child.end = tag->range.end;
            list.lastChildEnd = child.end;
            if (isOurs && tag->name == "action") {
                list.ours.push_back(child);
            }
        }
        --depth;
    }
    return list;
}

// What decides whether an action does the same as another.
QString CommandOf(std::string_view action) {
    QXmlStreamReader reader(QString::fromUtf8(action.data(), static_cast<qsizetype>(action.size())));
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement &&
            reader.name() == QLatin1String("command")) {
            return reader.readElementText(QXmlStreamReader::IncludeChildElements);
        }
    }
    return {};
}

std::string_view Part(std::string_view text, Range range) {
    return text.substr(range.begin, range.end - range.begin);
}

}  // namespace

bool HasAction(std::string_view list) {
    return !Read(list).ours.empty();
}

std::string WithAction(std::string_view list, std::string_view action) {
    const List parts = Read(list);
    std::string text(list);
    if (!parts.ours.empty()) {
        const Range present = parts.ours.front();
        // The user may have given it another icon or a shortcut.
        if (CommandOf(Part(list, present)) != CommandOf(action)) {
            text.replace(present.begin, present.end - present.begin, action);
        }
    } else if (parts.rootIsEmptyTag) {
        const std::size_t slash = text.rfind('/', parts.root.end);
        text.replace(slash, parts.root.end - slash, ">\n" + std::string(action) + "\n</actions>");
    } else {
        text.insert(parts.lastChildEnd, "\n" + std::string(action));
    }
    return text;
}

std::string WithoutAction(std::string_view list) {
    const List parts = Read(list);
    std::string text(list);
    for (auto ours = parts.ours.rbegin(); ours != parts.ours.rend(); ++ours) {
        const bool hasOwnLine = ours->begin > 0 && text[ours->begin - 1] == '\n';
        const std::size_t begin = ours->begin - (hasOwnLine ? 1 : 0);
        text.erase(begin, ours->end - begin);
    }
    return text;
}

std::string MarkedAsMaker(std::string_view action) {
    std::string marked(action);
    return marked.insert(marked.find('>') + 1, "\n\t" + std::string(kMakerMark));
}

bool IsMadeByUs(std::string_view list) {
    const List parts = Read(list);
    return parts.ours.size() == 1 &&
           Part(list, parts.ours.front()).find(kMakerMark) != std::string_view::npos;
}

}  // namespace useragent::thunar
