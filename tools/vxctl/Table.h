#pragma once

#include <string>
#include <vector>

namespace vx::vxctl {

// Text for people: rows whose cells line up in columns as wide as their widest cell, two blanks
// apart (a row's last cell may run on), and whole lines in between that are printed as they are.
// Widths count characters of UTF-8, so that the tree's box-drawing characters take one place each.
class Table {
public:
    void Row(std::vector<std::string> cells);
    void Line(std::string text);
    // Every row and line, each ending with a newline.
    std::string Text() const;

private:
    struct Entry {
        std::vector<std::string> cells;
        bool whole = false;
    };
    std::vector<Entry> m_entries;
};

// A two-column table of labels and values: "label   value" lines.
std::string Facts(const std::vector<std::pair<std::string, std::string>>& facts);

}  // namespace vx::vxctl
