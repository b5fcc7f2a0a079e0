#include "tools/recording/Check.h"

#include "text/Columns.h"
#include "text/Time.h"
#include "tools/cli/Progress.h"
#include "tools/cli/RecordingInput.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"
#include "tools/recording/OpenRecording.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <string>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

int listRules( Format format ) {
    if ( format == Format::json ) {
        Json rules = Json::array();
        for ( const CheckRuleText & rule : checkRules() )
            rules.push_back( { { "rule", rule.name }, { "finds", rule.sentence } } );
        print( documentText( std::move( rules ) ) );
        return 0;
    }
    Text::Columns columns;
    for ( const CheckRuleText & rule : checkRules() )
        columns.add( { std::string( rule.name ), std::string( rule.sentence ) } );
    print( columns.text() );
    return 0;
}

std::string_view ruleName( CheckRule rule ) {
    return checkRules()[static_cast<std::size_t>( rule )].name;
}

std::string findingText( const CheckFinding & finding ) {
    std::string text = fmt::format( "{}: {}\n", ruleName( finding.rule ), finding.what );
    for ( const CheckedCall & call : finding.calls )
        text += fmt::format(
            "  call {}  {}  thread {}  {}{}\n", call.number, Text::utc( call.time ), call.thread,
            TraceReader::name( call.call ),
            TraceReader::isHook( call.call ) ? "" : fmt::format( " -> rc {}", call.rc ) );
    return text;
}

std::string findingJson( const CheckFinding & finding ) {
    Json calls = Json::array();
    for ( const CheckedCall & call : finding.calls )
        calls.push_back( { { "number", call.number },
                           { "time", Text::utc( call.time ) },
                           { "thread", call.thread },
                           { "call", TraceReader::name( call.call ) },
                           { "rc", call.rc } } );
    return Json{ { "rule", ruleName( finding.rule ) },
                 { "what", finding.what },
                 { "calls", std::move( calls ) } }
        .dump( -1, ' ', false, Json::error_handler_t::replace );
}

class CheckVerb {
  public:
    explicit CheckVerb( const CheckOptions & options ) : options_( options ) {}

    int run() {
        Check::Options rules;
        for ( const std::string & name : options_.ignore )
            rules.ignored.insert( checkRuleByName( name ) );
        const Model model = modelOf( options_.chips );
        const Sim::Schema reference = Sim::referenceSchema();
        const bool isDescribed = !options_.chips.chips.empty() || !options_.chips.model.empty();
        rules.schema = [&]( std::int32_t unit ) -> const Sim::Schema * {
            if ( !isDescribed )
                return &reference;
            const ChipDescription * chip = model.findUnit( static_cast<std::uint64_t>( unit ) );
            return chip != nullptr ? &chip->schema : nullptr;
        };
        const auto recording = openRecording( options_.recording, options_.process );
        rules.hasLostBeginning = [&] { return recording->hasLostBeginning(); };
        Check check( std::move( rules ),
                     [this]( const CheckFinding & finding ) { show( finding ); } );
        if ( isJson() )
            text_ = "{\"findings\":[";
        TraceReader::Event event;
        while ( recording->next( event ) ) {
            check.take( event );
            progress_.tell( event );
        }
        progress_.clear();
        check.finish();
        text_ += isJson() ? fmt::format( "\n],\"operations\":{}}}\n", check.operations() )
                          : fmt::format( "{} finding{} in {} operations\n",
                                         count_ == 0 ? "no" : fmt::to_string( count_ ),
                                         count_ == 1 ? "" : "s", check.operations() );
        print( text_ );
        const bool isDamaged = tellLosses( *recording );
        tellUnknown( check );
        return count_ != 0 || isDamaged ? 1 : 0;
    }

  private:
    bool isJson() const { return options_.format == Format::json; }

    void show( const CheckFinding & finding ) {
        text_ += isJson() ? ( count_ == 0 ? "\n" : ",\n" ) + findingJson( finding )
                          : findingText( finding );
        ++count_;
        if ( text_.size() < outputChunk )
            return;
        progress_.clear();
        print( text_ );
        text_.clear();
    }

    // What could not be judged.
    void tellUnknown( const Check & check ) const {
        if ( check.isLockUnknown() )
            complain(
                options_.recording +
                ": lock-held is not checked: the recorder was not told how to ask whether the "
                "activity lock is held" );
        if ( !check.unknownTables().empty() )
            complain( fmt::format( "{}: no-key and written-twice are not checked for {}; say with "
                                   "--chip what the chips are",
                                   options_.recording, fmt::join( check.unknownTables(), ", " ) ) );
        if ( check.ofOlderEntries() != 0 )
            complain( fmt::format( "{}: {} operations on entries that were allocated before the "
                                   "recording begins are not checked",
                                   options_.recording, check.ofOlderEntries() ) );
    }

    const CheckOptions & options_;
    Progress progress_{ "check" };
    std::string text_;
    std::uint64_t count_ = 0;
};

} // namespace

int check( const CheckOptions & options ) {
    if ( options.list )
        return listRules( options.format );
    if ( options.recording.empty() )
        throw InputError( "check: there is no recording", "name one, or give --list" );
    return CheckVerb( options ).run();
}

} // namespace Tool
