#pragma once

#include <Nacre/StrB.h>

#include <cstdint>
#include <string>

namespace CairnCentral {

/// Which chip is meant: a value, passed and copied freely. A ChipInfo equal to a
/// default-constructed one means "no chip".
class ChipInfo {
  public:
    /// No chip: the members' defaults, then doInit().
    ChipInfo() { doInit(); }
    ChipInfo( Nacre::Impl::StrB name, std::uint32_t first, std::uint16_t second,
              std::uint8_t third )
        : name_( std::move( name ) ), first_( first ), second_( second ), third_( third ) {
        doInit();
    }
    ChipInfo( const ChipInfo & other ) = default;
    ChipInfo & operator=( const ChipInfo & other ) = default;
    virtual ~ChipInfo() = default;

    /// The chip for a reader: its name and its three values.
    virtual std::string toString() const;

    const Nacre::Impl::StrB & name() const noexcept { return name_; }
    std::uint32_t first() const noexcept { return first_; }
    std::uint16_t second() const noexcept { return second_; }
    std::uint8_t third() const noexcept { return third_; }

    /// Whether two ChipInfo objects, passed by address, have the same name and values.
    static bool isEq( const void * a, const void * b ) noexcept;

  private:
    /// The model's own initialisation after construction.
    void doInit();

    Nacre::Impl::StrB name_;
    std::uint32_t first_ = 0;
    std::uint16_t second_ = 0;
    std::uint8_t third_ = 0;
};

} // namespace CairnCentral
