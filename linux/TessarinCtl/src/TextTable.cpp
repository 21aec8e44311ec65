#include "TextTable.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <numeric>
#include <utility>

#include "common/ScopedAction.h"
#include "common/utf8.h"

namespace ctl {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 8;  // of a column that is cut
constexpr const char* kEllipsis = "\u2026";

// The system's tables know UTF-8 in a locale of it only, whatever the user's is.
locale_t Utf8Locale() {
    static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

// Calls `visit` with each character and its columns, until it returns false. The text is UTF-8.
template <typename Visit>
void VisitCharacters(std::string_view text, Visit visit) {
    const locale_t before = ::uselocale(Utf8Locale());
    const cmn::ScopedAction restore([before] { ::uselocale(before); });
    while (!text.empty()) {
        const std::size_t length = std::max<std::size_t>(cmn::Utf8SequenceLength(text), 1);
        std::mbstate_t state{};
        wchar_t character = 0;
        const std::size_t read = std::mbrtowc(&character, text.data(), length, &state);
        const int width = read == length ? ::wcwidth(character) : 1;
        if (!visit(text.substr(0, length), static_cast<std::size_t>(std::max(width, 0)))) {
            return;
        }
        text.remove_prefix(length);
    }
}

}  // namespace

std::size_t DisplayWidth(std::string_view text) {
    std::size_t columns = 0;
    VisitCharacters(text, [&](std::string_view, std::size_t width) {
        columns += width;
        return true;
    });
    return columns;
}

std::string CutTo(std::size_t columns, const std::string& text) {
    if (DisplayWidth(text) <= columns) {
        return text;
    }
    std::string cut;
    std::size_t used = 1;  // by the ellipsis
    VisitCharacters(text, [&](std::string_view character, std::size_t width) {
        used += width;
        cut += used <= columns ? character : std::string_view();
        return used <= columns;
    });
    return cut + kEllipsis;
}

void TextTable::add(std::vector<std::string> cells) {
    for (std::string& cell : cells) {
        cell = cmn::EscapeControls(cell);
    }
    rows_.push_back(std::move(cells));
}

void TextTable::write(std::ostream& out, std::size_t terminalColumns) const {
    auto rows = rows_;
    std::vector<std::string> headers;
    for (const Column& column : columns_) {
        headers.push_back(column.header);
    }
    if (std::any_of(headers.begin(), headers.end(), [](const auto& header) { return !header.empty(); })) {
        rows.insert(rows.begin(), headers);
    }
    std::vector<std::size_t> widths(columns_.size(), 0);
    for (const auto& row : rows) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], DisplayWidth(row[column]));
        }
    }
    const std::size_t gaps = kGap * (widths.size() - 1);
    for (;;) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        const std::size_t all = std::accumulate(widths.begin(), widths.end(), gaps);
        if (terminalColumns == 0 || all <= terminalColumns || *widest <= kNarrowest) {
            break;
        }
        --*widest;
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < widths.size(); ++column) {
            const std::string text = CutTo(widths[column], row[column]);
            const std::string blanks(widths[column] - std::min(widths[column], DisplayWidth(text)), ' ');
            line += columns_[column].align == Align::right ? blanks + text : text + blanks;
            line += column + 1 < widths.size() ? std::string(kGap, ' ') : std::string();
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace ctl
