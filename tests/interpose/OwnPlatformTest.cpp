#include "interpose/TraceRecorder.h"
#include "tests/sim/TestChip.h"
#include "tests/support/TemporaryFolder.h"
#include "tracereader/Recording.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

// A host that brings its own platform: this program does not link ours. It has a Fleetlog of its own
// with names that ours has, too, other layouts and other meanings. The recorder must take none of it
// for its own, and nothing of the recorder may take its place.

namespace Fleetlog {

class TraceFile {
  public:
    TraceFile() = default;
    const std::string & path() const noexcept;
    void refreshTick() noexcept { std::abort(); }

  private:
    std::string path_ = "the host's";
};

class TraceHandle {
  public:
    TraceFile * mtTraceFile() noexcept;
    TraceFile file;
};

class RingBuf {
  public:
    [[gnu::noinline]] bool startMsg( TraceFile *, int ) noexcept { std::abort(); }
};

const std::string & TraceFile::path() const noexcept { return path_; }
TraceFile * TraceHandle::mtTraceFile() noexcept { return &file; }

TraceHandle * defaultFleetlogHandle = nullptr;
void closeDefault() noexcept { std::abort(); }
void refreshTick() noexcept { std::abort(); }
void reportLoss() noexcept { std::abort(); }

} // namespace Fleetlog

namespace {

bool isHeld = false;

TEST( OwnPlatformTest, RecorderWorksBesideTheHostsOwnFleetlog ) {
    Fleetlog::TraceHandle hostsHandle;
    Fleetlog::defaultFleetlogHandle = &hostsHandle;
    const Support::TemporaryFolder folder;
    Sim::Chip chip;
    chip.addUnit( 0, SimTest::smallSchema() );
    {
        Interpose::TraceRecorder recorder(
            chip, { .directory = folder.path(), .isLockHeld = [] { return isHeld; } } );
        std::uint32_t handle = 0;
        recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
        isHeld = true;
        recorder.bcmlt_entry_free( handle );
    }
    EXPECT_EQ( hostsHandle.mtTraceFile()->path(), "the host's" );

    TraceReader::Recording recording( { folder.path() } );
    TraceReader::Event event;
    std::string lines;
    while ( recording.next( event ) ) {
        if ( event.moment != TraceReader::Event::Moment::after )
            continue;
        appendText( lines, *event.call );
        lines += *event.call->isLockHeld ? " held\n" : " free\n";
    }
    EXPECT_EQ( lines, "bcmlt_entry_allocate unit 0 MAPm -> entry 1 rc 0 free\n"
                      "bcmlt_entry_free entry 1 MAPm -> rc 0 held\n" );
    EXPECT_TRUE( recording.findings().empty() );
}

} // namespace
