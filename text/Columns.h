#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Cells in columns under each other.

namespace Text {

/// Two blanks stand before each cell; no line ends in blanks.
class Columns {
  public:
    using Line = std::vector<std::string>;

    void add( Line cells );
    /// A line of its own, which widens no column.
    void addRemark( std::string remark );

    /// Characters that the first columns take.
    std::size_t width( std::size_t columns ) const;

    std::string text() const;

  private:
    struct Row {
        Line cells;
        bool isRemark;
    };
    std::vector<std::size_t> widths_;
    std::vector<Row> rows_;
};

} // namespace Text
