#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Reads trace files (docs/trace-format.md) without the program that wrote them, also while it
// writes.
//
//     TraceReader::File file( "cairn-lt-4711.fleetlog" );
//     TraceReader::Renderer renderer( TraceReader::Format::text );
//     TraceReader::Record record;
//     std::string lines;
//     while ( file.next( record ) )
//         renderer.append( lines, record );
//     for ( const auto & finding : file.findings() )
//         std::cerr << finding.text() << '\n';
//
// Nothing in a file is trusted: every length and offset is checked before it is used. What is
// damaged is passed over, and a finding says what and where; what is whole is read.
//
// Threads: an object is used by one thread at a time. A record whose payload was copied may be rendered
// or filtered by another thread while its file is read, but not during poll().

namespace TraceReader {

/// A file that cannot be read at all. what() is one line that names the file, the cause and, where
/// there is one, the remedy.
class Error : public std::runtime_error {
  public:
    Error( const std::string & path, const std::string & cause, bool isMissing = false );

    /// What is said of the file.
    const std::string & cause() const noexcept { return cause_; }

    /// Whether there is no such file.
    bool isMissing() const noexcept { return isMissing_; }

  private:
    std::string cause_;
    bool isMissing_;
};

/// A loss that the user of a file should know of.
struct Finding {
    enum class Kind {
        overwritten, ///< in the nature of a ring: records were overwritten while they were read
        removed,     ///< in the nature of a folder: the file was removed while it was read
        damage,      ///< the file is not as its writer left it
    };
    Kind kind;
    std::string file;
    std::optional<std::uint64_t> offset; ///< in the file, in bytes; nothing: all of it
    std::string what;

    /// "FILE: at byte OFFSET: WHAT", or "FILE: WHAT", fit to be printed.
    std::string text() const;
};

/// A message site, from its descriptor in the file.
struct Site {
    std::uint32_t id;
    std::string file;
    std::uint32_t line;
    std::string letters;  ///< a format letter for each value
    std::string function; ///< the recipe's name
    /// The text before each value, and the text after the last: one more than there are letters.
    std::vector<std::string> texts;
    bool isPlain;           ///< nothing in its file, function and texts needs to be escaped
    std::string place = {}; ///< "FILE:LINE", escaped, as it stands in a line of text
    std::string json = {};  ///< the members file, line and function of a JSON object
};

struct Value {
    char letter = 'i'; ///< 'i', 'n', 's', 'b', 'l', 'p' or 'a'
    /// Of 'i', 'n', 's' and 'b'. 'n' has a sign; the file does not tell whether 'i' has one.
    std::uint32_t number = 0;
    std::uint64_t wide = 0;                ///< of 'l'
    std::string_view text = {};            ///< of 'p'
    bool isCut = false;                    ///< of 'p': the writer cut the text
    std::span<const std::byte> array = {}; ///< of 'a': elements of 64 bits

    std::size_t elementCount() const noexcept { return array.size() / sizeof( std::uint64_t ); }
    std::uint64_t element( std::size_t index ) const noexcept;
};

class Bytes;
class File;

/// A record. What it points to is valid until the next call of next() or poll() of its file; the
/// site and the file itself as long as the file.
struct Record {
    const File * file = nullptr;
    /// Null: only the bytes are known, the descriptor does not fit them.
    const Site * site = nullptr;
    std::uint32_t id = 0;     ///< of the site
    std::uint32_t thread = 0; ///< thread id of the writer; 0: any thread of the process
    std::uint64_t offset = 0; ///< in the file, in bytes
    std::int64_t time = 0;    ///< nanoseconds since 1970, UTC
    std::int64_t counter = 0; ///< with counter timestamps: the counts since the process's base
    std::span<const std::byte> payload;
};

/// The values of a record; none if it has no site.
void decode( const Record & record, std::vector<Value> & values );

/// Appends the text of a record: the recipe's name and the pieces, each "%s" replaced by its value.
/// A text that the writer cut ends in "...". Without a site: the identifier and the bytes.
void appendText( std::string & out, const Record & record );

/// What the header of a file says.
struct Info {
    std::string path;
    std::uint32_t version = 0;
    std::string program;
    std::uint32_t process = 0;
    std::uint32_t thread = 0; ///< the first that wrote the file; 0: the file of a whole process
    std::string timestamps;   ///< "counter", "tick" or "none"
    /// There are no timestamps: a record has the time at which its block was begun.
    bool isTimeOfBlock = false;
    std::uint64_t counterRate = 0; ///< counts a second, as the writer measured it
    std::int64_t openTime = 0;     ///< when the writer set its clock, nanoseconds since 1970, UTC
    bool isClosed = false;         ///< false: being written, or the writer ended without closing it
    bool isCut = false;            ///< the file became shorter while it was read
    bool hasLock = false;          ///< while its writer lives, the file is locked
    /// From 1: the place among the files that one writer filled one after the other; 0: a ring alone.
    std::uint32_t segment = 0;
    std::uint32_t unregistered = 0; ///< sites whose descriptor found no room
    std::uint32_t interrupting =
        0; ///< records that were dropped: of signal handlers within a record
    std::uint64_t descriptorBytes = 0;
    std::uint64_t blockBytes = 0;
    std::uint64_t blockCount = 0;
};

/// What reading has met so far.
struct Counts {
    std::uint64_t records = 0;           ///< read
    std::uint64_t recordBytes = 0;       ///< of these
    std::uint64_t blocks = 0;            ///< read, in part or whole
    std::uint64_t overwrittenBlocks = 0; ///< whole ones, for which the ring had no room any more
    std::uint64_t overwrittenBytes = 0;  ///< room for records in these, and in those read in part
    std::uint64_t missingBlocks = 0; ///< that were damaged, before or between those that were read

    /// How many records were overwritten, about: as many as have room in the bytes, if they were as
    /// long as those that were read. Nothing if none was read.
    std::optional<std::uint64_t> overwrittenRecords() const noexcept;
};

/// Whether a file is being written.
enum class Writer {
    lives,   ///< its process holds the file's lock
    ended,   ///< the file is closed, or its process has ended without closing it
    unknown, ///< the file is open, and there is no lock to tell
};

/// What turns the counter of a file into times.
struct Clock {
    std::uint64_t baseCounter = 0;
    std::int64_t baseTime = 0; ///< nanoseconds since 1970, UTC
    double nanosecondsPerCount = 1;

    std::int64_t time( std::uint64_t counter ) const noexcept;
};

/// A trace file that is being read.
class File {
  public:
    /// Opens the file. Throws Error if it cannot be opened, is not a trace file, is of an unknown
    /// version, or has a header with which nothing can be found.
    explicit File( const std::string & path );

    /// Reads a file that is in memory. `path` is its name in messages.
    File( std::string path, std::vector<std::byte> content );

    /// Reads a file from wherever its bytes come.
    File( std::string path, std::unique_ptr<Bytes> bytes );

    ~File();
    File( const File & ) = delete;
    File & operator=( const File & ) = delete;

    const Info & info() const noexcept;

    /// The sites that are registered so far.
    const std::deque<Site> & sites() const noexcept;

    /// The next record, oldest first; false when there is none (yet). Throws Error if the file can
    /// no longer be read.
    bool next( Record & record );

    /// For a file that is being written: when next() has returned false, looks for more. True if
    /// next() is worth a call. Throws Error if the file can no longer be read.
    bool poll();

    /// Complete when next() has returned false. At most maxFindings, the last of which then says
    /// that there are more.
    const std::vector<Finding> & findings() const noexcept;
    static constexpr std::size_t maxFindings = 1000;

    const Counts & counts() const noexcept;

    /// Asks anew at each call. Throws Error if the file can no longer be read.
    Writer writer() const;

    /// How many blocks are read at a time; before the first call of next().
    void setReadAhead( std::size_t blocks ) noexcept;

    /// Does not read blocks in which all records are earlier than `from`, or all are at `to` or later;
    /// before the first call of next(). Records of other times may come all the same. Without the
    /// counter, nothing is passed over: a wall clock may be set back.
    void narrow( std::optional<std::int64_t> from, std::optional<std::int64_t> to );

    /// The clock of the file, and the span over which its rate was measured, in nanoseconds. The
    /// files of a process have a base in common; Merge gives them the best of their rates.
    const Clock & clock() const noexcept;
    std::int64_t clockSpan() const noexcept;
    void setClock( const Clock & clock ) noexcept;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// Which records are wanted. What is empty is not asked for.
struct Filter {
    std::string recipe = {};                ///< function name
    std::string file = {};                  ///< source file of the site
    std::optional<std::uint32_t> line = {}; ///< and its line
    std::optional<std::int64_t> from = {};  ///< nanoseconds since 1970, UTC
    std::optional<std::int64_t> to = {};    ///< the first time that is no longer wanted
    /// A thread id, or the process id for the file of a process.
    std::optional<std::uint32_t> thread = {};
    std::string text = {}; ///< occurs in the record's text

    bool accepts( const Record & record ) const;
};

enum class Format {
    /// Time, process and thread, position, text:
    ///     2026-03-01T07:30:00.123456789Z 4711/4713 Cairn/CairnLtHelper:31 setX unit: 0
    /// A "~" before the time says that it is only that of the block.
    text,
    /// Time and text.
    brief,
    /// A JSON object with members time, timeOfBlock (only if true), process, thread (only if the
    /// file has one), file, line, function, text, values. Without a site, message and bytes stand
    /// in place of the last five.
    json,
};

/// Renders records as lines.
class Renderer {
  public:
    explicit Renderer( Format format ) : format_( format ) {}

    /// Appends the record as a line, with its line end. Control characters and bytes that are not
    /// UTF-8 are escaped: a record is always one line.
    void append( std::string & out, const Record & record );

  private:
    void appendLine( std::string & out, const Record & record );
    void appendJson( std::string & out, const Record & record );

    Format format_;
    std::vector<Value> values_; // kept from record to record for its memory
};

/// Several files as one: their records in the order of their times. Records of one process that
/// have the counter are in the order of their counters, also where these fall into the same
/// nanosecond; if the counters are equal, in the order of the files. The order within a file is kept.
///
/// A file that cannot be read is a finding, and does not keep the others from being read.
class Merge {
  public:
    Merge() = default;

    /// Adds a file, also when records have been read; then its records come as soon as it is their
    /// turn among those that are still to come. False if it cannot be read: findings() has the
    /// reason.
    bool add( const std::string & path );
    /// The same with a file that is in memory. `path` is its name in messages.
    bool add( const std::string & path, std::vector<std::byte> content );
    void add( std::unique_ptr<File> file );

    /// As File::narrow(), of all files but those that hold recorded calls: what is told of a call
    /// takes those before it. Before the first call of next().
    void narrow( std::optional<std::int64_t> from, std::optional<std::int64_t> to ) noexcept {
        from_ = from;
        to_ = to;
    }

    /// The next record of all; it is valid until the next call of next() or poll().
    bool next( Record & record );

    /// When next() has returned false: looks for more in all files, as File::poll().
    bool poll();

    /// Whether any file is being written, as far as that can be told.
    bool mayBeWritten();

    const std::vector<std::unique_ptr<File>> & files() const noexcept { return files_; }

    /// The files that could not be read, or not to their end.
    const std::vector<Finding> & findings() const noexcept { return findings_; }

  private:
    struct Head {
        Record record;
        std::size_t file;  ///< index in files_
        std::size_t group; ///< index in groups_
    };

    /// The files whose records have counters of one clock: those of a process, and of its children.
    struct Group {
        std::uint32_t process; ///< of the first file
        std::int64_t baseTime;
        Clock clock;
        std::int64_t clockSpan;
    };

    static bool isLater( const Head & one, const Head & other ) noexcept;
    static bool isOneClock( const Group & group, const File & file ) noexcept;
    std::size_t groupOf( const File & file );
    void start();
    template <class Read>
    bool tryRead( std::size_t file, Read read );
    void find( const Error & error, const std::string & path, const std::string & consequence );

    std::vector<std::unique_ptr<File>> files_;
    std::vector<std::size_t> groupOfFile_;
    std::vector<bool> isLost_; ///< by file: it can no longer be read
    std::vector<Group> groups_;
    std::map<std::pair<std::uint64_t, std::int64_t>, std::size_t> groupByBase_;
    std::vector<Finding> findings_;
    std::vector<Head> heads_;           ///< a heap, the earliest in front
    std::vector<std::size_t> toRefill_; ///< files that have no record in heads_ but may have one
    std::optional<std::int64_t> from_;
    std::optional<std::int64_t> to_;
    bool isStarted_ = false;
};

/// The trace files in a directory, by name; there may be none. Throws Error if it cannot be read.
std::vector<std::string> findFiles( const std::string & directory );

} // namespace TraceReader
