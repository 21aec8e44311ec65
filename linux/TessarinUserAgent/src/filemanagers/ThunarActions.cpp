#include "filemanagers/ThunarActions.h"

#include <QString>
#include <QXmlStreamReader>
#include <vector>

#include "common/make_error.h"
#include "common/utf8.h"

namespace useragent::thunar {
namespace {

constexpr const char* kMakerMark = "<!-- Tessarin made this file. -->";
constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
constexpr int kActionDepth = 2;

// A part of the text.
struct Range {
    qsizetype begin = 0;
    qsizetype end = 0;
    qsizetype size() const { return end - begin; }
};

struct List {
    QString text;
    std::string byteOrderMark;    // in front of it
    bool rootIsEmptyTag = false;  // <actions/>
    Range root;                   // the opening tag
    qsizetype lastChildEnd = 0;   // where a further action goes
    std::vector<Range> ours;      // whole elements

    std::string written() const { return byteOrderMark + text.toStdString(); }
};

QString Decoded(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

List Read(std::string_view bytes) {
    // Thunar reads nothing but UTF-8, whatever the file declares.
    if (!cmn::IsValidUtf8(bytes)) {
        throw cmn::make_error(" is not UTF-8 text, which Thunar cannot read, and was left alone.");
    }
    List list;
    list.text = Decoded(bytes);
    list.byteOrderMark = bytes.starts_with(kByteOrderMark) ? kByteOrderMark : "";
    QXmlStreamReader reader(list.text);
    bool isList = false;
    bool isOurs = false;
    int depth = 0;
    Range child;
    qsizetype idBegin = 0;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        // The end is exact; the reader may have looked beyond the beginning before. A tag has but one "<".
        const qsizetype end = reader.characterOffset();
        const auto begin = [&] { return list.text.lastIndexOf(QLatin1Char('<'), end - 1); };
        if (token == QXmlStreamReader::DTD) {
            throw cmn::make_error(" has a document type, which Thunar's lists have not, and was left alone.");
        }
        if (token == QXmlStreamReader::StartElement) {
            ++depth;
            if (depth == 1) {
                isList = reader.name() == QLatin1String("actions");
                list.root = {begin(), end};
                list.lastChildEnd = end;
            } else if (depth == kActionDepth) {
                child.begin = begin();
                isOurs = false;
            }
            idBegin = end;
        } else if (token == QXmlStreamReader::EndElement) {
            if (depth == 1) {
                list.rootIsEmptyTag = end == list.root.end;
            } else if (depth == kActionDepth) {
                child.end = list.lastChildEnd = end;
                if (isOurs && reader.qualifiedName() == QLatin1String("action")) {
                    list.ours.push_back(child);
                }
            } else if (depth == kActionDepth + 1 && end > idBegin &&
                       reader.qualifiedName() == QLatin1String("unique-id")) {
                const QStringView id = QStringView(list.text).mid(idBegin, begin() - idBegin);
                isOurs = isOurs || id.trimmed() == QLatin1String(kUniqueId);
            }
            --depth;
        }
    }
    if (reader.hasError()) {
        throw cmn::make_error(" is damaged (line ", reader.lineNumber(), ": ",
                              reader.errorString().toStdString(), ") and was left alone.");
    }
    if (!isList) {
        throw cmn::make_error(" is not a list of Thunar's actions and was left alone.");
    }
    return list;
}

// What decides whether an action does the same as another.
QString CommandOf(const QString& action) {
    QXmlStreamReader reader(action);
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement &&
            reader.name() == QLatin1String("command")) {
            return reader.readElementText(QXmlStreamReader::IncludeChildElements);
        }
    }
    return {};
}

}  // namespace

bool HasAction(std::string_view text) {
    return !Read(text).ours.empty();
}

std::string WithAction(std::string_view text, std::string_view action) {
    List list = Read(text);
    const QString added = Decoded(action);
    if (!list.ours.empty()) {
        const Range present = list.ours.front();
        // The user may have given it another icon or a shortcut.
        if (CommandOf(list.text.mid(present.begin, present.size())) != CommandOf(added)) {
            list.text.replace(present.begin, present.size(), added);
        }
    } else if (list.rootIsEmptyTag) {
        const qsizetype slash = list.text.lastIndexOf(QLatin1Char('/'), list.root.end - 1);
        list.text.replace(slash, list.root.end - slash, ">\n" + added + "\n</actions>");
    } else {
        list.text.insert(list.lastChildEnd, "\n" + added);
    }
    return list.written();
}

std::string WithoutAction(std::string_view text) {
    List list = Read(text);
    for (auto ours = list.ours.rbegin(); ours != list.ours.rend(); ++ours) {
        const bool hasOwnLine = ours->begin > 0 && list.text[ours->begin - 1] == QLatin1Char('\n');
        list.text.remove(ours->begin - (hasOwnLine ? 1 : 0), ours->size() + (hasOwnLine ? 1 : 0));
    }
    return list.written();
}

std::string MarkedAsMaker(std::string_view action) {
    std::string marked(action);
    return marked.insert(marked.find('>') + 1, "\n\t" + std::string(kMakerMark));
}

bool IsMadeByUs(std::string_view text) {
    const List list = Read(text);
    return list.ours.size() == 1 && QStringView(list.text)
                                        .mid(list.ours.front().begin, list.ours.front().size())
                                        .contains(QLatin1String(kMakerMark));
}

}  // namespace useragent::thunar
