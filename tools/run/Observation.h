#pragma once

#include "interpose/Recorder.h"

#include <Kiln/TraceSink.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

// What a recipe does, observed by running it between a recorder and a trace sink.

namespace Tool {

/// An SDK operation, or the check of a code that an operation left behind.
struct ObservedCall {
    /// The operation with its result; it has not returned if this is a check. Its handle is the
    /// number of its entry: entries are numbered by their allocates, from 1; 0 is an invalid one.
    Interpose::Event operation = {};
    /// The pre-call hook ran just before: the call is guarded.
    bool hook = false;
    /// The activity lock was held during the hook, and during the operation.
    bool hookLocked = false;
    bool operationLocked = false;
    /// Constants that were asked for the call, in order.
    std::vector<Interpose::SdkCall> constants = {};

    /// Its trace line, empty texts if there is none: the call as the library spells it, what
    /// follows it, " (rc:0)" or " no rc check", and its line in the library's source.
    std::string text = {};
    std::string ending = {};
    int line = 0;

    bool isCheck() const { return !operation.returned; }
    bool is( Interpose::SdkCall call ) const { return !isCheck() && operation.call == call; }
    /// The recipe does not look at the code.
    bool isIgnored() const { return ending == ignoredEnding; }

    static constexpr std::string_view ignoredEnding = " no rc check";
};

/// A constant that was asked outside any call.
struct ObservedConstant {
    Interpose::SdkCall constant;
};

/// A line that the recipe traced.
struct ObservedMessage {
    std::string facility;
    std::uint32_t level = 0;
    std::string text;
};

/// A question to the chip model.
struct ModelQuestion {
    enum class What {
        isBlocked,
        isUnblocked,
        activeChipProfile,  ///< has the chip one?
        kilnTypeFeature,    ///< has its profile the feature?
        hasRangeTableIndex, ///< of the feature CairnChipAttributes
        sysportFromModport, ///< of the feature CairnCommonFeatureAttributes
    };
    What what;
    std::string chip;
    std::uint32_t stage = 0;    ///< isBlocked, isUnblocked
    std::string feature = {};   ///< kilnTypeFeature: its class
    std::uint16_t modId = 0;    ///< sysportFromModport, as its arguments are called
    std::uint16_t port = 0;     ///< likewise
    std::uint32_t maxPorts = 0; ///< likewise
    std::int32_t answer = 0;    ///< 1: yes, 0: no; sysportFromModport: the number
};

/// What is no call, and how many calls had been made before it.
struct Note {
    std::size_t afterCalls = 0;
    std::variant<ObservedConstant, ObservedMessage, ModelQuestion> what;
};

struct Observation {
    std::vector<ObservedCall> calls = {};
    std::vector<Note> notes = {};

    /// Names of functions in trace lines, each once.
    std::vector<std::string> functions = {};
    std::size_t preCallHooks = 0;
    std::size_t failureHooks = 0;
    bool failureHookLocked = true;
    /// There was something on standard error, which is a file, when the failure hook ran.
    bool reportedBeforeHook = false;
    /// The codes whose texts were asked.
    std::vector<int> errorTexts = {};
};

/// Calls `onCall` and `onNote` in the order in which things happened.
template <class OnCall, class OnNote>
void inOrder( const Observation & seen, const OnCall & onCall, const OnNote & onNote ) {
    auto note = seen.notes.begin();
    for ( std::size_t calls = 0; calls <= seen.calls.size(); ++calls ) {
        for ( ; note != seen.notes.end() && note->afterCalls == calls; ++note )
            onNote( *note );
        if ( calls < seen.calls.size() )
            onCall( seen.calls[calls] );
    }
}

/// Assembles hooks, constants, operations and trace lines into the calls that they belong to.
/// Takes all trace lines of the process while it lives. At most one lives at a time.
class Observer {
  public:
    /// Called as soon as an operation has returned; its call is the last one seen.
    using AfterOperation = std::function<void( const Observation & seen )>;

    explicit Observer( Shim::Sdk & inner, AfterOperation afterOperation = {} );
    ~Observer();
    Observer( const Observer & ) = delete;
    Observer & operator=( const Observer & ) = delete;

    /// The SDK that the library must use.
    Shim::Sdk & sdk() { return recorder_; }

    /// Observes what happens from now on.
    void begin() { watching_ = true; }

    /// Adds a note of something else that happened.
    template <class What>
    void note( What what ) {
        if ( watching_ )
            seen_.notes.push_back( { seen_.calls.size(), std::move( what ) } );
    }

    const Observation & seen() const { return seen_; }
    /// The same at the end of the run: a hook without an operation then was that of a check.
    const Observation & finish();

  private:
    void onEvent( Interpose::Recorder::Moment moment, const Interpose::Event & event );
    void onHook( Interpose::SdkCall hook );
    void onConstant( Interpose::SdkCall constant );
    void onOperation( const Interpose::Event & event );
    void onTraceLine( const Kiln::TraceLine & line );
    void onCallTrace( const Kiln::TraceLine & line );
    ObservedCall takeHook();

    Interpose::Recorder recorder_;
    AfterOperation afterOperation_;
    Observation seen_;
    std::map<std::uint32_t, std::uint32_t> entries_; // the numbers of handles
    std::uint32_t allocates_ = 0;
    std::vector<Interpose::SdkCall> constants_;
    bool watching_ = false;
    bool hookPending_ = false;
    bool hookLocked_ = false;
    bool operationLocked_ = false;
};

} // namespace Tool
