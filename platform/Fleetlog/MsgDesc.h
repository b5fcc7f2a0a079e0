#pragma once

#include <Fleetlog/Format.h>

// Registration of a message site in a trace file: the cold half of a message.
//
//     static int msgId = 0;
//     Fleetlog::MsgDesc desc( file, &msgId, "Cairn/CairnLtHelper", 42 );
//     desc.formatString().put( "i" );
//     desc.formatString().put( "p" );
//     desc << "programMonTraceCpu" << " unit: " << "%s" << " errorType: " << "%s";
//     desc.finish();
//
// A site has one identifier in the process, given at its first registration in any file and stable
// from then on. Each file has a table of its own of the sites that are registered in it, so the
// first message of a site on a second thread registers the site in that thread's file and changes
// nothing elsewhere.
//
// Threads: registration takes no lock. Several threads may register the same site at once, each in
// its own file; the identifier is read and given by atomic operations, and other readers of it must
// use them too (std::atomic_ref). One file is registered in by one thread at a time, as for its
// ring.

namespace CairnPlatform {
struct Layout;
}

namespace Fleetlog {

class TraceFile;

/// The format letters of a site, one an argument: "i" 32 bits, "n" the same with a sign, "l" 64 bits,
/// "s" 16 bits, "b" bool, "p" text, "a" some numbers of 64 bits.
class MsgFormatString {
  public:
    /// Adds the letter of the next argument. At most maxLetters, before the first piece.
    void put( const char * letter ) noexcept;

    static constexpr std::size_t maxLetters = 64;

  private:
    friend class MsgDesc;
    char letters_[maxLetters];
    std::size_t length_ = 0;
};

class MsgDesc {
  public:
    /// Begins the descriptor of the site whose identifier is *msgId. If *msgId was not given by
    /// Fleetlog (it is 0, or out of range), it is given one. `sourceFile` and `line` are the site's
    /// position.
    MsgDesc( TraceFile * file, int * msgId, const char * sourceFile, int line ) noexcept;

    MsgDesc( const MsgDesc & ) = delete;
    MsgDesc & operator=( const MsgDesc & ) = delete;

    MsgFormatString & formatString() noexcept { return format_; }

    /// Adds a text piece: the function's name, a literal, or text with one "%s" for each argument.
    MsgDesc & operator<<( const char * piece ) noexcept;

    /// Lets the descriptor into the file and marks the site as initialised there, once in a file: for
    /// a site that is registered already it does nothing. If there is no room left for the descriptor,
    /// the file counts it, and the reader shows the site's records as raw bytes.
    void finish() noexcept;

    /// What a descriptor can take up: its texts, 2 bytes for each, and 28 more.
    static constexpr std::size_t maxBytes = 2048;

  private:
    friend struct CairnPlatform::Layout;

    void beginPieces() noexcept;
    void append( const char * text, std::size_t length ) noexcept;
    bool write() noexcept;

    TraceFile * file_;
    MsgFormatString format_;
    Format::DescriptorHeader header_{};
    bool piecesBegun_ = false;
    bool fits_ = true;
    std::size_t length_ = sizeof( Format::DescriptorHeader );
    alignas( 8 ) std::byte bytes_[maxBytes]; ///< the descriptor as it goes into the file
};

} // namespace Fleetlog
