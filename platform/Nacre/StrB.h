#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Nacre::Impl {

/// The framework's text: immutable, shared by its copies, so that copying one neither allocates nor
/// throws. Copies may be used on several threads at once.
class StrB {
  public:
    /// The empty text.
    StrB() noexcept = default;
    StrB( std::string text )
        : text_( text.empty() ? nullptr
                              : std::make_shared<const std::string>( std::move( text ) ) ) {}
    StrB( std::string_view text ) : StrB( std::string( text ) ) {}
    StrB( const char * text ) : StrB( std::string( text ) ) {}

    /// The characters, NUL-terminated; valid while this text or a copy of it lives.
    const char * charPtr() const noexcept { return text_ ? text_->c_str() : ""; }
    std::string_view view() const noexcept { return text_ ? std::string_view( *text_ ) : ""; }

    friend bool operator==( const StrB & a, const StrB & b ) noexcept {
        return a.text_ == b.text_ || a.view() == b.view();
    }

  private:
    std::shared_ptr<const std::string> text_;
};

} // namespace Nacre::Impl
