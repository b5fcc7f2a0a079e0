#pragma once

#include "interpose/SdkCall.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Faults as values, and as text for a command line.

namespace Interpose {

/// One fault: which operations it matches, at which of these it strikes, and what happens then.
/// A property that is left empty matches anything.
struct Fault {
    std::optional<SdkCall> operation = {}; ///< one of sdkOperations()
    /// Table of the entry. Also matches an allocate of a table that the chip does not have.
    std::optional<std::string> table = {};
    /// Field. Matches only operations that name one.
    std::optional<std::string> field = {};
    std::optional<int> unit = {};

    /// Strikes at the operation that matches for the `occurrence`th time, counted from 1 ...
    std::uint64_t occurrence = 1;
    /// ... and, if this is set, at every match after it.
    bool always = false;

    /// What the operation returns; 0 only with `overridesRefusal` or `invalidHandle`.
    /// Negative: the operation does not reach the chip. Nothing changes, and nothing is stored
    /// through its pointers.
    /// Positive: the operation reaches the chip, and the code is returned in place of 0. If the
    /// chip refuses it, the chip's code is returned, and the fault has not struck.
    int rc = -1;
    /// Also a refusal of the chip becomes `rc`, which may be 0 then; an allocate that the chip
    /// refuses leaves BCMLT_INVALID_HDL. Not part of the text of a fault.
    bool overridesRefusal = false;
    /// Allocate only: returns `rc` (0 or positive) and stores BCMLT_INVALID_HDL; the allocate does
    /// not reach the chip.
    bool invalidHandle = false;

    bool operator==( const Fault & ) const = default;
};

/// What makes a fault senseless (not an operation, code 0, a field for an operation that names none
/// ...), in one line with the remedy; empty if it makes sense.
std::string check( const Fault & fault );

/// What parseFault found: the fault, or else one line that says what is wrong.
struct ParsedFault {
    std::optional<Fault> fault;
    std::string error;
};

/// Reads a fault from text: words separated by commas, in any order, blanks around them ignored.
///
///     op=bcmlt_pt_entry_commit,table=EGR_TUNNEL_ECN_ENCAPm,rc=-7,at=1
///     op=commit,rc=-26,at=2,always
///     op=allocate,handle=invalid
///
/// `op=` operation, in full or as operationByName() allows; `table=`, `field=`, `unit=` as in
/// Fault; `rc=` the code; `at=` the occurrence; `always`; `handle=invalid`. `rc` is required unless
/// `handle=invalid` is there; `handle=invalid` implies `op=allocate`. The error text quotes the bad
/// word, tells what is allowed and names the nearest name.
ParsedFault parseFault( std::string_view text );

/// The text that parseFault reads back as the same fault, if the fault overrides no refusal.
std::string toText( const Fault & fault );

} // namespace Interpose
