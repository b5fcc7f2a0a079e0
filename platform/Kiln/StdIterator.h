#pragma once

#include <cstddef>
#include <iterator>

namespace Kiln {

/// Stops the process: there is no element at this iterator. Prints what assert( iter_ ) would, with
/// the file "Kiln/StdIterator", in every build type.
[[noreturn]] void stopForEmptyIterator( int line, const char * function ) noexcept;

/// Iterator over the nodes of a linked collection. A default one, and one past the last element,
/// holds no element: it compares equal to other empty ones, and to dereference or advance it is a
/// fatal error. Adding elements leaves iterators valid; so does erasing any element but the one an
/// iterator holds.
template <class Node, class Element>
class StdIterator {
  public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Element;
    using difference_type = std::ptrdiff_t;
    using pointer = Element *;
    using reference = Element &;

    StdIterator() noexcept = default;
    explicit StdIterator( Node * node ) noexcept : iter_( node ) {}

    Element & operator*() const noexcept { return checked()->element; }
    Element * operator->() const noexcept { return &checked()->element; }
    StdIterator & operator++() noexcept {
        iter_ = checked()->next;
        return *this;
    }
    StdIterator operator++( int ) noexcept {
        StdIterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==( const StdIterator &, const StdIterator & ) noexcept = default;

  private:
    Node * checked() const noexcept {
        if ( iter_ == nullptr ) [[unlikely]]
            stopForEmptyIterator( __LINE__, __PRETTY_FUNCTION__ );
        return iter_;
    }

    Node * iter_ = nullptr;
};

} // namespace Kiln
