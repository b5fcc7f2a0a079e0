#pragma once

#include "interpose/SdkCall.h"

#include <Shim/Sdk.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// The recorder: an SDK that writes down every call on its way to another SDK.
//
//     Interpose::Recorder recorder( chip );
//     Shim::sdk_ = &recorder;
//     Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
//     for( const Interpose::Event & event : recorder.events() ) {
//         puts( toText( event ).c_str() );
//     }
//
// prints, hooks and constants left out:
//
//     bcmlt_entry_allocate unit 0 EGR_TUNNEL_ECN_ENCAPm -> entry 1 rc 0
//     bcmlt_entry_field_add entry 1 EGR_TUNNEL_ECN_ENCAPm BCMLT_PT_INDEX = 5 -> rc 0
//     bcmlt_entry_field_add entry 1 EGR_TUNNEL_ECN_ENCAPm OUTER_ECN = 2 -> rc 0
//     bcmlt_pt_entry_commit entry 1 EGR_TUNNEL_ECN_ENCAPm BCMLT_PT_OPCODE_MODIFY
//         BCMLT_PRIORITY_NORMAL -> rc 0                                      (on the same line)
//     bcmlt_entry_free entry 1 EGR_TUNNEL_ECN_ENCAPm -> rc 0

namespace Interpose {

/// One call. Which members mean something depends on the call; the others keep their defaults.
struct Event {
    SdkCall call = SdkCall::preCallHook;

    /// Operations: the entry, its unit and its table. For a handle that no allocate through this
    /// recorder handed out, the unit is -1 and the table empty. An allocate has its handle once it
    /// has returned, and BCMLT_INVALID_HDL before that and if it failed.
    uint32_t handle = 0;
    int unit = -1;
    std::string table = {};

    std::string field = {};
    std::string symbol = {};
    /// Field operations: the values added; the value read, once it has been read.
    std::vector<uint64_t> values = {};
    /// Array add: the first element, and the number of elements. Of more than `maxRecordedValues`
    /// only the first ones are in `values`.
    uint32_t startIndex = 0;
    uint32_t count = 0;

    /// Commits: the opcode and the priority. Attribute set: the attribute. The names are those of
    /// the SDK's constants, empty for a number that none of them has.
    uint32_t opcode = 0;
    std::string opcodeName = {};
    uint32_t priority = 0;
    std::string priorityName = {};
    uint32_t attribute = 0;
    std::string attributeName = {};

    /// Constants: the number, or the name text. errmsg: its text, and in `rc` the code asked for.
    uint32_t result = 0;
    std::string text = {};
    /// Operations: the return code, 0 before the call has returned.
    int rc = 0;
    bool returned = false;

    bool operator==( const Event & ) const = default;
};

/// An array add is recorded up to this many elements.
inline constexpr uint32_t maxRecordedValues = 64;

/// One readable line without an end of line; before the call has returned, without its result.
std::string toText( const Event & event );

class Recorder final : public Shim::Sdk {
  public:
    enum class Moment {
        before, ///< nothing of the call has happened; `returned` is false
        after,  ///< the call has returned and is about to be written down
    };
    /// Called around every call of the SDK, on the calling thread and with no lock of the recorder
    /// held: it may use the recorder and look at locks, but must not throw. It sees constant
    /// queries even if they are not kept.
    using Observer = std::function<void( Moment, const Event & )>;

    /// `inner` must outlive the recorder. Its constants are asked here, once, to learn their names.
    explicit Recorder( Shim::Sdk & inner );
    ~Recorder();
    Recorder( const Recorder & ) = delete;
    Recorder & operator=( const Recorder & ) = delete;

    /// Whether constant queries are written down. They are, unless told otherwise.
    void keepConstants( bool keep );

    /// Sets the observer, or takes it away with an empty function. Not while calls are under way.
    /// With several threads it is called by several at once.
    void observe( Observer observer );

    /// What was written down, in the order in which the calls returned: the order of calling for
    /// the calls of one thread.
    std::vector<Event> events() const;
    std::size_t eventCount() const;
    /// Forgets what was written down. Tables of live entries stay known.
    void clear();

    const char * errmsg( int rc ) noexcept override;
    uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override;
    uint32_t BCMLT_OPCODE_DELETE() noexcept override;
    uint32_t BCMLT_OPCODE_INSERT() noexcept override;
    uint32_t BCMLT_OPCODE_LOOKUP() noexcept override;
    uint32_t BCMLT_OPCODE_UPDATE() noexcept override;
    uint32_t BCMLT_PRIORITY_NORMAL() noexcept override;
    uint32_t BCMLT_PT_OPCODE_GET() noexcept override;
    uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override;
    uint32_t BCMLT_PT_OPCODE_SET() noexcept override;
    int bcmlt_entry_allocate( int unit, const char * table, uint32_t * handle ) noexcept override;
    int bcmlt_entry_attrib_set( uint32_t handle, uint32_t attribute ) noexcept override;
    int bcmlt_entry_commit( uint32_t handle, uint32_t opcode, uint32_t priority ) noexcept override;
    int bcmlt_entry_field_add( uint32_t handle, const char * field,
                               uint64_t value ) noexcept override;
    int bcmlt_entry_field_array_add( uint32_t handle, const char * field, uint32_t startIndex,
                                     const uint64_t * values, uint32_t count ) noexcept override;
    int bcmlt_entry_field_get( uint32_t handle, const char * field,
                               uint64_t * value ) noexcept override;
    int bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override;
    int bcmlt_entry_free( uint32_t handle ) noexcept override;
    int bcmlt_pt_entry_commit( uint32_t handle, uint32_t opcode,
                               uint32_t priority ) noexcept override;
    uint32_t BCMLT_INVALID_HDL() noexcept override;
    const char * ENABLEs() noexcept override;
    const char * NUM_LANESs() noexcept override;
    const char * PC_PHYS_PORT_IDs() noexcept override;
    const char * PC_PORT_PHYS_MAPs() noexcept override;
    const char * PC_PORTs() noexcept override;
    const char * PORT_IDs() noexcept override;
    const char * SPEEDs() noexcept override;
    void preCallHook() noexcept override;
    void failureHook() noexcept override;

  private:
    struct State;
    Shim::Sdk & inner_;
    std::unique_ptr<State> state_;
};

} // namespace Interpose
