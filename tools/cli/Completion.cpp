#include "tools/cli/Completion.h"

#include "interpose/SdkCall.h"
#include "tools/diagnose/ErrorPages.h"
#include "tools/model/ChipOptions.h"
#include "tools/recipes/Registry.h"
#include "tools/recording/Check.h"
#include "tools/run/Session.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace Tool {

namespace {

struct Candidate {
    std::string word;
    std::string description = {};
};

// Values that are no names of files, and that nobody can offer.
constexpr std::array<std::pair<std::string_view, std::string_view>, 8> freeValues{
    { { "trace", "--from" },
      { "trace", "--to" },
      { "trace", "--match" },
      { "trace", "--site" },
      { "trace", "--thread" },
      { "trace", "--jobs" },
      { "trace", "--code" },
      { "replay", "--until" } } };

bool takesValue( const CLI::Option & option ) { return option.get_items_expected_min() > 0; }

class Completion {
  public:
    Completion( const CLI::App & program, std::span<const std::string> words )
        : program_( program ), words_( words ) {}

    std::string text() {
        find();
        std::string text = hasFiles_ ? "files\n" : "words\n";
        const std::string current = words_.empty() ? std::string() : words_.back();
        for ( const Candidate & each : candidates_ )
            if ( each.word.starts_with( current ) )
                text += each.word + "\t" + each.description + "\n";
        return text;
    }

  private:
    void find() {
        if ( words_.size() < 2 ) {
            for ( const CLI::App * verb : program_.get_subcommands( {} ) )
                offer( verb->get_name(), verb->get_description() );
            if ( !words_.empty() && words_.back().starts_with( '-' ) )
                offerOptions( program_ );
            return;
        }
        for ( const CLI::App * verb : program_.get_subcommands( {} ) )
            if ( verb->get_name() == words_.front() )
                verb_ = verb;
        if ( verb_ == nullptr )
            return;
        readWords();
        const std::string & current = words_.back();
        if ( pending_ != nullptr )
            return offerValues( *pending_, "", current );
        if ( isAfterOptions_ || !current.starts_with( '-' ) )
            return offerArgument();
        const std::size_t sign = current.find( '=' );
        if ( sign == std::string::npos )
            return offerOptions( *verb_ );
        const CLI::Option * const option = verb_->get_option_no_throw( current.substr( 0, sign ) );
        if ( option != nullptr )
            offerValues( *option, current.substr( 0, sign + 1 ), current.substr( sign + 1 ) );
    }

    // What stands before the last word.
    void readWords() {
        for ( const std::string & word : words_.subspan( 1, words_.size() - 2 ) ) {
            if ( pending_ != nullptr ) {
                note( pending_->get_name(), word );
                pending_ = nullptr;
            } else if ( isAfterOptions_ || !word.starts_with( '-' ) ) {
                arguments_.push_back( word );
            } else if ( word == "--" ) {
                isAfterOptions_ = true;
            } else {
                const std::size_t sign = word.find( '=' );
                const CLI::Option * const option =
                    verb_->get_option_no_throw( word.substr( 0, sign ) );
                if ( sign != std::string::npos )
                    note( word.substr( 0, sign ), word.substr( sign + 1 ) );
                else if ( option != nullptr && takesValue( *option ) )
                    pending_ = option;
            }
        }
    }

    void note( const std::string & option, const std::string & value ) {
        if ( option == "--chip" )
            chips_.chips.push_back( value );
        else if ( option == "--model" )
            chips_.model = value;
        else if ( option == "--state" )
            chips_.state = value;
    }

    // The chips that the words before describe; if they do not, the reference chip.
    Model model() const {
        try {
            return modelOf( chips_ );
        } catch ( const std::exception & ) {
            return modelOf( {} );
        }
    }

    // --- What is offered

    void offer( std::string word, std::string description = {} ) {
        candidates_.push_back( { std::move( word ), std::move( description ) } );
    }

    void offerAll( const std::string & before, std::initializer_list<const char *> words ) {
        for ( const char * word : words )
            offer( before + word );
    }

    void offerErrorPages( const std::string & before ) {
        offer( before + "all" );
        for ( const ErrorPage & page : errorPages() )
            offer( before + std::string( page.name ), std::string( page.meaning ) );
    }

    void offerOptions( const CLI::App & app ) {
        for ( const CLI::Option * option : app.get_options() )
            for ( const std::string & name : option->get_lnames() )
                offer( "--" + name, option->get_description() );
    }

    void offerRecipes( const std::string & before = {} ) {
        for ( const Recipe & recipe : recipes() )
            offer( before + std::string( recipe.name ), std::string( recipe.summary ) );
    }

    void offerTables( const std::string & before = {} ) {
        std::set<std::string> seen;
        for ( const ChipDescription & chip : model().chips )
            for ( const Sim::Table & table : chip.schema.tables() )
                if ( seen.insert( table.name ).second )
                    offer( before + table.name, Sim::kindName( table.kind ) );
    }

    // Of one table; of all if it is empty.
    void offerFields( const std::string & before, std::string_view table ) {
        std::set<std::string> seen;
        for ( const ChipDescription & chip : model().chips )
            for ( const Sim::Table & each : chip.schema.tables() )
                if ( table.empty() || each.name == table )
                    for ( const Sim::Field & field : each.fields )
                        if ( seen.insert( field.name ).second )
                            offer( before + field.name );
    }

    void offerSymbols( std::string_view field ) {
        std::set<std::string> seen;
        for ( const ChipDescription & chip : model().chips )
            for ( const Sim::Table & table : chip.schema.tables() )
                if ( const Sim::Field * const found = table.find( field ) )
                    for ( const Sim::Symbol & symbol : found->symbols )
                        if ( seen.insert( symbol.name ).second )
                            offer( symbol.name, table.name );
    }

    void offerUnits( const std::string & before = {} ) {
        for ( const ChipDescription & chip : model().chips )
            offer( fmt::format( "{}{}", before, chip.unit ), chip.name() );
    }

    void offerOperations( const std::string & before ) {
        for ( const Interpose::SdkCall call : Interpose::sdkOperations() )
            offer( before + std::string( Interpose::shortName( call ) ) );
    }

    // --- Where it is offered

    void offerArgument() {
        std::size_t left = arguments_.size();
        for ( const CLI::Option * option : verb_->get_options() ) {
            if ( !option->get_positional() )
                continue;
            const auto most = static_cast<std::size_t>( option->get_items_expected_max() );
            if ( left < most )
                return offerPositional( option->get_name( true ), left );
            left -= most;
        }
    }

    void offerPositional( const std::string & name, std::size_t place ) {
        if ( name == "recipe" || name == "recipes" )
            offerRecipes();
        else if ( name == "tables" )
            offerTables();
        else if ( name == "arguments" )
            offerRecipeArgument( place );
        else
            hasFiles_ = true;
    }

    void offerRecipeArgument( std::size_t place ) {
        const Recipe * const recipe = findRecipe( arguments_.front() );
        if ( recipe == nullptr || place >= recipe->parameters().size() )
            return;
        const Parameter & parameter = recipe->parameters()[place];
        if ( parameter.isUnit() )
            offerUnits();
        else if ( parameter.type == ArgumentType::boolean )
            offerAll( "", { "true", "false" } );
        else if ( parameter.type == ArgumentType::chip )
            for ( const ChipDescription & chip : model().chips )
                offer( chip.name() );
        else if ( parameter.name == "mem" )
            offerTables();
        else if ( parameter.name == "errorType" )
            offerSymbols( "MON_ING_TRACE_EVENT_ID" );
    }

    void offerValues( const CLI::Option & option, const std::string & before,
                      const std::string & value ) {
        const std::string name = option.get_name();
        const std::string & verb = verb_->get_name();
        if ( name == "--format" && verb == "explain" )
            offerAll( before, { "text", "markdown", "json" } );
        else if ( name == "--format" && verb == "trace" )
            offerAll( before, { "text", "brief", "json" } );
        else if ( name == "--format" && verb == "diagnose" )
            offerAll( before, { "text", "json", "ndjson", "markdown" } );
        else if ( name == "--error" )
            offerErrorPages( before );
        else if ( name == "--format" || name == "--dump" )
            offerAll( before, { "text", "json" } );
        else if ( name == "--export" )
            offerAll( before, { "ctf", "chrome", "folded" } );
        else if ( name == "--recipe" )
            offerRecipes( before );
        else if ( name == "--table" )
            offerTables( before );
        else if ( name == "--unit" )
            offerUnits( before );
        else if ( name == "--operation" )
            offerOperations( before );
        else if ( name == "--ignore" && verb == "replay" )
            offerAll( before, { "codes", "values" } );
        else if ( name == "--ignore" )
            for ( const CheckRuleText & rule : checkRules() )
                offer( before + std::string( rule.name ), std::string( rule.sentence ) );
        else if ( name == "--trace" )
            for ( const std::string_view facility : traceFacilities() )
                offer( before + std::string( facility ) + "/" );
        else if ( name == "--inject" )
            offerFault( before, value );
        else if ( name == "--chip" ) {
            const std::size_t sign = value.find( '=' );
            offer( before + value.substr( 0, sign + 1 ) + "reference" );
            hasFiles_ = true;
        } else {
            const bool isFree =
                std::find( freeValues.begin(), freeValues.end(),
                           std::pair<std::string_view, std::string_view>( verb, name ) ) !=
                freeValues.end();
            hasFiles_ = !isFree && option.get_type_name() == "TEXT";
        }
    }

    // The last property of a fault.
    void offerFault( const std::string & before, const std::string & value ) {
        const std::size_t begin = value.rfind( ',' ) + 1;
        const std::string property = value.substr( begin );
        const std::string sofar = before + value.substr( 0, begin );
        if ( property.starts_with( "op=" ) )
            offerOperations( sofar + "op=" );
        else if ( property.starts_with( "table=" ) )
            offerTables( sofar + "table=" );
        else if ( property.starts_with( "field=" ) )
            offerFields( sofar + "field=", tableOf( value ) );
        else if ( property.starts_with( "unit=" ) )
            offerUnits( sofar + "unit=" );
        else
            offerAll( sofar, { "op=", "table=", "field=", "unit=", "rc=", "at=", "always",
                               "handle=invalid" } );
    }

    static std::string_view tableOf( std::string_view fault ) {
        const std::size_t at = fault.find( "table=" );
        if ( at == std::string_view::npos )
            return {};
        fault.remove_prefix( at + std::string_view( "table=" ).size() );
        return fault.substr( 0, fault.find( ',' ) );
    }

    const CLI::App & program_;
    const std::span<const std::string> words_;
    const CLI::App * verb_ = nullptr;
    const CLI::Option * pending_ = nullptr; ///< waits for its value
    bool isAfterOptions_ = false;
    std::vector<std::string> arguments_;
    ChipOptions chips_;
    std::vector<Candidate> candidates_;
    bool hasFiles_ = false;
};

} // namespace

std::string completionText( const CLI::App & program, std::span<const std::string> words ) {
    return Completion( program, words ).text();
}

} // namespace Tool
