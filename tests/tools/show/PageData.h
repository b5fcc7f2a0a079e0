#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

// What a page of a report holds, read as its script reads it.

namespace ToolTest {

struct PageData {
    /// Fails the test if the page holds none.
    explicit PageData( const std::string & page );

    /// The numbers of a column.
    std::vector<std::uint64_t> column( const std::string & name ) const;
    /// The texts that a column tells.
    std::vector<std::string> texts( const std::string & name ) const;
    /// The value of a fact; empty if there is none of that name.
    std::string fact( const std::string & name ) const;
    /// The value of a fact of the failure; the same.
    std::string failureFact( const std::string & name ) const;
    /// A table of the chip; null if it is not there.
    nlohmann::json table( const std::string & name ) const;

    nlohmann::json head;

  private:
    std::string columns_;
    std::vector<std::string> texts_;
};

} // namespace ToolTest
