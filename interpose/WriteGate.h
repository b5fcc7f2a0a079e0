#pragma once

#include "interpose/Interposer.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The write gate: an SDK that lets writes through to another one, or does not. An agent that comes
// back with the chip as it left it (a warm restart) must not write: behind a gate that proves it.
//
//     Interpose::WriteGate gate( agentsShim, Interpose::WriteGate::Mode::skip );
//     Shim::sdk_ = &gate;
//     ...                        // the restart
//     if ( gate.writeCount() != 0 )
//         std::cerr << toText( gate.writes() );
//     gate.setMode( Interpose::WriteGate::Mode::allow );

namespace Interpose {

class WriteGate final : public Interposer {
  public:
    enum class Mode {
        allow,  ///< writes reach the chip
        refuse, ///< writes return a code and do not reach the chip: a guarded call stops the agent
        skip,   ///< writes return 0 and do not reach the chip
    };

    /// `inner` must outlive the gate. Its constants are asked here, once.
    explicit WriteGate( Shim::Sdk & inner, Mode mode = Mode::refuse );
    ~WriteGate();

    /// What becomes of writes from now on. `code`, negative, is what Mode::refuse returns.
    void setMode( Mode mode, int code = -1 );
    Mode mode() const;

    /// Writes of one kind: commits of entries of a table, with an opcode other than LOOKUP and GET.
    struct Writes {
        int unit =
            -1; ///< -1, and no table: of handles that no allocate through the gate handed out
        std::string table;
        SdkCall commit = SdkCall::entryCommit;
        std::uint32_t opcode = 0;
        std::string opcodeName; ///< empty if the number is none of the SDK's opcodes
        std::uint64_t allowed = 0;
        std::uint64_t refused = 0;
        std::uint64_t skipped = 0;

        bool operator==( const Writes & ) const = default;
    };

    /// The writes that came since the gate was made or reset() was called, whatever became of them:
    /// each kind, by unit, table, commit and opcode; and how many they are.
    std::vector<Writes> writes() const;
    std::uint64_t writeCount() const;
    void reset();

  private:
    int operate( const Operation & operation ) noexcept override;

    struct State;
    std::unique_ptr<State> state_;
};

// Threads: as the SDK behind it. The gate decides before the chip is asked: what is under way when
// the mode is set ends as it began. All other operations pass, so entries are allocated and freed,
// and reads see what is on the chip, not what was skipped.

/// A line for each kind of writes; empty for none.
std::string toText( const std::vector<WriteGate::Writes> & writes );

} // namespace Interpose
