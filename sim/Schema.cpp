#include "sim/Schema.h"

#include "text/NearestName.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

namespace Sim {

namespace {

// Collects the problems of one table.
class Check {
  public:
    explicit Check( const Table & table ) : table_( table ) {}

    std::vector<Problem> run() {
        checkName();
        checkSize();
        checkFields();
        checkPreload();
        return std::move( problems_ );
    }

  private:
    void report( const std::string & what ) {
        problems_.push_back( { {}, fmt::format( "table {}: {}", table_.name, what ) } );
    }

    void report( const Field & field, const std::string & what ) {
        problems_.push_back( { field.name, fmt::format( "table {}: field {}: {}", table_.name,
                                                        field.name, what ) } );
    }

    static bool isName( std::string_view name ) {
        return !name.empty() && std::all_of( name.begin(), name.end(), []( char c ) {
            return ( c >= 'A' && c <= 'Z' ) || ( c >= 'a' && c <= 'z' ) ||
                   ( c >= '0' && c <= '9' ) || c == '_';
        } );
    }

    void checkName() {
        if ( !isName( table_.name ) ) {
            report( "a table name is made of letters, digits and underscores; rename it" );
        } else if ( table_.kind == TableKind::physicalRegister && table_.name.back() != 'r' ) {
            report( "the name of a register ends in \"r\"; rename it, or change its kind" );
        } else if ( table_.kind == TableKind::physicalMemory && table_.name.back() != 'm' ) {
            report( "the name of a memory ends in \"m\"; rename it, or change its kind" );
        }
    }

    void checkSize() {
        const TableSize & size = table_.size;
        if ( size.rows == 0 )
            report( "it has no rows; give it at least 1" );
        if ( !table_.isPhysical() ) {
            if ( size.instances != 1 || size.ports != 0 )
                report( "a logical table has neither instances nor ports; leave them out" );
            if ( table_.isKeyless() && size.rows > 1 ) {
                report(
                    fmt::format( "a logical table without a key field has 1 row, not {}; give it "
                                 "a key field, or 1 row",
                                 size.rows ) );
            }
        } else if ( size.instances == 0 ) {
            report( "it has no instances; give it at least 1" );
        }
        const std::uint64_t rowsPerPort = std::uint64_t( size.rows ) * size.instances;
        if ( rowsPerPort > maxTableRows ||
             rowsPerPort * std::max( size.ports, 1u ) > maxTableRows ) {
            report( fmt::format( "more than {} rows in all instances and ports; make it smaller",
                                 maxTableRows ) );
        }
    }

    void checkFields() {
        if ( table_.fields.empty() )
            report( "it has no fields; give it at least 1" );
        std::set<std::string_view> names;
        std::uint64_t elements = 0;
        for ( const Field & field : table_.fields ) {
            if ( !names.insert( field.name ).second )
                report( field, "there are two of that name; rename one" );
            elements += field.length;
            checkField( field );
        }
        if ( elements > maxTableElements ) {
            report( fmt::format( "its fields have {} elements together, {} are possible; make the "
                                 "arrays shorter",
                                 elements, maxTableElements ) );
        }
    }

    void checkField( const Field & field ) {
        if ( !isName( field.name ) )
            report( field, "a field name is made of letters, digits and underscores; rename it" );
        if ( field.name.starts_with( "BCMLT_" ) )
            report( field, "names that begin with BCMLT_ belong to the SDK; rename it" );
        if ( field.width < 1 || field.width > 64 ) {
            report( field, fmt::format( "width {} is not possible; give it 1 to 64 bits an element",
                                        field.width ) );
            return; // nothing below means anything without a width
        }
        if ( field.length == 0 )
            report( field, "it has no elements; give it a length of at least 1" );
        if ( field.role == FieldRole::key ) {
            if ( table_.isPhysical() ) {
                report( field,
                        fmt::format( "a {} is addressed by BCMLT_PT_INDEX; make the field data",
                                     kindName( table_.kind ) ) );
            } else if ( field.length > 1 ) {
                report( field, "an array cannot be a key; give it a length of 1" );
            }
        }
        checkSymbols( field );
        checkValue( field, "reset value", field.reset );
        if ( field.powerOn )
            checkValue( field, "power-on value", *field.powerOn );
    }

    void checkSymbols( const Field & field ) {
        std::set<std::string_view> names;
        std::set<std::uint64_t> values;
        for ( const Symbol & symbol : field.symbols ) {
            if ( !isName( symbol.name ) ) {
                report( field, fmt::format( "symbol {}: a symbol is made of letters, digits and "
                                            "underscores; rename it",
                                            symbol.name ) );
            }
            if ( !names.insert( symbol.name ).second )
                report( field, fmt::format( "there are two symbols {}; rename one", symbol.name ) );
            if ( !values.insert( symbol.value ).second ) {
                report( field,
                        fmt::format( "symbol {} has the value of another one, {}; give it one "
                                     "of its own",
                                     symbol.name, symbol.value ) );
            }
            if ( symbol.value > field.maximum() ) {
                report( field, fmt::format( "symbol {} = {} does not fit {} bits; widen the field",
                                            symbol.name, symbol.value, field.width ) );
            }
        }
    }

    void checkValue( const Field & field, const char * what, std::uint64_t value ) {
        // A key is always carried, so its reset and power-on values are never used.
        if ( field.role == FieldRole::key )
            return;
        if ( value > field.maximum() ) {
            report( field, fmt::format( "{} {} does not fit {} bits; at most {}", what, value,
                                        field.width, field.maximum() ) );
        } else if ( !field.symbols.empty() && field.findSymbol( value ) == nullptr ) {
            report( field, fmt::format( "{} {} is none of its symbols; give it the value of one",
                                        what, value ) );
        }
    }

    void checkPreload() {
        if ( !table_.preloaded )
            return;
        if ( table_.isPhysical() ) {
            report( "rows of a physical table always exist; do not preload it" );
            return;
        }
        const Field * key = nullptr;
        std::size_t keys = 0;
        for ( const Field & field : table_.fields ) {
            if ( field.role == FieldRole::key ) {
                key = &field;
                ++keys;
            }
        }
        if ( keys == 0 )
            return;
        if ( keys > 1 || key->symbols.empty() ) {
            report( "only a table without a key, or with one key field that has symbols, can be "
                    "preloaded; do not preload it" );
        } else if ( key->symbols.size() > table_.size.rows ) {
            report( fmt::format( "it has {} rows and is preloaded with {}; give it that many",
                                 table_.size.rows, key->symbols.size() ) );
        }
    }

    const Table & table_;
    std::vector<Problem> problems_;
};

std::string noSuchTable( const Schema & schema, std::string_view table ) {
    return fmt::format( "there is no table {}{}", table,
                        Text::nearestHint( table, schema.tableNames() ) );
}

} // namespace

std::uint64_t Field::initial() const {
    if ( powerOn )
        return *powerOn;
    return symbols.empty() ? unwrittenPattern & maximum() : reset;
}

const Symbol * Field::findSymbol( std::string_view symbol ) const {
    const auto it = std::find_if( symbols.begin(), symbols.end(),
                                  [&]( const Symbol & s ) { return s.name == symbol; } );
    return it == symbols.end() ? nullptr : &*it;
}

const Symbol * Field::findSymbol( std::uint64_t value ) const {
    const auto it = std::find_if( symbols.begin(), symbols.end(),
                                  [&]( const Symbol & s ) { return s.value == value; } );
    return it == symbols.end() ? nullptr : &*it;
}

std::vector<std::string_view> Field::symbolNames() const {
    std::vector<std::string_view> names;
    for ( const Symbol & symbol : symbols )
        names.push_back( symbol.name );
    return names;
}

const char * kindName( TableKind kind ) {
    switch ( kind ) {
    case TableKind::logical:
        return "logical table";
    case TableKind::physicalRegister:
        return "register";
    case TableKind::physicalMemory:
        return "memory";
    }
    return "table";
}

bool Table::isKeyless() const {
    return std::none_of( fields.begin(), fields.end(),
                         []( const Field & field ) { return field.role == FieldRole::key; } );
}

const Field * Table::find( std::string_view field ) const {
    const auto it = std::find_if( fields.begin(), fields.end(),
                                  [&]( const Field & f ) { return f.name == field; } );
    return it == fields.end() ? nullptr : &*it;
}

std::vector<std::string_view> Table::fieldNames() const {
    std::vector<std::string_view> names;
    for ( const Field & field : fields )
        names.push_back( field.name );
    return names;
}

std::uint32_t Table::elementCount() const {
    std::uint32_t count = 0;
    for ( const Field & field : fields )
        count += field.length;
    return count;
}

std::vector<Problem> problemsOf( const Table & table ) { return Check( table ).run(); }

std::vector<std::string> check( const Table & table ) {
    std::vector<std::string> texts;
    for ( Problem & problem : problemsOf( table ) ) {
        texts.push_back( std::move( problem.text ) );
    }
    return texts;
}

std::vector<std::string_view> Schema::tableNames() const {
    std::vector<std::string_view> names;
    for ( const Table & table : tables_ )
        names.push_back( table.name );
    return names;
}

const Table * Schema::find( std::string_view table ) const {
    const auto it = std::find_if( tables_.begin(), tables_.end(),
                                  [&]( const Table & t ) { return t.name == table; } );
    return it == tables_.end() ? nullptr : &*it;
}

Table * Schema::find( std::string_view table ) {
    return const_cast<Table *>( std::as_const( *this ).find( table ) );
}

std::string Schema::add( Table table ) {
    if ( find( table.name ) != nullptr ) {
        return fmt::format( "there is a table {} already; remove it first, or rename the new one",
                            table.name );
    }
    tables_.push_back( std::move( table ) );
    return {};
}

std::string Schema::remove( std::string_view table ) {
    const Table * found = find( table );
    if ( found == nullptr )
        return noSuchTable( *this, table );
    tables_.erase( tables_.begin() + ( found - tables_.data() ) );
    return {};
}

std::string Schema::resize( std::string_view table, TableSize size ) {
    Table * found = find( table );
    if ( found == nullptr )
        return noSuchTable( *this, table );
    const TableSize before = std::exchange( found->size, size );
    const std::vector<std::string> problems = Sim::check( *found );
    if ( !problems.empty() ) {
        found->size = before;
        return problems.front();
    }
    return {};
}

std::vector<std::string> Schema::check() const {
    std::vector<std::string> problems;
    std::set<std::string_view> names;
    for ( const Table & table : tables_ ) {
        if ( !names.insert( table.name ).second ) {
            problems.push_back(
                fmt::format( "table {}: there are two of that name; rename one", table.name ) );
        }
        for ( std::string & problem : Sim::check( table ) )
            problems.push_back( std::move( problem ) );
    }
    return problems;
}

} // namespace Sim
