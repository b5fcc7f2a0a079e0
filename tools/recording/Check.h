#pragma once

#include "sim/Schema.h"
#include "tracereader/Recording.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

// Rules that the calls of a recording are held to.

namespace Tool {

enum class CheckRule {
    leaked,
    usedAfterFree,
    freedTwice,
    noKey,
    notCommitted,
    lockHeld,
    noHook,
    afterFailure,
    staleModify,
    writtenTwice,
    otherThread,
};
inline constexpr std::size_t checkRuleCount = 11;

struct CheckRuleText {
    std::string_view name;
    std::string_view sentence; ///< what is wrong where the rule is broken
};

/// In the order of CheckRule.
std::span<const CheckRuleText, checkRuleCount> checkRules();

/// InputError, with the nearest name, if there is no such rule.
CheckRule checkRuleByName( std::string_view name );

/// A call that a finding is about.
struct CheckedCall {
    std::uint64_t number = 0;
    std::int64_t time = 0; ///< nanoseconds since 1970, UTC
    std::uint32_t thread = 0;
    TraceReader::SdkCall call = TraceReader::SdkCall::entryFree;
    std::int32_t rc = 0;
};

struct CheckFinding {
    CheckRule rule = CheckRule::leaked;
    std::string what;
    std::vector<CheckedCall> calls = {}; ///< oldest first
};

/// Takes the events of a recording one after the other. What is kept in memory is the entries that
/// are allocated, and a bounded number of entries that were freed and rows that were written.
class Check {
  public:
    struct Options {
        /// What the rows of a unit's tables are addressed by. Null: the unit is not known.
        std::function<const Sim::Schema *( std::int32_t unit )> schema;
        std::set<CheckRule> ignored = {};
        /// Whether the beginning of the recording is lost, with the allocates of some entries.
        std::function<bool()> hasLostBeginning = {};
    };
    using OnFinding = std::function<void( const CheckFinding & )>;

    Check( Options options, OnFinding onFinding );

    void take( const TraceReader::Event & event );
    /// After the last event.
    void finish();

    std::uint64_t operations() const { return operations_; }

    // --- What could not be judged

    /// The recorder was not told how to ask whether the activity lock is held.
    bool isLockUnknown() const { return isLockUnknown_; }
    /// Tables that no chip has: what addresses their rows is not known.
    const std::set<std::string> & unknownTables() const { return unknownTables_; }
    /// Operations on entries that were allocated before the recording begins.
    std::uint64_t ofOlderEntries() const { return ofOlderEntries_; }

  private:
    using Call = TraceReader::RecordedCall;

    /// What is known of a table, looked up once.
    struct Table {
        std::string name;
        std::int32_t unit = 0;
        std::uint64_t number = 0;
        bool isKnown = false;
        std::vector<std::string> keys; ///< the fields that must be there at a commit
    };
    struct Carried {
        const std::string * field; ///< interned
        std::uint32_t startIndex;
        std::uint64_t values; ///< as a hash
    };
    struct Entry {
        const Table * table = nullptr;
        CheckedCall allocate = {};
        CheckedCall last = {};
        std::vector<Carried> carried = {};
        std::uint64_t freeCall = 0; ///< the number of the call that is freeing it
        bool isFilled = false;      ///< since the last commit
        bool readsHardware = false;
        bool isRead = false;
        bool isReadFromCache = false;
        CheckedCall read = {};
        bool hasCrossed = false;
    };
    struct Written {
        std::uint64_t values = 0;
        TraceReader::SdkConstant opcode = {};
        bool isRead = false;
        CheckedCall call = {};
    };
    struct Thread {
        bool isGuarded = false; ///< the hook has run, and no operation since
        std::optional<CheckedCall> failure = {};
    };

    void takeHook( const TraceReader::Event & event );
    void takeOperation( const Call & call );
    void takeAllocate( const Call & call );
    void takeUse( const Call & call, Entry & entry );
    void takeFree( const Call & call );
    void takeCommit( const Call & call, Entry & entry );
    void takeWrite( const Call & call, const Entry & entry );
    void takeUnknown( const Call & call );
    void checkGuard( const Call & call, Thread & thread );
    void checkLock( const Call & call );
    void carry( const Call & call, Entry & entry );
    const Table * tableOf( const Call & call );
    const std::string * intern( const std::string & text );
    void find( CheckRule rule, std::string what, std::vector<CheckedCall> calls );

    const Options options_;
    const OnFinding onFinding_;
    std::unordered_map<std::uint32_t, Entry> entries_;     ///< by handle
    std::unordered_map<std::uint32_t, CheckedCall> freed_; ///< by handle
    std::deque<std::uint32_t> freedInOrder_;
    std::vector<std::uint64_t> freedEarly_;
    std::unordered_map<std::uint64_t, Written> written_; ///< by hash of the row
    std::deque<std::uint64_t> writtenInOrder_;
    std::unordered_map<std::uint32_t, Thread> threads_;
    std::map<std::pair<std::int32_t, std::string>, Table, std::less<>> tables_;
    std::unordered_set<std::string> texts_;
    std::set<std::string> unknownTables_;
    std::uint64_t operations_ = 0;
    std::uint64_t ofOlderEntries_ = 0;
    bool isLockUnknown_ = false;
};

} // namespace Tool
