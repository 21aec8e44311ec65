#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// Columns that a terminal shows the text in.
std::size_t DisplayWidth(std::string_view text);
// At most so many columns of the text; when it has more, the last one is an ellipsis.
std::string CutTo(std::size_t columns, const std::string& text);

// Texts in aligned columns. Control characters are spelled as \xNN.
class TextTable {
 public:
    enum class Align { left, right };
    struct Column {
        std::string header;
        Align align = Align::left;
    };

    // Without headers in all columns there is no line of them.
    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // As many cells as there are columns.
    void add(std::vector<std::string> cells);

    // On a terminal of so many columns the widest texts are cut until all fit; 0: nothing is cut.
    void write(std::ostream& out, std::size_t terminalColumns) const;

 private:
    const std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace ctl
