#pragma once

#include "interpose/Event.h"
#include "interpose/Interposer.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

// The recorder: an SDK that writes down every call on its way to another SDK.
//
//     Interpose::Recorder recorder( chip );
//     Shim::sdk_ = &recorder;
//     Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
//     for ( const Interpose::Event & event : recorder.events() )
//         puts( toText( event ).c_str() );
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

class Recorder final : public Interposer {
  public:
    enum class Moment {
        before, ///< nothing of the call has happened; `returned` is false
        after,  ///< the call has returned and is about to be written down
    };
    /// Called before and after every call of the SDK, on the calling thread and with no lock of the
    /// recorder held. It may use the recorder and look at locks, but must not throw. It sees
    /// constant queries even if they are not kept.
    using Observer = std::function<void( Moment, const Event & )>;

    /// `inner` must outlive the recorder. Its constants are asked here, once, to learn their names.
    explicit Recorder( Shim::Sdk & inner );
    ~Recorder();

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
    void preCallHook() noexcept override;
    void failureHook() noexcept override;

  private:
    int operate( const Operation & operation ) noexcept override;
    std::uint32_t number( SdkCall constant ) noexcept override;
    const char * text( SdkCall constant ) noexcept override;

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Interpose
