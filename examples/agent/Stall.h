#pragma once

#include <interpose/Interposer.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <unistd.h>

/// Does not return from the operation with this number, counted from 1, as an SDK does whose device hangs.
class Stall final : public Interpose::Interposer {
  public:
    Stall( Shim::Sdk & inner, std::uint64_t operation ) : Interposer( inner ), left_( operation ) {}

  private:
    int operate( const Interpose::Operation & operation ) noexcept override {
        if ( left_.fetch_sub( 1, std::memory_order_relaxed ) == 1 ) {
            std::fputs( "example-agent: an operation stalls\n", stderr );
            for ( ;; )
                ::pause();
        }
        return perform( inner(), operation );
    }

    std::atomic<std::uint64_t> left_;
};
