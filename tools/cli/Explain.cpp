#include "sim/Chip.h"
#include "text/Numbers.h"
#include "tools/cli/Output.h"
#include "tools/cli/Verbs.h"
#include "tools/explain/Explanation.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

std::string valuesText( const std::vector<uint64_t> & values ) {
    if ( values.empty() )
        return "nothing";
    const bool same = std::all_of( values.begin(), values.end(),
                                   [&]( uint64_t value ) { return value == values.front(); } );
    if ( same && values.size() > 1 )
        return Text::numberBothWays( values.front() ) + " each";
    std::vector<std::string> texts;
    for ( const uint64_t value : values )
        texts.push_back( Text::numberBothWays( value ) );
    return fmt::format( "{}", fmt::join( texts, ", " ) );
}

std::string withoutPrefix( std::string_view text, std::string_view prefix ) {
    if ( text.starts_with( prefix ) )
        text.remove_prefix( prefix.size() );
    return std::string( text );
}

// --- One call in words

// What a step does, and to what. "add" and "OUTER_ECN = 2 (2 bits)".
struct Phrase {
    std::string verb;
    std::string object;
};

class Describer {
  public:
    explicit Describer( const Model & model ) : model_( model ) {}

    Phrase phrase( const ObservedCall & call ) const {
        const Interpose::Event & event = call.operation;
        if ( call.isCheck() )
            return { "check", "the code of the call before" };
        switch ( event.call ) {
        case Interpose::SdkCall::entryAllocate:
            return { "allocate", fmt::format( "an entry of {}{} on unit {}", event.table,
                                              kindText( event ), event.unit ) };
        case Interpose::SdkCall::entryAttribSet:
            return { "attribute", toText( event.attribute ) };
        case Interpose::SdkCall::entryFieldAdd:
            return { "add", event.field + " = " + valuesText( event.values ) + roleText( event ) };
        case Interpose::SdkCall::entryFieldArrayAdd:
            return { "add", elementsText( event ) + " = " + valuesText( event.values ) +
                                roleText( event ) };
        case Interpose::SdkCall::entryFieldSymbolAdd:
            return { "add", event.field + " = symbol " + event.symbol + roleText( event ) };
        case Interpose::SdkCall::entryFieldGet:
            return { "read", event.field + ": " + valuesText( event.values ) };
        case Interpose::SdkCall::entryCommit:
            return { "commit", withoutPrefix( toText( event.opcode ), "BCMLT_OPCODE_" ) };
        case Interpose::SdkCall::ptEntryCommit:
            return { "commit",
                     "PT " + withoutPrefix( toText( event.opcode ), "BCMLT_PT_OPCODE_" ) };
        case Interpose::SdkCall::entryFree:
            return { "free", "the entry" };
        default:
            return { "call", std::string( Interpose::name( event.call ) ) };
        }
    }

    /// The role of the field in the table: "key", "index", "instance", "port" or "data".
    std::string role( const Interpose::Event & event ) const {
        if ( event.field == Sim::indexField )
            return "index";
        if ( event.field == Sim::instanceField )
            return "instance";
        if ( event.field == Sim::portField )
            return "port";
        const Sim::Field * field = fieldOf( event );
        return field != nullptr && field->role == Sim::FieldRole::key ? "key" : "data";
    }

    const Sim::Table * tableOf( const Interpose::Event & event ) const {
        const ChipDescription * chip = model_.findUnit( static_cast<uint64_t>( event.unit ) );
        return chip == nullptr ? nullptr : chip->schema.find( event.table );
    }

  private:
    const Sim::Field * fieldOf( const Interpose::Event & event ) const {
        const Sim::Table * table = tableOf( event );
        return table == nullptr ? nullptr : table->find( event.field );
    }

    std::string kindText( const Interpose::Event & event ) const {
        const Sim::Table * table = tableOf( event );
        return table == nullptr ? ", which the chip lacks,"
                                : " (" + std::string( Sim::kindName( table->kind ) ) + ")";
    }

    std::string roleText( const Interpose::Event & event ) const {
        const std::string text = role( event );
        if ( text == "index" )
            return " (which row)";
        if ( text == "instance" )
            return " (which instance)";
        if ( text == "port" )
            return " (which port)";
        if ( text == "key" )
            return " (key)";
        const Sim::Field * field = fieldOf( event );
        if ( field == nullptr )
            return {};
        return fmt::format( " ({}{})", Text::counted( field->width, "bit" ),
                            field->length > 1 ? " each" : "" );
    }

    static std::string elementsText( const Interpose::Event & event ) {
        if ( event.count == 0 )
            return "no elements of " + event.field;
        if ( event.count == 1 )
            return fmt::format( "{}[{}]", event.field, event.startIndex );
        return fmt::format( "{}[{} to {}]", event.field, event.startIndex,
                            event.startIndex + event.count - 1 );
    }

    const Model & model_;
};

// How the activity lock was held during the operations.
struct LockUse {
    bool kept = false;
    bool released = false;
};

LockUse lockUse( const Explanation & explanation ) {
    LockUse use;
    for ( const ObservedCall & call : explanation.seen.calls ) {
        if ( call.isCheck() )
            continue;
        use.kept = use.kept || call.operationLocked;
        use.released = use.released || !call.operationLocked;
    }
    return use;
}

std::string lockText( const LockUse & use ) {
    if ( use.kept && use.released )
        return "The activity lock is released around the calls, but for those marked.";
    if ( use.kept )
        return "The activity lock is kept during the calls.";
    return use.released ? "The activity lock is released around each call." : "";
}

std::vector<std::string_view> namesOf( const std::vector<Interpose::SdkCall> & constants ) {
    std::vector<std::string_view> names;
    for ( const Interpose::SdkCall constant : constants )
        names.push_back( Interpose::name( constant ) );
    return names;
}

// What is unusual about a call, and what it asks.
std::vector<std::string> notesOf( const ObservedCall & call, const LockUse & use ) {
    std::vector<std::string> notes;
    if ( !call.isCheck() && call.operation.rc != 0 )
        notes.push_back( call.operation.rc > 0
                             ? fmt::format( "returns {}", call.operation.rc )
                             : fmt::format( "returns {}, {}", call.operation.rc,
                                            Sim::Chip().errmsg( call.operation.rc ) ) );
    if ( !call.hook )
        notes.emplace_back( call.isIgnored() ? "unchecked: no hook, the code is ignored"
                                             : "unchecked: no hook, a failure does not stop here" );
    if ( call.operationLocked && use.released )
        notes.emplace_back( "activity lock kept" );
    if ( !call.constants.empty() )
        notes.push_back( fmt::format( "asks {}", fmt::join( namesOf( call.constants ), ", " ) ) );
    return notes;
}

using What = ModelQuestion::What;

// What the model is asked about: bring-up stages, or the profile.
const char * questionLabel( const ModelQuestion & question ) {
    return question.what == What::isBlocked || question.what == What::isUnblocked ? "stage"
                                                                                  : "profile";
}

std::string questionText( const ModelQuestion & question ) {
    const char * const yesOrNo = question.answer != 0 ? "yes" : "no";
    switch ( question.what ) {
    case What::isBlocked:
        return fmt::format( "is {} blocked at stage {}? {}", question.chip, question.stage,
                            yesOrNo );
    case What::isUnblocked:
        return fmt::format( "is {} unblocked at stage {}? {}", question.chip, question.stage,
                            yesOrNo );
    case What::activeChipProfile:
        return fmt::format( "has {} an active profile? {}", question.chip, yesOrNo );
    case What::kilnTypeFeature:
        return fmt::format( "has the profile of {} the feature {}? {}", question.chip,
                            question.feature, yesOrNo );
    case What::hasRangeTableIndex:
        return fmt::format( "has {} a range table index? {}", question.chip, yesOrNo );
    case What::sysportFromModport:
        return fmt::format( "which system port of {} has module {}, port {} (at most {} ports)? {}",
                            question.chip, question.modId, question.port, question.maxPorts,
                            question.answer );
    }
    return {};
}

Json questionJson( const ModelQuestion & question ) {
    Json json{ { "kind", "question" } };
    const auto ask = [&]( const char * name ) -> Json & {
        json["question"] = name;
        json["chip"] = question.chip;
        return json;
    };
    switch ( question.what ) {
    case What::isBlocked:
        ask( "isBlocked" )["stage"] = question.stage;
        break;
    case What::isUnblocked:
        ask( "isUnblocked" )["stage"] = question.stage;
        break;
    case What::activeChipProfile:
        ask( "activeChipProfile" );
        break;
    case What::kilnTypeFeature:
        ask( "kilnTypeFeature" )["feature"] = question.feature;
        break;
    case What::hasRangeTableIndex:
        ask( "hasRangeTableIndex" );
        break;
    case What::sysportFromModport:
        ask( "sysportFromModport" );
        json["modId"] = question.modId;
        json["port"] = question.port;
        json["maxPorts"] = question.maxPorts;
        json["answer"] = question.answer;
        return json;
    }
    json["answer"] = question.answer != 0;
    return json;
}

// Everything else a reader wants to know, one sentence each.
std::vector<std::string> remarks( const Explanation & explanation ) {
    std::vector<std::string> lines;
    const std::string lock = lockText( lockUse( explanation ) );
    if ( explanation.seen.calls.empty() && explanation.seen.notes.empty() && !explanation.stopped )
        lines.emplace_back( "It does nothing." );
    if ( !lock.empty() )
        lines.push_back( lock );
    const std::string result = toText( explanation.result );
    if ( explanation.stopped )
        lines.emplace_back( "It stops the process here." );
    else if ( !result.empty() )
        lines.push_back( "It returns " + result + "." );
    return lines;
}

std::string preparedText( const Explanation & explanation ) {
    return explanation.preparedBy == nullptr
               ? ""
               : "after " + callText( *explanation.preparedBy, explanation.arguments );
}

// --- Text

std::string textOf( const Explanation & explanation, const Describer & describer ) {
    const LockUse use = lockUse( explanation );
    std::string text = heading( callText( *explanation.recipe, explanation.arguments ) ) + "\n";
    text += std::string( explanation.recipe->summary ) + "\n";
    if ( explanation.preparedBy != nullptr )
        text += "Seen " + preparedText( explanation ) + ".\n";
    std::size_t number = 0;
    const auto line = [&]( const std::string & label, std::string_view verb,
                           const std::string & object ) {
        text += fmt::format( "{:>4}  {:<11}{}\n", label, verb, object );
    };
    const auto addCall = [&]( const ObservedCall & call ) {
        const Phrase phrase = describer.phrase( call );
        const auto notes = notesOf( call, use );
        line( fmt::to_string( ++number ), phrase.verb,
              notes.empty() ? phrase.object
                            : fmt::format( "{}  [{}]", phrase.object, fmt::join( notes, "; " ) ) );
    };
    const auto addNote = [&]( const Note & note ) {
        if ( const auto * constant = std::get_if<ObservedConstant>( &note.what ) ) {
            line( "", "constant", fmt::format( "asks {}", Interpose::name( constant->constant ) ) );
        } else if ( const auto * question = std::get_if<ModelQuestion>( &note.what ) ) {
            line( "", questionLabel( *question ), questionText( *question ) );
        } else if ( const auto * message = std::get_if<ObservedMessage>( &note.what ) ) {
            line( "", "message",
                  fmt::format( "{}/{} \"{}\"", message->facility, message->level, message->text ) );
        }
    };
    inOrder( explanation.seen, addCall, addNote );
    for ( const std::string & remark : remarks( explanation ) )
        text += remark + "\n";
    return text;
}

// --- Markdown

std::string code( const std::string & text ) { return "`" + text + "`"; }

std::string markdownOf( const Explanation & explanation, const Describer & describer ) {
    const LockUse use = lockUse( explanation );
    std::string text = "### " + std::string( explanation.recipe->name ) + "\n\n" +
                       std::string( explanation.recipe->summary ) + "\n\n" +
                       code( callText( *explanation.recipe, explanation.arguments ) );
    if ( explanation.preparedBy != nullptr )
        text += ", after " + code( callText( *explanation.preparedBy, explanation.arguments ) );
    text += ":\n\n| | Step | Call |\n|---|---|---|\n";
    std::size_t number = 0;
    const auto line = [&]( const std::string & label, const std::string & step,
                           const std::string & call ) {
        text += fmt::format( "| {} | {} | {} |\n", label, step, call );
    };
    const auto addCall = [&]( const ObservedCall & call ) {
        const Phrase phrase = describer.phrase( call );
        const auto notes = notesOf( call, use );
        line( fmt::to_string( ++number ),
              fmt::format( "{} {}{}{}", phrase.verb, phrase.object, notes.empty() ? "" : "; ",
                           fmt::join( notes, "; " ) ),
              code( call.text ) );
    };
    const auto addNote = [&]( const Note & note ) {
        if ( const auto * constant = std::get_if<ObservedConstant>( &note.what ) ) {
            line( "", fmt::format( "asks {}", Interpose::name( constant->constant ) ), "" );
        } else if ( const auto * question = std::get_if<ModelQuestion>( &note.what ) ) {
            line( "", questionText( *question ), "" );
        } else if ( const auto * message = std::get_if<ObservedMessage>( &note.what ) ) {
            line( "",
                  fmt::format( "message, {} level {}: {}", message->facility, message->level,
                               code( message->text ) ),
                  "" );
        }
    };
    inOrder( explanation.seen, addCall, addNote );
    const auto lines = remarks( explanation );
    if ( !lines.empty() )
        text += "\n" + fmt::format( "{}", fmt::join( lines, " " ) ) + "\n";
    return text;
}

std::string markdownHeader() {
    return "# The recipes, step by step\n"
           "\n"
           "What each recipe does on a fresh simulated reference chip, "
           "with sample arguments, seen by running it. Do not edit;\n"
           "renew with `cairn-lt explain --all --format markdown >docs/recipes.md`.\n"
           "\n"
           "Each numbered step is one call. Unless a step says otherwise "
           "it is guarded: the shim's pre-call hook runs first,\n"
           "and a negative code stops the process. Other branches are "
           "seen with other arguments, on other chips (`--chip`,\n"
           "`--model`), and on chips that hold something already (`--state`).\n";
}

// --- JSON

Json callJson( const ObservedCall & call, const Describer & describer ) {
    const Interpose::Event & event = call.operation;
    Json json{ { "kind", "call" } };
    json["call"] = call.text;
    json["line"] = call.line;
    json["guarded"] = call.hook;
    if ( call.isCheck() )
        return json;
    json["operation"] = Interpose::name( event.call );
    json["lock"] = call.operationLocked ? "kept" : "released";
    json["unit"] = event.unit;
    json["table"] = event.table;
    if ( const Sim::Table * table = describer.tableOf( event ) )
        json["table_kind"] = Sim::kindName( table->kind );
    if ( !event.field.empty() ) {
        json["field"] = event.field;
        json["role"] = describer.role( event );
    }
    if ( !event.symbol.empty() )
        json["symbol"] = event.symbol;
    if ( event.call == Interpose::SdkCall::entryFieldArrayAdd ) {
        json["start"] = event.startIndex;
        json["values"] = event.values;
    } else if ( !event.values.empty() ) {
        json["value"] = event.values.front();
    }
    if ( event.attribute.constant )
        json["attribute"] = toText( event.attribute );
    if ( event.opcode.constant )
        json["opcode"] = toText( event.opcode );
    json["rc"] = event.rc;
    if ( call.isIgnored() )
        json["ignored"] = true;
    json["constants"] = namesOf( call.constants );
    return json;
}

Json noteJson( const Note & note ) {
    if ( const auto * constant = std::get_if<ObservedConstant>( &note.what ) )
        return { { "kind", "constant" }, { "constant", Interpose::name( constant->constant ) } };
    if ( const auto * question = std::get_if<ModelQuestion>( &note.what ) )
        return questionJson( *question );
    const auto & message = std::get<ObservedMessage>( note.what );
    return { { "kind", "message" },
             { "facility", message.facility },
             { "level", message.level },
             { "text", message.text } };
}

Json jsonOf( const Explanation & explanation, const Describer & describer ) {
    Json json{ { "recipe", explanation.recipe->name },
               { "family", explanation.recipe->family },
               { "summary", explanation.recipe->summary } };
    Json arguments = Json::object();
    const auto parameters = explanation.recipe->parameters();
    for ( std::size_t i = 0; i < parameters.size(); ++i )
        arguments[std::string( parameters[i].name )] = toText( explanation.arguments[i] );
    json["arguments"] = std::move( arguments );
    if ( explanation.preparedBy != nullptr )
        json["prepared_by"] = explanation.preparedBy->name;
    Json steps = Json::array();
    inOrder(
        explanation.seen,
        [&]( const ObservedCall & call ) { steps.push_back( callJson( call, describer ) ); },
        [&]( const Note & note ) { steps.push_back( noteJson( note ) ); } );
    json["steps"] = std::move( steps );
    const std::string result = toText( explanation.result );
    if ( !result.empty() )
        json["result"] = result;
    json["stopped"] = explanation.stopped;
    return json;
}

// --- The verb

class Writer {
  public:
    Writer( const ExplainOptions & options, const Model & model )
        : format_( options.format ), describer_( model ) {}

    void add( const Explanation & explanation ) {
        switch ( format_ ) {
        case ExplainFormat::text:
            text_ += ( text_.empty() ? "" : "\n" ) + textOf( explanation, describer_ );
            break;
        case ExplainFormat::markdown:
            if ( text_.empty() )
                text_ = markdownHeader();
            if ( explanation.recipe->family != family_ ) {
                family_ = explanation.recipe->family;
                text_ += "\n## " + std::string( family_ ) + "\n";
            }
            text_ += "\n" + markdownOf( explanation, describer_ );
            break;
        case ExplainFormat::json:
            json_.push_back( jsonOf( explanation, describer_ ) );
            break;
        }
    }

    void finish() const {
        print( format_ == ExplainFormat::json ? documentText( { { "recipes", json_ } } ) : text_ );
    }

  private:
    ExplainFormat format_;
    Describer describer_;
    std::string text_;
    std::string_view family_;
    Json json_ = Json::array();
};

} // namespace

int explain( const ExplainOptions & options ) {
    if ( options.all != options.recipe.empty() )
        throw InputError( "explain: name one recipe, or give --all" );
    const Model model = modelOf( options.chips );
    std::vector<SavedUnit> kept;
    if ( !options.chips.state.empty() )
        kept = parseState( readFile( options.chips.state ), options.chips.state );

    Writer writer( options, model );
    const auto add = [&]( const Recipe & recipe, const std::vector<std::string> & texts ) {
        writer.add( explainRecipe( recipe, parseArguments( recipe, texts, model ), model,
                                   options.chips.state.empty() ? nullptr : &kept,
                                   [&]( const Explanation & stopped ) {
                                       writer.add( stopped );
                                       writer.finish();
                                       std::_Exit( 1 );
                                   } ) );
    };
    if ( options.all ) {
        for ( const Recipe & recipe : recipes() )
            add( recipe, sampleArguments( recipe, model ) );
    } else {
        const Recipe & recipe = needRecipe( options.recipe );
        add( recipe,
             options.arguments.empty() ? sampleArguments( recipe, model ) : options.arguments );
    }
    writer.finish();
    return 0;
}

} // namespace Tool
