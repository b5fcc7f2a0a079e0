#pragma once

#include <Kiln/StdIterator.h>

#include <memory>
#include <unordered_map>
#include <utility>

namespace Kiln {

/// The collection that holds the agent's state: a hash map that iterates in the order in which keys
/// were first added. `NodeTag` names the collection and its types:
///
///     struct HN_CairnModId { using Key = uint16_t; using Value = CairnModInfo; };
///     Kiln::HashMap2018< HN_CairnModId > modules;
///
/// Keys need std::hash and ==. Look-ups neither allocate nor throw. Not synchronised: the activity
/// lock guards the agent's state.
template <class NodeTag>
class HashMap2018 {
  public:
    using Key = typename NodeTag::Key;
    using Value = typename NodeTag::Value;

    struct Element {
        const Key key;
        Value value;
    };

  private:
    struct Node {
        Element element;
        Node * next = nullptr;
        Node * previous = nullptr;
    };

  public:
    using Iterator = StdIterator<Node, Element>;
    using ConstIterator = StdIterator<const Node, const Element>;

    HashMap2018() = default;
    HashMap2018( const HashMap2018 & ) = delete;
    HashMap2018 & operator=( const HashMap2018 & ) = delete;

    ConstIterator begin() const noexcept { return ConstIterator( first_ ); }
    ConstIterator end() const noexcept { return ConstIterator(); }
    size_t size() const noexcept { return nodes_.size(); }
    bool empty() const noexcept { return nodes_.empty(); }

    /// The element of `key`, or end().
    ConstIterator find( const Key & key ) const noexcept {
        const auto found = nodes_.find( key );
        return ConstIterator( found == nodes_.end() ? nullptr : found->second.get() );
    }

    /// Adds the key, or replaces the value of a key that is there, which keeps its place.
    void set( const Key & key, Value value ) {
        const auto found = nodes_.find( key );
        if ( found != nodes_.end() ) {
            found->second->element.value = std::move( value );
            return;
        }
        auto node = std::make_unique<Node>( Node{ { key, std::move( value ) }, nullptr, last_ } );
        Node * added = node.get();
        nodes_.emplace( key, std::move( node ) );
        ( last_ != nullptr ? last_->next : first_ ) = added;
        last_ = added;
    }

    /// Removes the key; false if it was not there.
    bool erase( const Key & key ) noexcept {
        const auto found = nodes_.find( key );
        if ( found == nodes_.end() )
            return false;
        const Node & node = *found->second;
        ( node.previous != nullptr ? node.previous->next : first_ ) = node.next;
        ( node.next != nullptr ? node.next->previous : last_ ) = node.previous;
        nodes_.erase( found );
        return true;
    }

  private:
    std::unordered_map<Key, std::unique_ptr<Node>> nodes_;
    Node * first_ = nullptr;
    Node * last_ = nullptr;
};

} // namespace Kiln
