#include "Table.h"

#include <algorithm>
#include <cstddef>

namespace vx::vxctl {
namespace {

std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;  // not a continuation byte
    }));
}

}  // namespace

void Table::Row(std::vector<std::string> cells) {
    m_entries.push_back({std::move(cells), false});
}

void Table::Line(std::string text) {
    m_entries.push_back({{std::move(text)}, true});
}

std::string Table::Text() const {
    std::vector<std::size_t> widths;
    for (const auto& entry : m_entries) {
        if (entry.whole) continue;
        // A row's last cell has nothing after it to line up, so it widens no column.
        widths.resize(std::max(widths.size(), entry.cells.size()));
        for (std::size_t column = 0; column + 1 < entry.cells.size(); ++column) {
            widths[column] = std::max(widths[column], Width(entry.cells[column]));
        }
    }
    std::string text;
    for (const auto& entry : m_entries) {
        std::string line;
        for (std::size_t column = 0; column < entry.cells.size(); ++column) {
            const std::string& cell = entry.cells[column];
            line += cell;
            if (!entry.whole && column + 1 < entry.cells.size()) {
                line.append(widths[column] - Width(cell) + 2, ' ');
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string Facts(const std::vector<std::pair<std::string, std::string>>& facts) {
    Table table;
    for (const auto& [label, value] : facts)
        table.Row({label, value});
    return table.Text();
}

}  // namespace vx::vxctl
